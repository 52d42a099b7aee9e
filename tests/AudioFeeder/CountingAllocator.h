// Replaces the allocation functions of the whole program by ones that count: for one simulated thread, and
// for all of them what is alive.
#pragma once

#include "Platform/Types.h"

namespace FeederTest {

void StartCounting(u64 thread);
// The allocations of that thread since StartCounting().
u64 StopCounting();

// What the whole program has taken from `new` and not given back: the number of blocks.
i64 LiveAllocations();

}  // namespace FeederTest
