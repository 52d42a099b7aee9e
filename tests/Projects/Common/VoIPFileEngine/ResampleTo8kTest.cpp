// Goal: the resampler does what its rules say, bit for bit, odd ones included. Method: small examples worked out by
// hand, and an independent model written from the rules (ResampleModel.h) over signals that reach every limit.
#include "Projects/Common/VoIPFileEngine/ResampleTo8k.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "tests/Projects/Common/VoIPFileEngine/ResampleModel.h"

namespace Orv {
namespace {

using Samples = std::vector<i16>;

Samples Resample(const Samples& samples, u32 rate) {
    return ResampleTo8k(samples.data(), static_cast<u32>(samples.size()), rate);
}

// Worked out by hand. 16000 Hz: k = 1, q = 2, a = 0.611015, b = 0.927179.
//   low-pass:  1000 + 611.02, 2000 + 611.02, 3000 + 611.02, and 0            -> 1611, 2611, 3611, 0
//   high-pass: 1611; 1611 b + 2611 - 1611 = 2493.69; 2493 b + 1000 = 3311.46; 3311 b + 0 - 3611 = -541.11
//   every second one from the first on, with the 0 behind the last           -> 1611, 3311, 0
TEST(ResampleTo8k, AnExampleAtSixteenKilohertzComesOutAsWorkedOutByHand) {
    EXPECT_EQ(Resample({1000, 2000, 3000, 4000}, 16000), (Samples{1611, 3311, 0}));
}

// 12000 Hz: k = 2, q = 3, a = 0.676835, b = 0.905207.
//   low-pass:  1000 - 1692.09 = -692.09; -1500 + 3045.76; 3000 + 676.84; 4000 - 2842.71; 0
//                                                                            -> -692, 1545, 3676, 1157, 0
//   high-pass: -692; -626.40 + 1545 + 692 = 1610.60; 1457.38 + 2131 = 3588.38; 3247.88 - 2519 = 728.88;
//              659.0 - 1157 = -498.01                                        -> -692, 1610, 3588, 728, -498, 0
//   at 1.5: 3588 - 1978/2; at 3: 728; at 4.5: 0 - 498/2                      -> 2599, 728, -249
TEST(ResampleTo8k, AnExampleBetweenSamplesComesOutAsWorkedOutByHand) {
    EXPECT_EQ(Resample({1000, -1500, 3000, 4000, -200}, 12000), (Samples{-692, 2599, 728, -249}));
}

class ResampleRates : public testing::TestWithParam<u32> {};

// Tones of rising pitch, noise, and noise at full scale, where the high-pass leaves 16 bits and wraps.
TEST_P(ResampleRates, EverySampleIsThatOfTheRules) {
    const u32 rate = GetParam();
    std::mt19937 engine(rate);
    for (const u32 count : {1u, 2u, 3u, 12u, 1000u, 44'101u}) {
        Samples tone(count), noise(count), loud(count);
        for (u32 i = 0; i < count; ++i) {
            tone[i] = static_cast<i16>(20'000 * std::sin(i * (0.01 + 1e-5 * i)));
            noise[i] = static_cast<i16>(static_cast<i32>(engine() % 20'001) - 10'000);
            loud[i] = engine() % 2 == 0 ? i16{32767} : i16{-32768};
        }
        EXPECT_EQ(Resample(tone, rate), ResampleModel::To8k(tone, rate)) << count;
        EXPECT_EQ(Resample(noise, rate), ResampleModel::To8k(noise, rate)) << count;
        EXPECT_EQ(Resample(loud, rate), ResampleModel::To8k(loud, rate)) << count;
    }
}

TEST_P(ResampleRates, TheLengthIsThatOfTheSoundAtEightKilohertz) {
    const u32 rate = GetParam();
    EXPECT_EQ(Resample(Samples(rate, 100), rate).size(), 8001u) << "one second and the sample behind it";
}

INSTANTIATE_TEST_SUITE_P(Rates, ResampleRates,
                         testing::Values(8001, 11025, 12000, 16000, 22050, 32000, 44100, 48000, 96000, 192000));

// By hand for 16000 Hz, a = 0.611015, b = 0.927179; every second sample comes out.
//   low-pass:  -32768 + 65535 a = 7274.68, 32767 - 65535 a = -7275.68, 7274.68, 0  -> 7274, -7275, 7274, 0
//   high-pass: 7274; 7274 b - 14549 = -7804.70; -7804 b + 14549 = 7313.29; 7313 b - 7274 = -493.54
TEST(ResampleTo8k, WhatPassesSixteenBitsWraps) {
    EXPECT_EQ(Resample({-32768, 32767, -32768, 32767}, 16000), (Samples{7274, 7313, 0}));
    // x: 30000, 30000, 30000, -30000, -30000, ...: low-pass 30000, 30000, -6660.9, -30000, ...
    // high-pass: 30000; 30000 b = 27815.4; 27815 b - 36660 = -10870.5; -10870 b - 23340 = -33418.4, which is 32118;
    // 32118 b + 0 = 29779.2
    EXPECT_EQ(Resample({30000, 30000, 30000, -30000, -30000, -30000}, 16000), (Samples{30000, -10870, 29779, 0}));
}

TEST(ResampleTo8k, OneSampleGivesTheZeroOfTheLastFilteredSample) {
    EXPECT_EQ(Resample({12345}, 44100), (Samples{0}));
    EXPECT_EQ(Resample({12345}, 8001), (Samples{0}));
}

TEST(ResampleTo8k, NoSamplesGiveNothing) {
    EXPECT_TRUE(ResampleTo8k(nullptr, 0, 44100).empty());
}

// The product k x rate wraps at 32 bits. 0x80000000 x 2 and 0xC0000000 x 4 are 0, so that q is 0. 2^32 leaves 7296 over
// multiples of 8000: with 2^32 - 5 the product is 2^32 - 5 k, and 5 k is never 7296 over a multiple of 8000; with
// 2^32 - 8000 it always stays 7296 over.
TEST(ResampleTo8k, ARateWhoseProductWrapsToZeroOrNeverDividesGivesNothing) {
    const Samples samples(100, 1000);
    EXPECT_TRUE(Resample(samples, 0x80000000).empty());
    EXPECT_TRUE(Resample(samples, 0xC0000000).empty());
    EXPECT_TRUE(Resample(samples, 0xFFFFFFFB).empty());
    EXPECT_TRUE(Resample(samples, 0xFFFFE0C0).empty());
    EXPECT_FALSE(Resample(samples, 8009).empty()) << "a prime has k = 8000";
}

// 64 x 67108989 is 2^32 + 8000, which wraps to 8000: k is 64 and q 1, so that the step is smaller than an input sample.
// Each input gives one output then, and the distance between the two grows until the product with the slope leaves 32
// bits: the end must come all the same, with defined values.
TEST(ResampleTo8k, AStepSmallerThanASampleGivesOneOutputForEachInput) {
    std::mt19937 engine(5);
    Samples samples(70'000);
    for (i16& sample : samples) sample = engine() % 2 == 0 ? i16{32767} : i16{-32768};
    EXPECT_EQ(Resample(samples, 67'108'989).size(), 70'001u);
}

}  // namespace
}  // namespace Orv
