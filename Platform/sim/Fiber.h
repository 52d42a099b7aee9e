// One simulated thread. Inside Platform/sim only.
#pragma once

#include <functional>
#include <random>
#include <string>

#include "Platform/ThreadWait.h"
#include "Platform/Types.h"
#include "Platform/sim/FiberContext.h"

namespace Platform::Sim {

struct Fiber;

// Fibers in the order in which they came. A fiber stands in one queue at most. Plain data, so that it fits into the
// storage of a mutex.
struct FiberQueue {
    Fiber* first = nullptr;
    Fiber* last = nullptr;

    bool Empty() const noexcept { return first == nullptr; }
    void Append(Fiber& fiber) noexcept;
    void Remove(Fiber& fiber) noexcept;
};

// The exception state that the C++ runtime keeps for each thread, and that each fiber must have for itself.
struct ExceptionState {
    void* caught = nullptr;
    unsigned int uncaught = 0;
};

// What a blocked fiber waits for, for the list of a deadlock.
struct WaitReason {
    const char* text = "nothing";
    u64 thread = 0;  // the id of the thread that it is about; 0: none
};

struct Fiber {
    static constexpr u32 NoTimer = 0xFFFFFFFF;
    enum class State : u8 { Ready, Running, Blocked, Ended, Abandoned };

    FiberContext context;
    FiberStack stack;
    ExceptionState exceptions;
    // In the queue in which the fiber is ready or waits.
    Fiber* previous = nullptr;
    Fiber* next = nullptr;
    FiberQueue* queue = nullptr;
    // In the heap of timers.
    u64 wakeTime = 0;
    u64 wakeNumber = 0;
    u32 timer = NoTimer;
    bool timedOut = false;
    State state = State::Ready;
    u32 locksHeld = 0;
    u32 stayMilliseconds = 0;  // in the next lock that it takes
    u64 id = 1;
    std::string name;
    WaitReason reason;
    std::function<void()> body;
    FiberQueue joiners;
    std::minstd_rand rand;
    std::atomic<ThreadWait> wait{ThreadWait::None};
};

}  // namespace Platform::Sim
