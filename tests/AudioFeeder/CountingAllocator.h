// Replaces the allocation functions of the whole program by ones that count: for one simulated thread, and
// for all of them what is alive; and that fail when they are told to.
#pragma once

#include "Platform/Types.h"

namespace FeederTest {

void StartCounting(u64 thread);
// The allocations of that thread since StartCounting().
u64 StopCounting();

// What the whole program has taken from `new` and not given back: the number of blocks.
i64 LiveAllocations();

// The next `new` throws std::bad_alloc, the one after it does not.
void FailNextAllocation();

}  // namespace FeederTest
