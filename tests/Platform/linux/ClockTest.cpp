#include "Platform/Clock.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "Platform/Thread.h"

namespace Platform {
namespace {

std::time_t SecondsOf(const CalendarTime& time) {
    std::tm parts{};
    parts.tm_year = time.year - 1900;
    parts.tm_mon = time.month - 1;
    parts.tm_mday = time.day;
    parts.tm_hour = time.hour;
    parts.tm_min = time.minute;
    parts.tm_sec = time.second;
    return ::timegm(&parts);
}

TEST(ClockTest, TheSteadyClockAdvancesByWhatIsSlept) {
    const u64 before = SteadyNanoseconds();
    SleepMilliseconds(20);
    EXPECT_GE(SteadyNanoseconds() - before, 20'000'000u);
}

TEST(ClockTest, MillisecondsAndNanosecondsAreOneClock) {
    const u64 before = SteadyNanoseconds() / 1'000'000;
    const u64 between = SteadyMilliseconds();
    const u64 after = SteadyNanoseconds() / 1'000'000;
    EXPECT_LE(before, between);
    EXPECT_LE(between, after);
}

TEST(ClockTest, UtcIsTheSystemsTime) {
    const std::time_t before = std::time(nullptr);
    const CalendarTime time = UtcTime();
    // The coarse clock behind time() may be a tick behind the fine one.
    EXPECT_GE(SecondsOf(time), before);
    EXPECT_LE(SecondsOf(time), std::time(nullptr) + 1);
    EXPECT_LE(time.milliseconds, 999);
}

// Method: a zone three and a half hours east of Greenwich, told to the C library for a moment.
TEST(ClockTest, LocalTimeIsInTheLocalZone) {
    const char* zone = std::getenv("TZ");
    const std::string before = zone == nullptr ? "" : zone;
    ::setenv("TZ", "TST-3:30", 1);
    ::tzset();
    const CalendarTime utc = UtcTime();
    const CalendarTime local = LocalTime();
    if (zone == nullptr) {
        ::unsetenv("TZ");
    } else {
        ::setenv("TZ", before.c_str(), 1);
    }
    ::tzset();
    const std::time_t difference = SecondsOf(local) - SecondsOf(utc);
    EXPECT_GE(difference, 12600);
    EXPECT_LE(difference, 12601);
}

}  // namespace
}  // namespace Platform
