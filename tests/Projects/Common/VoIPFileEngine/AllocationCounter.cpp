#include "tests/Projects/Common/VoIPFileEngine/AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace {

thread_local bool counting = false;
thread_local u64 allocations = 0;

void* Allocate(std::size_t size) {
    if (counting) ++allocations;
    return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

void* operator new(std::size_t size) {
    if (void* memory = Allocate(size)) return memory;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace Orv::TestData {

AllocationCounter::AllocationCounter() {
    allocations = 0;
    counting = true;
}
AllocationCounter::~AllocationCounter() {
    counting = false;
}
u64 AllocationCounter::Count() const {
    return allocations;
}

}  // namespace Orv::TestData
