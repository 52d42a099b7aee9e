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

// Marks the thread that gives a channel its content from outside its pump. The pump may have to stand until that thread
// has opened it, and then waits for whatever that thread waits for.
class ContentGiver {
public:
    // The calling thread gives while this lives, one at a time. Takes the lock of the pumps' list for moments.
    class Scope {
    public:
        explicit Scope(ContentGiver& giver);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        ContentGiver& giver_;
    };

private:
    friend class PumpPulse;
    const std::atomic<Platform::ThreadWait>* wait_ = nullptr;  // under that lock
};

// Made and destroyed by the pump's own thread, at the beginning and the end of its loop.
class PumpPulse {
public:
    // `giver` lives longer.
    PumpPulse(std::string name, const ContentGiver& giver);
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
    // What the pump waits for. Under the list's lock.
    Platform::ThreadWait Wait() const;

    const std::string name_;
    std::atomic<Platform::ThreadWait>& wait_;
    const ContentGiver& giver_;
    u32 own_ = 0;
    std::atomic<u32> passes_{0};
    u64 id_ = 0;
};

}  // namespace Orv
