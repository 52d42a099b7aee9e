#include "Platform/OutOfMemory.h"

#include <cstdio>
#include <cstdlib>
#include <new>

namespace Platform {

namespace {

constexpr int kExitCode = -3;

thread_local int mayFail = 0;

void OnOutOfMemory() {
    if (mayFail != 0) throw std::bad_alloc();
    // Nothing here allocates, and standard error has no buffer.
    std::fputs("std::bad_alloc: out of memory\n", stderr);
    // No destructor runs: this thread may hold any lock, and others go on until the end.
    std::_Exit(kExitCode);
}

}  // namespace

void EndWhenOutOfMemory() {
    std::set_new_handler(&OnOutOfMemory);
}

MemoryMayFail::MemoryMayFail() noexcept {
    ++mayFail;
}

MemoryMayFail::~MemoryMayFail() {
    --mayFail;
}

}  // namespace Platform
