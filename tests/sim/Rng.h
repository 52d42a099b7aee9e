// The draws of a scenario. Not the standard library's distributions: those differ between libraries.
#pragma once

#include "Platform/Types.h"

namespace OrvSim {

class Rng {
public:
    explicit Rng(u64 seed) : state_(seed) {}

    u64 Next() {
        state_ += 0x9E3779B97F4A7C15;
        u64 value = (state_ ^ (state_ >> 30)) * 0xBF58476D1CE4E5B9;
        value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
        return value ^ (value >> 31);
    }
    // 0 to count - 1.
    u64 Below(u64 count) { return Next() % count; }
    // Both included.
    i64 Between(i64 low, i64 high) { return low + static_cast<i64>(Below(static_cast<u64>(high - low + 1))); }
    bool Chance(u32 percent) { return Below(100) < percent; }
    // One for a thread of its own.
    Rng Fork() { return Rng(Next()); }

private:
    u64 state_;
};

}  // namespace OrvSim
