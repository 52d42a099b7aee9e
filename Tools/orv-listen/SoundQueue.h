// The sound between the pipe and a slow output.
#pragma once

#include <deque>
#include <vector>

#include "Platform/Sync.h"

namespace Orv {

// Holds at most `limitBytes`; what comes beyond pushes the oldest out, in whole samples, so that the side that fills
// it never waits. One thread fills, one takes.
class SoundQueue {
public:
    explicit SoundQueue(u64 limitBytes) : limit_(limitBytes & ~u64{1}) {}

    // Appends bytes. Returns how many old bytes had to go.
    u64 Push(const u8* bytes, u64 count);
    // Waits for bytes, and moves all there are to `out`. False when the queue has been closed and is empty.
    bool Take(std::vector<u8>& out);
    // No more bytes will come; what is queued can still be taken.
    void Close();

private:
    const u64 limit_;
    Platform::Mutex mutex_;
    Platform::CondVar changed_;
    std::deque<u8> bytes_ ORV_GUARDED_BY(mutex_);
    bool closed_ ORV_GUARDED_BY(mutex_) = false;
};

}  // namespace Orv
