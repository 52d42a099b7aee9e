// Replaces the allocation functions of the whole program by ones that count for one simulated thread.
#pragma once

#include "Platform/Types.h"

namespace FeederTest {

void StartCounting(u64 thread);
// The allocations of that thread since StartCounting().
u64 StopCounting();

}  // namespace FeederTest
