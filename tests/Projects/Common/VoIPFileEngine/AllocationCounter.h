// Counts what one thread allocates. Link AllocationCounter.cpp, which replaces the program's operator new.
#pragma once

#include "Platform/Types.h"

namespace Orv::TestData {

// Counts the allocations of its thread while it lives; one at a time on a thread.
class AllocationCounter {
public:
    AllocationCounter();
    ~AllocationCounter();
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;
    u64 Count() const;
};

}  // namespace Orv::TestData
