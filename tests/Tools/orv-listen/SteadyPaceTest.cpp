// Goal: a reader gets 16000 bytes for each second of real time, to within a quarter of a second, whatever the feed
// does. Method: the clock is a number.
#include "Tools/orv-listen/SteadyPace.h"

#include <gtest/gtest.h>

namespace Orv {
namespace {

TEST(SteadyPace, AFeedInTimeGetsNoSilence) {
    SteadyPace pace(1000);
    for (u64 ms = 0; ms < 60'000; ms += 5) {
        if (ms % 125 == 0) pace.Delivered(2000);
        ASSERT_EQ(pace.TakeMissing(1000 + ms), 0u) << ms;
    }
}

TEST(SteadyPace, WithoutAFeedSilenceBeginsAfterAQuarterOfASecondAndKeepsTime) {
    SteadyPace pace(0);
    u64 silence = 0;
    for (u64 ms = 0; ms <= 250; ms += 10) silence += pace.TakeMissing(ms);
    EXPECT_EQ(silence, 0u);
    for (u64 ms = 260; ms <= 10'250; ms += 10) silence += pace.TakeMissing(ms);
    EXPECT_EQ(silence, 160'000u);
}

TEST(SteadyPace, SilenceIsWholeSamples) {
    SteadyPace pace(0);
    pace.Delivered(1);
    EXPECT_EQ(pace.TakeMissing(400) % 2, 0u);
}

TEST(SteadyPace, WhatTheFeedSentTooMuchCountsForHalfASecond) {
    SteadyPace pace(0);
    pace.Delivered(1'000'000);
    EXPECT_EQ(pace.TakeMissing(750), 0u);
    EXPECT_EQ(pace.TakeMissing(760), 160u);
}

TEST(SteadyPace, AMachineThatSleptAddsTwoSecondsAtMost) {
    SteadyPace pace(0);
    EXPECT_EQ(pace.TakeMissing(3'600'000), 32'000u);
    EXPECT_EQ(pace.TakeMissing(3'600'010), 160u);
}

}  // namespace
}  // namespace Orv
