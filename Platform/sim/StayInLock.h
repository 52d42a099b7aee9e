// A thread that stays in a lock, for tests of what the others do meanwhile.
#pragma once

#include "Platform/Types.h"

namespace Platform::Sim {

// The calling simulated thread sleeps so long in the next mutex that it takes, with the lock held.
void StayInNextLock(u32 milliseconds) noexcept;

}  // namespace Platform::Sim
