#include "tests/AudioFeeder/CountingAllocator.h"

#include <cstdlib>
#include <new>
#include <utility>

#include "Platform/Thread.h"

namespace {

u64 countedThread = 0;  // 0: nothing is counted
u64 allocations = 0;
i64 live = 0;  // simulated threads are fibers of one
bool failNext = false;

void Count() {
    ++live;
    if (countedThread != 0 && Platform::CurrentThreadId() == countedThread) ++allocations;
}

}  // namespace

namespace FeederTest {

void StartCounting(u64 thread) {
    allocations = 0;
    countedThread = thread;
}

u64 StopCounting() {
    countedThread = 0;
    return allocations;
}

i64 LiveAllocations() {
    return live;
}

void FailNextAllocation() {
    failNext = true;
}

}  // namespace FeederTest

void* operator new(std::size_t size) {
    if (std::exchange(failNext, false)) throw std::bad_alloc();
    Count();
    if (void* memory = std::malloc(size != 0 ? size : 1)) return memory;
    throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    Count();
    return std::malloc(size != 0 ? size : 1);
}

void operator delete(void* memory) noexcept {
    if (memory != nullptr) --live;
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    if (memory != nullptr) --live;
    std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept {
    if (memory != nullptr) --live;
    std::free(memory);
}
