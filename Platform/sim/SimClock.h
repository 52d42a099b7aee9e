// The calendar of a simulated world. It follows the simulated steady clock and can be turned.
#pragma once

#include "Platform/Types.h"

namespace Platform::Sim {

class SimClock {
public:
    // 2024-03-05 10:20:30.000, the calendar's start in a new world (UTC; the local offset is 0).
    static constexpr i64 StartMilliseconds = 1'709'634'030'000;
    // The steady clock of a new world.
    static constexpr u64 SteadyStartNanoseconds = 3'600'000'000'000;

    // Turns the calendar: milliseconds since 1970-01-01 00:00 UTC. The steady clock is not touched.
    void SetUtcMilliseconds(i64 milliseconds) noexcept;
    i64 UtcMilliseconds() const noexcept;
    // Local time minus UTC.
    void SetLocalOffsetMinutes(i32 minutes) noexcept;
    i32 LocalOffsetMinutes() const noexcept { return localOffsetMinutes_; }

    u64 SteadyNanoseconds() const noexcept { return steady_; }
    // Moves the steady clock and with it the calendar. For code that runs on no simulated thread.
    void Advance(u64 nanoseconds) noexcept { steady_ += nanoseconds; }

private:
    u64 steady_ = SteadyStartNanoseconds;
    // Calendar minus steady clock, in milliseconds.
    i64 difference_ = StartMilliseconds - static_cast<i64>(SteadyStartNanoseconds / 1'000'000);
    i32 localOffsetMinutes_ = 0;
};

}  // namespace Platform::Sim
