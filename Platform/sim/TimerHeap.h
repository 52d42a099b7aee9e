// The fibers that wait for time: a binary heap, earliest first, of equal ones the one set first. Inside Platform/sim
// only.
#pragma once

#include <vector>

#include "Platform/sim/Fiber.h"

namespace Platform::Sim {

constexpr u64 kNever = 0xFFFFFFFFFFFFFFFF;

class TimerHeap {
public:
    bool Empty() const noexcept { return heap_.empty(); }
    // The earliest time; kNever when empty.
    u64 NextTime() const noexcept { return heap_.empty() ? kNever : heap_[0]->wakeTime; }
    Fiber& Next() const noexcept { return *heap_[0]; }
    // Makes room for as many timers, so that Push() allocates nothing.
    void Reserve(u64 fibers) {
        if (heap_.capacity() < fibers) heap_.reserve(fibers * 2);
    }
    void Push(Fiber& fiber, u64 time);
    void Remove(Fiber& fiber) noexcept;
    void Clear() noexcept { heap_.clear(); }

private:
    void Place(u32 slot, Fiber* fiber) noexcept;
    void SiftUp(u32 slot) noexcept;
    void SiftDown(u32 slot) noexcept;

    std::vector<Fiber*> heap_;
    u64 lastNumber_ = 0;
};

}  // namespace Platform::Sim
