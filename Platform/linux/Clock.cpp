#include "Platform/Clock.h"

#include <algorithm>
#include <ctime>

namespace Platform {
namespace {

constexpr u64 kNanosecondsPerSecond = 1'000'000'000;
constexpr u64 kNanosecondsPerMillisecond = 1'000'000;

CalendarTime ToCalendar(const std::tm& parts, long nanoseconds) {
    CalendarTime time{};
    time.year = static_cast<u16>(parts.tm_year + 1900);
    time.month = static_cast<u16>(parts.tm_mon + 1);
    time.day = static_cast<u16>(parts.tm_mday);
    time.hour = static_cast<u16>(parts.tm_hour);
    time.minute = static_cast<u16>(parts.tm_min);
    time.second = static_cast<u16>(std::min(parts.tm_sec, 59));  // a leap second is told as the one before it
    time.milliseconds = static_cast<u16>(nanoseconds / static_cast<long>(kNanosecondsPerMillisecond));
    return time;
}

}  // namespace

u64 SteadyNanoseconds() noexcept {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<u64>(now.tv_sec) * kNanosecondsPerSecond + static_cast<u64>(now.tv_nsec);
}

u64 SteadyMilliseconds() noexcept {
    return SteadyNanoseconds() / kNanosecondsPerMillisecond;
}

CalendarTime LocalTime() noexcept {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::tm parts{};
    ::localtime_r(&now.tv_sec, &parts);
    return ToCalendar(parts, now.tv_nsec);
}

CalendarTime UtcTime() noexcept {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::tm parts{};
    ::gmtime_r(&now.tv_sec, &parts);
    return ToCalendar(parts, now.tv_nsec);
}

}  // namespace Platform
