#include "Projects/Common/VoIPFileEngine/MusicBoxConsumer.h"

#include <algorithm>
#include <cstring>

#include "ServiceProcess/LogAdapters.h"

namespace Orv {
namespace {

constexpr char kLogSource[] = "VoIPFileEngine/MusicBox";

using Guard = Platform::LockGuard<Platform::RecursiveMutex>;

}  // namespace

IMusicBoxConsumerImpl::IMusicBoxConsumerImpl(void* buffer, i32 frameBytes) noexcept
    : buffer_(static_cast<u8*>(buffer)),
      frameBytes_(std::max(frameBytes, 0)),
      frameSamples_(static_cast<u64>(frameBytes_ / 2)) {}

void IMusicBoxConsumerImpl::AddChunk(MTObjects::THolder<IMusicBox>, MTObjects::THolder<IMusicBoxSoundChunk> chunk) {
    if (!chunk.IsValid()) return;
    Guard guard(mutex_);
    chunks_.push_back(chunk);
    ORV_ENGINE_LOG(LogTraceSink, "Added chunk, total=" << chunks_.size());
    if (chunks_.size() > MaxChunks) {
        ORV_ENGINE_LOG(LogWarnSink, "Remove obsolete data: listsize=" << chunks_.size());
        DropFront();
        DropFront();
    }
}

void IMusicBoxConsumerImpl::DropFront() {
    chunks_.pop_front();
    position_ = 0;
}

MTObjects::THolder<IMusicBox> IMusicBoxConsumerImpl::Reset() {
    MTObjects::THolder<IMusicBox> box;
    Guard guard(mutex_);
    stopped_ = true;
    chunks_.clear();
    position_ = 0;
    box.Swap(box_);
    return box;
}

void IMusicBoxConsumerImpl::OnSubscriptionRemoved(MTObjects::THolder<IMusicBox>) {
    ORV_ENGINE_LOG(LogWarnSink, "subscription removed");
    Reset();
}

void IMusicBoxConsumerImpl::Connect(MTObjects::THolder<IMusicBox> box) {
    Disconnect();
    const bool usable = box.IsValid();
    {
        Guard guard(mutex_);
        box_ = box;
        if (usable) {
            ORV_ENGINE_LOG(LogWarnSink, "Connected");
            position_ = 0;
        }
    }
    if (!usable) return;
    box->Subscribe(this);
    Guard guard(mutex_);
    // A box that was shut down meanwhile has taken the subscription away, and nothing may cover that up.
    if (box_ == box) stopped_ = false;
}

void IMusicBoxConsumerImpl::Disconnect() {
    MTObjects::THolder<IMusicBox> box;
    {
        Guard guard(mutex_);
        box = box_;
    }
    if (box.IsValid()) {
        ORV_ENGINE_LOG(LogWarnSink, "Disconnected");
        box->Unsubscribe(this);
    }
    Reset();
    frameChunk_ = nullptr;
}

bool IMusicBoxConsumerImpl::ReadFrame(const u8** frame) {
    *frame = nullptr;
    frameChunk_ = nullptr;
    Guard guard(mutex_);
    if (stopped_ && chunks_.empty()) return false;
    if (frameSamples_ == 0) {
        *frame = buffer_;
        return true;
    }
    for (u64 have = 0; have != frameSamples_;) {
        if (chunks_.empty()) {
            ORV_ENGINE_LOG(LogWarnSink, "Not enough data:" << frameSamples_ << '(' << have << ')');
            std::memset(buffer_ + have * sizeof(i16), 0, static_cast<u64>(frameBytes_) - have * sizeof(i16));
            break;
        }
        const i16* samples = nullptr;
        const u64 count = chunks_.front()->GetSamples(&samples, position_, frameSamples_ - have);
        if (samples == nullptr) {
            DropFront();
            continue;
        }
        position_ += count;
        if (count == frameSamples_) {
            frameChunk_ = chunks_.front();
            *frame = reinterpret_cast<const u8*>(samples);
            return true;
        }
        std::memcpy(buffer_ + have * sizeof(i16), samples, count * sizeof(i16));
        have += count;
    }
    *frame = buffer_;
    return true;
}

}  // namespace Orv
