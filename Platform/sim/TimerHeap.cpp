#include "Platform/sim/TimerHeap.h"

namespace Platform::Sim {

namespace {

bool Earlier(const Fiber& left, const Fiber& right) {
    return left.wakeTime != right.wakeTime ? left.wakeTime < right.wakeTime : left.wakeNumber < right.wakeNumber;
}

}  // namespace

void TimerHeap::Push(Fiber& fiber, u64 time) {
    fiber.wakeTime = time;
    fiber.wakeNumber = ++lastNumber_;
    heap_.push_back(&fiber);
    fiber.timer = static_cast<u32>(heap_.size() - 1);
    SiftUp(fiber.timer);
}

void TimerHeap::Remove(Fiber& fiber) noexcept {
    const u32 slot = fiber.timer;
    Fiber* moved = heap_.back();
    heap_.pop_back();
    fiber.timer = Fiber::NoTimer;
    if (moved == &fiber) return;
    Place(slot, moved);
    SiftUp(slot);
    SiftDown(moved->timer);
}

void TimerHeap::Place(u32 slot, Fiber* fiber) noexcept {
    heap_[slot] = fiber;
    fiber->timer = slot;
}

void TimerHeap::SiftUp(u32 slot) noexcept {
    Fiber* fiber = heap_[slot];
    while (slot > 0) {
        const u32 parent = (slot - 1) / 2;
        if (!Earlier(*fiber, *heap_[parent])) break;
        Place(slot, heap_[parent]);
        slot = parent;
    }
    Place(slot, fiber);
}

void TimerHeap::SiftDown(u32 slot) noexcept {
    Fiber* fiber = heap_[slot];
    const u32 count = static_cast<u32>(heap_.size());
    for (;;) {
        u32 child = slot * 2 + 1;
        if (child >= count) break;
        if (child + 1 < count && Earlier(*heap_[child + 1], *heap_[child])) ++child;
        if (!Earlier(*heap_[child], *fiber)) break;
        Place(slot, heap_[child]);
        slot = child;
    }
    Place(slot, fiber);
}

}  // namespace Platform::Sim
