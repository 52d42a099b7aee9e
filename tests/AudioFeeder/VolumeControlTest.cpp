#include "AudioFeeder/VolumeControl.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/AudioFeeder/ControlModel.h"

namespace {

using Orv::LevelSetting;
using Orv::VolumeControl;

std::vector<i16> Block(i16 value) {
    return std::vector<i16>(1000, value);
}

void Apply(VolumeControl& control, std::vector<i16>& block) {
    control.Process(block.data(), static_cast<u32>(block.size()));
}

TEST(VolumeControl, PercentagesBecomeLevelsInIntegerArithmeticAndAreClamped) {
    EXPECT_EQ(Orv::LevelFromPercent(100), 32767);
    EXPECT_EQ(Orv::LevelFromPercent(50), 16383);
    EXPECT_EQ(Orv::LevelFromPercent(1), 327);
    EXPECT_EQ(Orv::LevelFromPercent(0), 0);
    EXPECT_EQ(Orv::LevelFromPercent(-1), 0);
    EXPECT_EQ(Orv::LevelFromPercent(-2147483647 - 1), 0);
    EXPECT_EQ(Orv::LevelFromPercent(101), 32767);
    EXPECT_EQ(Orv::LevelFromPercent(2147483647), 32767);
}

TEST(VolumeControl, EveryPercentageComesBackFromItsLevelForTheLog) {
    for (i32 percent = 0; percent <= 100; ++percent) {
        EXPECT_EQ(Orv::PercentFromLevel(static_cast<i16>(percent * 32767 / 100)), percent);
    }
}

TEST(VolumeControl, MaxVolumeOf100GivesTheFullLevelAndTheLogShows100) {
    EXPECT_EQ(Orv::DescribeLevelSetting({Orv::LevelFromPercent(100), false}), "MaxVolume=100%, autogain disabled");
}

TEST(VolumeControl, MaxVolumeOf1Gives327AndTheLogShows1) {
    EXPECT_EQ(Orv::DescribeLevelSetting({327, true}), "MaxVolume=1%, autogain enabled");
}

TEST(VolumeControl, AFirstSampleOf20000AtFiftyPercentSetsPeakAndGainAndComesOutOneBelowTheLimit) {
    VolumeControl control({16383, true});
    i16 sample = 20000;
    control.Process(&sample, 1);
    EXPECT_EQ(sample, 16382);
    EXPECT_EQ(control.Peak(), 20000);
    EXPECT_NEAR(control.Gain(), 0.81915F, 0.000005F);
}

TEST(VolumeControl, ABlockWithAPeakOf8000RaisesTheGainFromOneToAbout1Point0524) {
    VolumeControl control({16383, true});
    auto block = Block(8000);
    Apply(control, block);
    EXPECT_EQ(block, Block(8000)) << "the raise comes after the samples";
    // ((16383 - 8000) / 20 + 8000) / 8000
    EXPECT_NEAR(control.Gain(), 1.0524F, 0.00005F);
    EXPECT_FLOAT_EQ(control.Gain(), (8383.0F / 20.0F + 8000.0F) / 8000.0F);
}

TEST(VolumeControl, ALevelOfZeroLeavesEverySampleAsItCameWhateverAutogainSays) {
    for (const bool autogain : {false, true}) {
        VolumeControl control({0, autogain});
        std::vector<i16> block;
        for (i32 value = -32768; value <= 32767; value += 13) block.push_back(static_cast<i16>(value));
        const auto before = block;
        Apply(control, block);
        EXPECT_EQ(block, before);
        EXPECT_EQ(control.Peak(), 0);
        EXPECT_EQ(control.Gain(), 1.0F);
        EXPECT_FALSE(control.IsOn());
    }
}

TEST(VolumeControl, NoSampleAboveTheLowestLeavesAboveTheLimitAndEachPeakIsCorrectedBeforeItIsScaled) {
    for (const bool autogain : {false, true}) {
        VolumeControl control({16383, autogain});
        u32 state = 7;
        for (int round = 0; round < 200; ++round) {
            std::vector<i16> block;
            for (int index = 0; index < 1000; ++index) {
                state = state * 1664525U + 1013904223U;
                const i32 value = static_cast<i32>(state >> 16) - 32768;
                // Quiet for a long time, then loud: the raised gain meets a loud sample.
                block.push_back(static_cast<i16>(round % 50 < 40 ? value / 64 : (value == -32768 ? 0 : value)));
            }
            Apply(control, block);
            for (const i16 sample : block) ASSERT_LE(std::abs(static_cast<i32>(sample)), 16383);
        }
    }
}

// The magnitude of -32768 does not fit 16 bits and stays -32768, so it is neither a peak nor tested.
TEST(VolumeControl, TheLowestSampleIsNeverAPeakAndPassesTheLimitUnseen) {
    VolumeControl control({16383, false});
    i16 sample = -32768;
    control.Process(&sample, 1);
    EXPECT_EQ(sample, -32768);
    EXPECT_EQ(control.Peak(), 0);
    EXPECT_EQ(control.Gain(), 1.0F);
}

TEST(VolumeControl, TheLowestSampleWrapsAroundWhenTheGainIsAboveOne) {
    VolumeControl control({16383, true});
    auto block = Block(8000);
    Apply(control, block);
    const float gain = control.Gain();
    ASSERT_GT(gain, 1.0F);
    i16 sample = -32768;
    control.Process(&sample, 1);
    const i32 product = static_cast<i32>(-32768.0F * gain);
    ASSERT_LT(product, -32768);
    EXPECT_EQ(sample, product + 65536);
    EXPECT_EQ(sample, 31052) << "-32768 * 1.05239 is -34484.8";
}

TEST(VolumeControl, ABlockOfZerosLetsThePeakDecayAndAtZeroTheGainHoldsItsLastValue) {
    VolumeControl control({16383, true});
    auto block = Block(100);
    Apply(control, block);
    i32 peak = 100;
    float gain = control.Gain();
    for (int round = 0; round < 200; ++round) {
        auto silence = Block(0);
        Apply(control, silence);
        peak = static_cast<i32>(static_cast<double>(peak) * 0.99);
        ASSERT_EQ(control.Peak(), peak);
        if (peak >= 1) {
            ASSERT_GT(control.Gain(), gain);
        } else {
            ASSERT_EQ(control.Gain(), gain);
        }
        gain = control.Gain();
    }
    EXPECT_EQ(peak, 0);
}

TEST(VolumeControl, APeakOfOneDecaysToZeroAtTheNextBlock) {
    VolumeControl control({16383, true});
    auto block = Block(1);
    Apply(control, block);
    EXPECT_EQ(control.Peak(), 1);
    auto silence = Block(0);
    Apply(control, silence);
    EXPECT_EQ(control.Peak(), 0);
}

TEST(VolumeControl, WithoutAutogainThePeakNeverDecaysAndTheGainNeverRises) {
    VolumeControl control({16383, false});
    auto loud = Block(32767);
    Apply(control, loud);
    const float gain = control.Gain();
    EXPECT_NEAR(gain, 0.49998F, 0.00001F);
    for (int round = 0; round < 100; ++round) {
        auto silence = Block(0);
        Apply(control, silence);
    }
    EXPECT_EQ(control.Peak(), 32767);
    EXPECT_EQ(control.Gain(), gain);
}

TEST(VolumeControl, TheFirstLoudSampleAfterAQuietPassageIsBroughtToTheLimitAtOnce) {
    VolumeControl control({16383, true});
    for (int round = 0; round < 100; ++round) {
        auto quiet = Block(100);
        Apply(control, quiet);
    }
    ASSERT_GT(control.Gain(), 10.0F);
    auto loud = Block(30000);
    Apply(control, loud);
    EXPECT_GE(loud.front(), 16381);
    EXPECT_LE(loud.front(), 16383);
    EXPECT_LT(control.Gain(), 0.56F);
}

TEST(VolumeControl, AGainBelowOneClimbsBackByOneTwentiethOfTheGapPerBlockOnceThePeakHasDecayed) {
    VolumeControl control({16383, true});
    auto loud = Block(32767);
    Apply(control, loud);
    for (int round = 0; round < 50; ++round) {
        const float before = control.Gain();
        auto silence = Block(0);
        Apply(control, silence);
        const float level = static_cast<float>(control.Peak()) * before;
        ASSERT_LT(level, 16383.0F);
        const float step = (16383.0F - level) / 20.0F;
        ASSERT_NEAR(static_cast<float>(control.Peak()) * control.Gain() - level, step, 0.01F);
    }
}

TEST(VolumeControl, TheDecayComesBeforeTheSamplesOfTheBlock) {
    VolumeControl control({16383, true});
    auto first = Block(1000);
    Apply(control, first);
    auto second = Block(990);
    Apply(control, second);
    EXPECT_EQ(control.Peak(), 990) << "1000 decayed to 990, which 990 does not pass";
}

TEST(VolumeControl, AChangeOfEitherValueStartsGainAndPeakAnewAndAnEqualPairChangesNothing) {
    VolumeControl control({16383, true});
    auto loud = Block(32767);
    Apply(control, loud);
    EXPECT_FALSE(control.Follow({16383, true}));
    EXPECT_EQ(control.Peak(), 32767);
    EXPECT_TRUE(control.Follow({16383, false}));
    EXPECT_EQ(control.Peak(), 0);
    EXPECT_EQ(control.Gain(), 1.0F);
    EXPECT_TRUE(control.Follow({0, false}));
    EXPECT_TRUE(control.Follow({0, true})) << "the pair differs, though the control stays off";
}

TEST(VolumeControl, TheEndOfAFileResetsGainAndPeakOnlyWithoutAutogain) {
    VolumeControl limiter({16383, false});
    auto loud = Block(32767);
    Apply(limiter, loud);
    limiter.OnEndOfFile();
    EXPECT_EQ(limiter.Peak(), 0);
    EXPECT_EQ(limiter.Gain(), 1.0F);

    VolumeControl automatic({16383, true});
    loud = Block(32767);
    Apply(automatic, loud);
    const float gain = automatic.Gain();
    automatic.OnEndOfFile();
    EXPECT_EQ(automatic.Peak(), 32767);
    EXPECT_EQ(automatic.Gain(), gain);
}

TEST(VolumeControl, AReportIsDueWhenTheGainHasMovedByMoreThanTenPointsEitherWay) {
    VolumeControl control({32767, true});
    i16 percent = 0;
    EXPECT_FALSE(control.TakeReport(percent)) << "100 against 100";
    std::vector<i16> told;
    i16 last = 100;
    for (int round = 0; round < 60; ++round) {
        auto quiet = Block(1000);
        Apply(control, quiet);
        const auto now = static_cast<i16>(static_cast<double>(control.Gain()) * 100.0);
        const bool due = now - last > 10 || last - now > 10;
        ASSERT_EQ(control.TakeReport(percent), due) << round;
        if (!due) continue;
        EXPECT_EQ(percent, now);
        last = now;
        told.push_back(now);
    }
    ASSERT_FALSE(told.empty());
    auto loud = Block(32767);
    Apply(control, loud);
    EXPECT_TRUE(control.TakeReport(percent)) << "a fall is told as well";
    // The first sample brings the gain to one, to the last bit or the one below.
    EXPECT_GE(percent, 99);
    EXPECT_LE(percent, 100);
}

// A gain of 400 is 40000 points, which as a short integer is -25536.
TEST(VolumeControl, TheReportedPercentageWrapsAsAShortInteger) {
    VolumeControl control({32767, true});
    for (int round = 0; round < 400; ++round) {
        auto quiet = Block(60);
        Apply(control, quiet);
    }
    ASSERT_GT(control.Gain(), 400.0F);
    i16 percent = 0;
    control.TakeReport(percent);
    EXPECT_EQ(percent, static_cast<i32>(static_cast<double>(control.Gain()) * 100.0) - 65536);
}

// Loud, quiet and silent passages, the lowest sample among them, and an end of a file now and then.
TEST(VolumeControl, EachStepIsMadeInItsOrderAndIn32BitFloatToTheLastBit) {
    for (const bool autogain : {false, true}) {
        VolumeControl control({16383, autogain});
        FeederTest::ControlModel model(16383, autogain);
        u32 state = 11;
        for (int round = 0; round < 300; ++round) {
            FeederTest::Samples block;
            for (int index = 0; index < 1000; ++index) {
                state = state * 1664525U + 1013904223U;
                const i32 value = static_cast<i32>(state >> 16) - 32768;
                const i32 divisor = round % 30 < 10 ? 1 : 40;
                block.push_back(static_cast<i16>(round % 30 > 25 ? 0 : value / divisor));
            }
            block[500] = -32768;
            const FeederTest::Samples expected = model.Apply(block);
            Apply(control, block);
            ASSERT_EQ(block, expected) << round;
            ASSERT_EQ(control.Gain(), model.Gain()) << round;
            ASSERT_EQ(control.Peak(), model.Peak()) << round;
            if (round % 70 == 69) {
                control.OnEndOfFile();
                model.EndOfFile();
            }
        }
    }
}

// Samples are scaled many at once where none is a new peak: wherever one stands, and however long a block is, the
// result is that of one at a time. The lowest sample is no peak, nor does it hide one.
TEST(VolumeControl, BlocksOfAnyLengthAndPeaksAnywhereInThemComeOutAsSampleBySample) {
    for (const bool autogain : {false, true}) {
        for (int length = 0; length <= 130; ++length) {
            VolumeControl control({3276, autogain});
            FeederTest::ControlModel model(3276, autogain);
            for (int place = 0; place < length; place += 3) {
                FeederTest::Samples block;
                for (int index = 0; index < length; ++index) {
                    block.push_back(static_cast<i16>((index % 7 - 3) * 1000 + index));
                }
                const i16 peaks[] = {static_cast<i16>(4000 + 200 * place), static_cast<i16>(-4000 - 200 * place),
                                     -32768, 0};
                block[static_cast<std::size_t>(place)] = peaks[place % 4];
                if (place % 5 == 0) block[static_cast<std::size_t>(length - 1)] = -32768;
                const FeederTest::Samples expected = model.Apply(block);
                Apply(control, block);
                ASSERT_EQ(block, expected) << length << " samples, a peak at " << place;
                ASSERT_EQ(control.Gain(), model.Gain());
                ASSERT_EQ(control.Peak(), model.Peak());
            }
        }
    }
}

TEST(VolumeControl, SamplesAtOddAddressesAreScaledLikeAnyOthers) {
    std::vector<u8> bytes(2001);
    auto block = Block(20000);
    std::memcpy(bytes.data() + 1, block.data(), 2000);
    VolumeControl odd({16383, false});
    odd.Process(bytes.data() + 1, 1000);
    VolumeControl even({16383, false});
    Apply(even, block);
    EXPECT_EQ(std::memcmp(bytes.data() + 1, block.data(), 2000), 0);
    EXPECT_EQ(block.front(), 16382);
}

TEST(VolumeControl, TruncationIsTowardsZeroOnBothSides) {
    VolumeControl control({10, false});
    // 16 sets the gain to 0.625; 3 * 0.625 = 1.875.
    i16 samples[] = {16, 3, -3};
    control.Process(samples, 3);
    EXPECT_EQ(samples[0], 10);
    EXPECT_EQ(samples[1], 1);
    EXPECT_EQ(samples[2], -1);
}

}  // namespace
