#include "Tools/orv-listen/Level.h"

#include <gtest/gtest.h>

namespace Orv {
namespace {

TEST(Level, SilenceAndNothingAtAllShowTheFloor) {
    LevelMeter meter;
    EXPECT_EQ(meter.PeakDb(), LevelMeter::SilenceDb);
    EXPECT_EQ(meter.RmsDb(), LevelMeter::SilenceDb);
    meter.Add(0);
    EXPECT_EQ(meter.PeakDb(), LevelMeter::SilenceDb);
    EXPECT_EQ(meter.RmsDb(), LevelMeter::SilenceDb);
}

TEST(Level, TheMostNegativeSampleIsFullScale) {
    LevelMeter meter;
    meter.Add(-32768);
    EXPECT_DOUBLE_EQ(meter.PeakDb(), 0.0);
    EXPECT_DOUBLE_EQ(meter.RmsDb(), 0.0);
}

TEST(Level, HalfOfFullScaleIsSixDecibelsBelowIt) {
    LevelMeter meter;
    meter.Add(16384);
    meter.Add(-16384);
    EXPECT_NEAR(meter.PeakDb(), -6.0206, 0.0001);
    EXPECT_NEAR(meter.RmsDb(), -6.0206, 0.0001);
}

TEST(Level, TheMeanIsOfThePowerAndThePeakOfTheLoudestSample) {
    LevelMeter meter;
    meter.Add(16384);
    for (int i = 0; i < 3; ++i) meter.Add(0);
    EXPECT_NEAR(meter.PeakDb(), -6.0206, 0.0001);
    EXPECT_NEAR(meter.RmsDb(), -12.0412, 0.0001);
    EXPECT_EQ(meter.Count(), 4u);
    meter.Clear();
    EXPECT_EQ(meter.Count(), 0u);
    EXPECT_EQ(meter.PeakDb(), LevelMeter::SilenceDb);
}

TEST(Level, TheBarRunsFromSixtyDecibelsBelowFullScaleToFullScale) {
    EXPECT_EQ(LevelBar(-60.0, -60.0, 10), "          ");
    EXPECT_EQ(LevelBar(-96.0, -96.0, 10), "          ");
    EXPECT_EQ(LevelBar(-30.0, -30.0, 10), "#####     ");
    EXPECT_EQ(LevelBar(0.0, 0.0, 10), "##########");
    EXPECT_EQ(LevelBar(-30.0, -12.0, 10), "#####  |  ");
}

}  // namespace
}  // namespace Orv
