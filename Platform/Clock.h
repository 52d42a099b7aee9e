// The two clocks: one that only goes forward, and the calendar.
#pragma once

#include "Platform/Types.h"

namespace Platform {

// A steady clock with an arbitrary start, in whole milliseconds. Not touched by changes of the wall clock.
u64 SteadyMilliseconds() noexcept;
// The same clock in nanoseconds.
u64 SteadyNanoseconds() noexcept;

struct CalendarTime {
    u16 year;
    u16 month;  // 1 to 12
    u16 day;    // 1 to 31
    u16 hour;   // 0 to 23
    u16 minute;
    u16 second;        // 0 to 59
    u16 milliseconds;  // 0 to 999
};

CalendarTime LocalTime() noexcept;
CalendarTime UtcTime() noexcept;

}  // namespace Platform
