#include "Projects/Common/VoIPFileEngine/StreamMusicBox.h"

#include <algorithm>

#include "Platform/Clock.h"
#include "ServiceProcess/LogAdapters.h"

namespace Orv {
namespace {

constexpr char kLogSource[] = "VoIPFileEngine/MusicBox";

using Guard = Platform::LockGuard<Platform::RecursiveMutex>;

std::atomic<u32> livingBoxes{0};

}  // namespace

IMusicBox::IMusicBox() noexcept {
    livingBoxes.fetch_add(1, std::memory_order_relaxed);
}

IMusicBox::~IMusicBox() {
    livingBoxes.fetch_sub(1, std::memory_order_relaxed);
}

u32 IMusicBox::Living() noexcept {
    return livingBoxes.load(std::memory_order_relaxed);
}

// Only a consumer that does not hold the box can still be here. Nobody can hold the box any more, so it is not named.
IMusicBoxImpl::~IMusicBoxImpl() {
    Guard guard(mutex_);
    for (const auto& consumer : consumers_) consumer->OnSubscriptionRemoved(nullptr);
}

void IMusicBoxImpl::Subscribe(MTObjects::THolder<IMusicBoxConsumer> consumer) {
    if (!consumer.IsValid()) return;
    Guard guard(mutex_);
    if (std::find(consumers_.begin(), consumers_.end(), consumer) == consumers_.end()) consumers_.push_back(consumer);
}

void IMusicBoxImpl::Unsubscribe(MTObjects::THolder<IMusicBoxConsumer> consumer) {
    const MTObjects::THolder<IMusicBox> self(this);
    Guard guard(mutex_);
    const auto found = std::find(consumers_.begin(), consumers_.end(), consumer);
    if (found == consumers_.end()) return;
    consumer->OnSubscriptionRemoved(self);
    consumers_.erase(found);
    if (consumers_.empty()) lastChunk_ = nullptr;
}

void IMusicBoxImpl::Shutdown() {
    const MTObjects::THolder<IMusicBox> self(this);
    Guard guard(mutex_);
    while (!consumers_.empty()) Unsubscribe(consumers_.front());
}

bool IMusicBoxImpl::HasConsumers() {
    Guard guard(mutex_);
    return !consumers_.empty();
}

void IMusicBoxImpl::Provide(MTObjects::THolder<IMusicBoxSoundChunk> chunk) {
    Guard guard(mutex_);
    ORV_ENGINE_LOG(LogTraceSink, "Provided (" << consumers_.size() << ") at " << Platform::SteadyMilliseconds());
    // The consumers hold the box while the lock is held, so this holder, which goes before the lock does, is never the
    // last one: the thread that runs here would have to wait for itself.
    if (!consumers_.empty()) {
        const MTObjects::THolder<IMusicBox> self(this);
        for (const auto& consumer : consumers_) consumer->AddChunk(self, chunk);
    }
    lastChunk_ = chunk;
}

StreamMusicBox::StreamMusicBox(const std::string& name, MTObjects::THolder<IMMStreamManager> source,
                               MTObjects::THolder<IContentPlayListener> listener, i32 shift)
    : source_(std::move(source)), listener_(std::move(listener)), name_(name), shift_(shift) {
    source_->Prepare(frame_.data(), FrameBytes);
    thread_ = Platform::Thread("music box", [this] { Play(); });
}

StreamMusicBox::~StreamMusicBox() {
    stop_.store(true, std::memory_order_release);
    thread_.Join();
}

void StreamMusicBox::Shutdown() {
    const MTObjects::THolder<IMusicBox> self(this);
    IMusicBoxImpl::Shutdown();
    Guard guard(tickMutex_);  // a tick that still found a consumer is over
}

void StreamMusicBox::Play() {
    u32 tick = static_cast<u32>(Platform::SteadyMilliseconds());
    MTObjects::THolder<RealChunk> chunk(new RealChunk(shift_));
    while (!stop_.load(std::memory_order_acquire)) {
        const u32 elapsed = static_cast<u32>(Platform::SteadyMilliseconds()) - tick;
        if (elapsed < TickMilliseconds) {
            Platform::SleepMilliseconds(TickMilliseconds - elapsed);
            continue;
        }
        tick += TickMilliseconds;
        Guard guard(tickMutex_);
        if (HasConsumers()) {
            Tick(chunk);
        } else {
            chunk->Clear();
        }
    }
}

void StreamMusicBox::Tick(MTObjects::THolder<RealChunk>& chunk) {
    const u8* samples = nullptr;
    ContentEventList events;
    source_->GetReader()->GetNextFrame(&samples, events);
    if (listener_.IsValid()) {
        for (const ContentEvent& event : events) listener_->OnContentEvent(event);
    }
    if (samples == nullptr) return;
    for (u64 left = FrameSamples; left != 0;) {
        const u64 taken = chunk->Append(samples, left);
        samples += taken * sizeof(i16);
        left -= taken;
        if (chunk->Full()) {
            Provide(chunk);
            chunk = new RealChunk(shift_);
        }
    }
}

}  // namespace Orv
