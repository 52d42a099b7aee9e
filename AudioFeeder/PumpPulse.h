// The sign of life of each pump.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "Platform/ThreadWait.h"
#include "Platform/Types.h"

namespace Orv {

// What one look at a pump shows.
struct PumpState {
    u64 id = 0;  // never used again
    std::string name;
    u32 passes = 0;  // of its loop's head; wraps around
    Platform::ThreadWait wait = Platform::ThreadWait::None;
};

// Made and destroyed by the pump's own thread, at the beginning and the end of its loop.
class PumpPulse {
public:
    explicit PumpPulse(std::string name);
    ~PumpPulse();
    PumpPulse(const PumpPulse&) = delete;
    PumpPulse& operator=(const PumpPulse&) = delete;

    // At the loop's head.
    void Beat() noexcept { passes_.store(++own_, std::memory_order_relaxed); }

    // All that live now. Never waits: false, and `all` stays as it is, while the list is in another's hands. Any
    // thread; its lock is held for moments, with none inside it.
    static bool TryAll(std::vector<PumpState>& all);
    // Takes that lock for a moment: for who looks whether it can be had. Any thread.
    static void TakeLock();

private:
    const std::string name_;
    std::atomic<Platform::ThreadWait>& wait_;
    u32 own_ = 0;
    std::atomic<u32> passes_{0};
    u64 id_ = 0;
};

}  // namespace Orv
