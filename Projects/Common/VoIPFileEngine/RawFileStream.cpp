#include "Projects/Common/VoIPFileEngine/RawFileStream.h"

#include <cstring>

#include "ServiceProcess/LogAdapters.h"

namespace Orv {
namespace {
constexpr char kLogSource[] = "VoIPFileEngine/RawFile";
}

RawFileStream::~RawFileStream() {
    RawFileStream::Close();
}

bool RawFileStream::Open(const char* name, void* buffer, i32 frameBytes) {
    Close();
    decoder_ = nullptr;
    name_ = name;
    block_ = static_cast<u8*>(buffer);
    blockSize_ = static_cast<u64>(frameBytes);
    file_ = GetSharedRawFile(name_);
    if (file_.IsValid()) Rewind();
    return IsOpen();
}

void RawFileStream::Close() {
    if (file_.IsValid()) ReleaseSharedRawFile(name_);
}

MTObjects::THolder<MTObjects::MTReferencedTypeBase> RawFileStream::FrameOwner() {
    if (decoder_) return decoder_;
    return front_;
}

void RawFileStream::Rewind() {
    if (!IsOpen() || rewound_) return;
    rewound_ = true;
    front_ = new IRawFileBuffer(file_);
    back_ = new IRawFileBuffer(file_);
    if (front_->IssueRead(static_cast<u32>(file_->start), IRawFileBuffer::Size)) Prefetch();
    if (file_->adpcm) {
        decoder_ =
            new Decoder([this](const u8** block, u64 bytes) { return ReadRaw(block, bytes, compressedBlock_.data()); },
                        static_cast<u32>(blockSize_));
    }
}

void RawFileStream::Prefetch() {
    back_->IssueRead(front_->NextPosition(), IRawFileBuffer::Size);
}

bool RawFileStream::GetNextFrame(const u8** frame, ContentEventList& events) {
    const u64 got = decoder_ ? decoder_->adpcm.Decode(frame, static_cast<u32>(static_cast<i32>(blockSize_) / 2))
                             : ReadRaw(frame, blockSize_, block_);
    if (got != 0) return true;
    AppendFinished(events, IsOpen() && front_->failed ? front_->read->Error() : 0);
    return false;
}

u64 RawFileStream::ReadRaw(const u8** out, u64 count, u8* block) {
    rewound_ = false;
    *out = nullptr;
    if (!IsOpen() || front_->failed || front_->eof) return 0;
    if (!front_->ready) {
        if (!front_->UpdateStatus()) return FinishBlock(out, count, 0, block, "Operation is in progress...");
        Prefetch();
    }
    const u64 got = front_->Take(out, count);
    if (got == count) return count;
    if (front_->failed || front_->eof) return FinishBlock(out, count, got, block, "Buffer is over");

    front_.Swap(back_);
    if (!front_->UpdateStatus()) return FinishBlock(out, count, got, block, "Back buffer is not ready...");
    std::memcpy(block, *out, got);
    // Only now may the old front buffer be read into.
    if (!front_->failed && !front_->eof) Prefetch();
    const u64 rest = front_->Take(out, count - got);
    std::memcpy(block + got, *out, rest);
    *out = nullptr;
    return FinishBlock(out, count, got + rest, block, "");
}

u64 RawFileStream::FinishBlock(const u8** out, u64 count, u64 have, u8* block, const char* reason) {
    if (*out != nullptr) std::memcpy(block, *out, have);
    if (have != count) {
        std::memset(block + have, 0, count - have);
        ORV_ENGINE_LOG(LogTraceSink, "Zeroing out " << count - have << ' ' << reason);
    }
    *out = block;
    return count;
}

}  // namespace Orv
