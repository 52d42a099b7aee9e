// One listener of a music box.
#pragma once

#include <list>

#include "Platform/Sync.h"
#include "Projects/Common/VoIPFileEngine/MusicBox.h"

namespace Orv {

// Keeps at most six seconds: with a seventh chunk the two oldest go, and reading goes on at the oldest that is kept.
// A listener that runs dry hears silence for what is missing, and carries on.
class IMusicBoxConsumerImpl : public IMusicBoxConsumer {
public:
    // `buffer` has `frameBytes` bytes and outlives the last ReadFrame().
    IMusicBoxConsumerImpl(void* buffer, i32 frameBytes) noexcept;
    IMusicBoxConsumerImpl(const IMusicBoxConsumerImpl&) = delete;
    IMusicBoxConsumerImpl& operator=(const IMusicBoxConsumerImpl&) = delete;

    void AddChunk(MTObjects::THolder<IMusicBox> box, MTObjects::THolder<IMusicBoxSoundChunk> chunk) override;
    void OnSubscriptionRemoved(MTObjects::THolder<IMusicBox> box) override;
    void Connect(MTObjects::THolder<IMusicBox> box) override;
    void Disconnect() override;
    bool ReadFrame(const u8** frame) override;
    MTObjects::THolder<IMusicBoxSoundChunk> FrameChunk() override { return frameChunk_; }

private:
    static constexpr u64 MaxChunks = 6;

    // Empties the queue, and gives the box to the caller, who lets it go with no lock held: that may end its thread,
    // which may be waiting for this consumer.
    MTObjects::THolder<IMusicBox> Reset();
    void DropFront() ORV_REQUIRES(mutex_);

    Platform::RecursiveMutex mutex_;
    MTObjects::THolder<IMusicBox> box_ ORV_GUARDED_BY(mutex_);
    std::list<MTObjects::THolder<IMusicBoxSoundChunk>> chunks_ ORV_GUARDED_BY(mutex_);
    bool stopped_ ORV_GUARDED_BY(mutex_) = true;
    u64 position_ ORV_GUARDED_BY(mutex_) = 0;  // in samples, inside the front chunk
    u8* const buffer_;
    const i32 frameBytes_;
    const u64 frameSamples_;
    // The reader's: keeps the last frame alive when the queue drops its chunk.
    MTObjects::THolder<IMusicBoxSoundChunk> frameChunk_;
};

}  // namespace Orv
