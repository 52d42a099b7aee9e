#include "Projects/Common/VoIPFileEngine/PipeStream.h"

#include <cstring>

#include "Projects/Common/VoIPFileEngine/PipeStorage.h"

namespace Orv {

IPipeStream::~IPipeStream() {
    ReleasePipeBox(name_.c_str());
}

bool IPipeStream::Open(const char* name, void* buffer, i32 frameBytes) {
    frameBytes_ = frameBytes;
    frameBuffer_ = static_cast<u8*>(buffer);
    if (box_.IsValid()) ReleasePipeBox(name_.c_str());
    name_ = name != nullptr ? name : "";
    box_ = AcquirePipeBox(name);
    return IsOpen();
}

bool IPipeStream::GetNextFrame(const u8** frame, ContentEventList&) {
    *frame = nullptr;
    if (!IsOpen()) return false;
    ILoopBuffer& ring = *box_->Buffer();
    const u32 frameBytes = static_cast<u32>(frameBytes_);
    const u64 head = ring.TakeHead();
    if (head - position_ > LongestLag) {
        // Too far behind, or ahead of a ring that has begun anew.
        position_ = head - RejoinLag;
    } else if (static_cast<i32>(static_cast<u32>(head - position_)) < frameBytes_) {
        std::memset(frameBuffer_, 0, frameBytes);
        *frame = frameBuffer_;
        return true;
    }
    const u32 offset = static_cast<u32>(position_ % ILoopBuffer::Size);
    if (ILoopBuffer::Size - offset >= frameBytes) {
        *frame = ring.data + offset;
    } else {
        ring.CopyOut(position_, frameBuffer_, frameBytes);
        *frame = frameBuffer_;
    }
    position_ += frameBytes;
    return true;
}

void IPipeStream::Close() {
    ReleasePipeBox(name_.c_str());
}

// The ring alone: a reader that goes takes its box with it at once, though its last frame is still in use.
MTObjects::THolder<MTObjects::MTReferencedTypeBase> IPipeStream::FrameOwner() {
    if (!box_) return nullptr;
    return box_->Buffer();
}

}  // namespace Orv
