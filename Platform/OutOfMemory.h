// What becomes of a process whose heap has nothing left.
#pragma once

namespace Platform {

// From now on memory that the heap cannot give ends the process on the spot, with a sentence on standard error and exit
// code -3 (253 as the shell shows it). No exception unwinds half a change and leaves the rest of the process to go on
// with it, and nothing else runs either: no destructor, no flush, no closing of a log. `new (std::nothrow)` ends it
// too. May be called again.
void EndWhenOutOfMemory();

// While one lives, allocations of its thread that cannot be had throw std::bad_alloc again: for what can do without.
// May stand inside another one.
class MemoryMayFail {
public:
    MemoryMayFail() noexcept;
    ~MemoryMayFail();
    MemoryMayFail(const MemoryMayFail&) = delete;
    MemoryMayFail& operator=(const MemoryMayFail&) = delete;
};

}  // namespace Platform
