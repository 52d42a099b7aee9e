// The box that plays a stream set.
#pragma once

#include <array>
#include <atomic>
#include <list>

#include "Platform/Sync.h"
#include "Platform/Thread.h"
#include "Projects/Common/VoIPFileEngine/MusicBox.h"

namespace Orv {

// The subscriptions of a box.
class IMusicBoxImpl : public IMusicBox {
public:
    ~IMusicBoxImpl() override;

    void Subscribe(MTObjects::THolder<IMusicBoxConsumer> consumer) override;
    void Unsubscribe(MTObjects::THolder<IMusicBoxConsumer> consumer) override;
    void Shutdown() override;

protected:
    bool HasConsumers();
    // Hands a finished chunk to every consumer, in order of subscription.
    void Provide(MTObjects::THolder<IMusicBoxSoundChunk> chunk);

private:
    Platform::RecursiveMutex mutex_;
    std::list<MTObjects::THolder<IMusicBoxConsumer>> consumers_ ORV_GUARDED_BY(mutex_);
    MTObjects::THolder<IMusicBoxSoundChunk> lastChunk_ ORV_GUARDED_BY(mutex_);
};

// Pulls its source on a grid of 10 ms, on a thread of its own ("music box"), and fills chunks of one second. Without
// consumers the source is not pulled and stands still, and a partial chunk is thrown away. A thread that was held up
// catches up. Nothing is allocated within a chunk.
class StreamMusicBox : public IMusicBoxImpl {
public:
    // See RegisterMusicBox().
    StreamMusicBox(const std::string& name, MTObjects::THolder<IMMStreamManager> source,
                   MTObjects::THolder<IContentPlayListener> listener, i32 shift);
    // Ends the thread and waits for it.
    ~StreamMusicBox() override;

    // When it returns, the source is not being pulled either. Not with a lock held that the source wants.
    void Shutdown() override;

private:
    static constexpr u32 FrameSamples = 80;
    static constexpr u32 FrameBytes = 160;
    static constexpr u32 TickMilliseconds = 10;

    void Play();
    // One frame of the source into `chunk`; replaces it when it is full.
    void Tick(MTObjects::THolder<RealChunk>& chunk);

    const MTObjects::THolder<IMMStreamManager> source_;
    const MTObjects::THolder<IContentPlayListener> listener_;  // may be null
    const std::string name_;
    std::atomic<bool> stop_{false};
    std::array<u8, MaxFrameBytes> frame_;  // the source's frame buffer
    const i32 shift_;
    // Held for a tick. The source may have a reader of this very box: who takes that out lets the box go, and waits for
    // its thread, under the source's lock.
    Platform::RecursiveMutex tickMutex_;
    Platform::Thread thread_;
};

}  // namespace Orv
