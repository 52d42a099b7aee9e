#include "Platform/sim/Fiber.h"

namespace Platform::Sim {

void FiberQueue::Append(Fiber& fiber) noexcept {
    fiber.queue = this;
    fiber.previous = last;
    fiber.next = nullptr;
    (last != nullptr ? last->next : first) = &fiber;
    last = &fiber;
}

void FiberQueue::Remove(Fiber& fiber) noexcept {
    (fiber.previous != nullptr ? fiber.previous->next : first) = fiber.next;
    (fiber.next != nullptr ? fiber.next->previous : last) = fiber.previous;
    fiber.previous = fiber.next = nullptr;
    fiber.queue = nullptr;
}

}  // namespace Platform::Sim
