// Sources of randomness.
#pragma once

#include "Platform/Types.h"

namespace Platform {

// 32 bits from the system's random device, for seeds and for what nobody may guess.
u32 RandomSeed();

// The library generator that each thread has for itself: a thread's draws depend on its own seed and on nothing that
// another thread does. A thread that has not seeded it starts as if seeded with 1.
void SeedThreadRand(u32 seed) noexcept;
// 0 to 2147483647.
i32 ThreadRand() noexcept;

}  // namespace Platform
