#include "Platform/Clock.h"

#include <chrono>

#include "Platform/sim/Scheduler.h"
#include "Platform/sim/World.h"

namespace Platform {

namespace Sim {

void SimClock::SetUtcMilliseconds(i64 milliseconds) noexcept {
    difference_ = milliseconds - static_cast<i64>(steady_ / kNanosecondsPerMillisecond);
}

i64 SimClock::UtcMilliseconds() const noexcept {
    return difference_ + static_cast<i64>(steady_ / kNanosecondsPerMillisecond);
}

void SimClock::SetLocalOffsetMinutes(i32 minutes) noexcept {
    localOffsetMinutes_ = minutes;
}

}  // namespace Sim

namespace {

Sim::SimClock& ReadClock() noexcept {
    if (Sim::Scheduler* scheduler = Sim::ActiveScheduler()) scheduler->ClockRead();
    return Sim::Clock();
}

CalendarTime ToCalendar(i64 milliseconds) noexcept {
    using namespace std::chrono;
    const sys_time<std::chrono::milliseconds> time{std::chrono::milliseconds(milliseconds)};
    const auto day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    CalendarTime result;
    result.year = static_cast<u16>(static_cast<int>(date.year()));
    result.month = static_cast<u16>(static_cast<unsigned>(date.month()));
    result.day = static_cast<u16>(static_cast<unsigned>(date.day()));
    result.hour = static_cast<u16>(clock.hours().count());
    result.minute = static_cast<u16>(clock.minutes().count());
    result.second = static_cast<u16>(clock.seconds().count());
    result.milliseconds = static_cast<u16>(clock.subseconds().count());
    return result;
}

}  // namespace

u64 SteadyMilliseconds() noexcept {
    return SteadyNanoseconds() / Sim::kNanosecondsPerMillisecond;
}

u64 SteadyNanoseconds() noexcept {
    return ReadClock().SteadyNanoseconds();
}

CalendarTime LocalTime() noexcept {
    constexpr i64 kMillisecondsPerMinute = 60'000;
    const Sim::SimClock& clock = ReadClock();
    return ToCalendar(clock.UtcMilliseconds() + clock.LocalOffsetMinutes() * kMillisecondsPerMinute);
}

CalendarTime UtcTime() noexcept {
    return ToCalendar(ReadClock().UtcMilliseconds());
}

}  // namespace Platform
