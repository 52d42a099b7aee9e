// For tests in which allocations fail: what stands under their operator new, and how a process ends whose heap has
// nothing left.
#pragma once

#include <cstdlib>
#include <new>
#include <string>

#include "Platform/Types.h"
#include "tests/support/ChildProcess.h"

namespace OrvTest {

inline constexpr u64 Never = 0xFFFFFFFFFFFFFFFF;  // the number of no allocation
inline constexpr int OutOfMemoryCode = 253;       // the shell's form of -3
inline constexpr char OutOfMemoryMessage[] = "std::bad_alloc: out of memory";

inline bool EndedOutOfMemory(const ChildEnd& end) {
    return end.exitCode == OutOfMemoryCode && end.said.find(OutOfMemoryMessage) != std::string::npos;
}

// As the standard wants it of an allocation function: the handler is asked until it gives up.
inline void* AllocateUnless(bool fails, std::size_t size) {
    for (;;) {
        void* memory = fails ? nullptr : std::malloc(size != 0 ? size : 1);
        if (memory != nullptr) return memory;
        const std::new_handler handler = std::get_new_handler();
        if (handler == nullptr) throw std::bad_alloc();
        handler();
    }
}

}  // namespace OrvTest
