// Goal: both clocks follow simulated time, and the calendar can be turned without touching the steady clock.
#include "Platform/Clock.h"

#include <gtest/gtest.h>

#include <tuple>

#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"

namespace {

using Platform::CalendarTime;
using Platform::Sim::Simulation;

auto Parts(const CalendarTime& time) {
    return std::make_tuple(int{time.year}, int{time.month}, int{time.day}, int{time.hour}, int{time.minute},
                           int{time.second}, int{time.milliseconds});
}

TEST(ClockTest, TheCalendarStartsAtItsBaseAndFollowsSimulatedTime) {
    Simulation sim;
    EXPECT_EQ(Parts(Platform::UtcTime()), std::make_tuple(2024, 3, 5, 10, 20, 30, 0));
    EXPECT_EQ(Platform::SteadyMilliseconds(), 3'600'000u);
    sim.Run([] { Platform::SleepMilliseconds(90'061'234); });
    EXPECT_EQ(Parts(Platform::UtcTime()), std::make_tuple(2024, 3, 6, 11, 21, 31, 234));
    EXPECT_EQ(Platform::SteadyMilliseconds(), 93'661'234u);
    EXPECT_EQ(Platform::SteadyNanoseconds(), 93'661'234'000'000u);
    EXPECT_EQ(sim.Now(), Platform::SteadyNanoseconds());
}

TEST(ClockTest, LocalTimeIsUtcPlusTheOffset) {
    Simulation sim;
    sim.Clock().SetUtcMilliseconds(1'704'063'599'999);  // 2023-12-31 22:59:59.999
    sim.Clock().SetLocalOffsetMinutes(60);
    EXPECT_EQ(Parts(Platform::UtcTime()), std::make_tuple(2023, 12, 31, 22, 59, 59, 999));
    EXPECT_EQ(Parts(Platform::LocalTime()), std::make_tuple(2023, 12, 31, 23, 59, 59, 999));
    sim.Clock().SetLocalOffsetMinutes(61);
    EXPECT_EQ(Parts(Platform::LocalTime()), std::make_tuple(2024, 1, 1, 0, 0, 59, 999));
    sim.Clock().SetLocalOffsetMinutes(-1380);
    EXPECT_EQ(Parts(Platform::LocalTime()), std::make_tuple(2023, 12, 30, 23, 59, 59, 999));
}

TEST(ClockTest, TurningTheCalendarLeavesTheSteadyClockAlone) {
    Simulation sim;
    sim.Run([&] {
        Platform::SleepMilliseconds(5);
        const u64 steady = Platform::SteadyNanoseconds();
        sim.Clock().SetUtcMilliseconds(0);
        EXPECT_EQ(Platform::SteadyNanoseconds(), steady);
        Platform::SleepMilliseconds(7);
        EXPECT_EQ(Parts(Platform::UtcTime()), std::make_tuple(1970, 1, 1, 0, 0, 0, 7));
    });
}

TEST(ClockTest, EachSimulationBeginsAnew) {
    {
        Simulation sim;
        sim.Run([] { Platform::SleepMilliseconds(1000); });
    }
    Simulation sim;
    EXPECT_EQ(sim.Elapsed(), 0u);
    EXPECT_EQ(Platform::SteadyMilliseconds(), 3'600'000u);
}

TEST(ClockTest, WithoutASimulationOnlySleepsMoveTheClock) {
    Platform::Sim::ResetProcessWorld();
    EXPECT_EQ(Platform::SteadyMilliseconds(), 3'600'000u);
    EXPECT_EQ(Platform::SteadyMilliseconds(), 3'600'000u);
    Platform::SleepMilliseconds(12);
    EXPECT_EQ(Platform::SteadyMilliseconds(), 3'600'012u);
    EXPECT_EQ(Parts(Platform::UtcTime()), std::make_tuple(2024, 3, 5, 10, 20, 30, 12));
}

}  // namespace
