// The sample loops against a sample-by-sample reading of the rules: the loops work on blocks of many samples, the
// reference on one at a time, with every step of it a 32-bit float.
#include "Projects/Common/VoIPFileEngine/Mixer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace Orv {
namespace {

using Samples = std::vector<i16>;

struct Reference {
    i32 counter = 0;
    float gain = 0.0F;

    static i16 Truncated(i16 sample, float by) {
        return static_cast<i16>(static_cast<i32>(static_cast<float>(sample) * by));
    }

    i16 Alone(i16 main) {
        if (counter < 10000) {
            ++counter;
            gain = counter == 10000 ? 1.0F : gain + 0.0001F;
        }
        return Truncated(main, gain);
    }

    i16 Under(i16 main, i16 overlay) {
        i16 lowered = 0;
        if (counter == 1250) {
            lowered = static_cast<i16>(main >> 3);
        } else {
            const bool rises = counter < 1250;
            counter += rises ? 1 : -1;
            gain = counter == 1250 ? 0.125F : rises ? gain + 0.0001F : gain - 0.0001F;
            lowered = Truncated(main, gain);
        }
        return static_cast<i16>(static_cast<u16>(lowered) + static_cast<u16>(overlay));
    }
};

// The functions under test, on samples that lie at odd addresses.
Samples RunFade(MainGain& state, const Samples& main) {
    std::vector<u8> in(main.size() * 2 + 1);
    std::vector<u8> out(main.size() * 2 + 1);
    if (!main.empty()) std::memcpy(in.data() + 1, main.data(), main.size() * 2);
    FadeMain(state, in.data() + 1, out.data() + 1, static_cast<u32>(main.size()));
    Samples result(main.size());
    if (!main.empty()) std::memcpy(result.data(), out.data() + 1, main.size() * 2);
    return result;
}

Samples RunMix(MainGain& state, const Samples& main, const Samples& overlay) {
    std::vector<u8> in(main.size() * 2 + 1);
    std::vector<u8> over(main.size() * 2 + 1);
    std::vector<u8> out(main.size() * 2 + 1);
    if (!main.empty()) std::memcpy(in.data() + 1, main.data(), main.size() * 2);
    if (!main.empty()) std::memcpy(over.data() + 1, overlay.data(), main.size() * 2);
    DuckAndMix(state, in.data() + 1, over.data() + 1, out.data() + 1, static_cast<u32>(main.size()));
    Samples result(main.size());
    if (!main.empty()) std::memcpy(result.data(), out.data() + 1, main.size() * 2);
    return result;
}

Samples RandomSamples(std::mt19937& engine, u64 count) {
    std::uniform_int_distribution<i32> any(-32768, 32767);
    Samples samples(count);
    for (i16& sample : samples) {
        // Full scale often enough to matter.
        const u32 draw = engine() % 8;
        sample = draw == 0 ? i16{-32768} : draw == 1 ? i16{32767} : static_cast<i16>(any(engine));
    }
    return samples;
}

TEST(Mixer, AFadeFromZeroTakes10000SamplesAndArrivesAtExactlyOne) {
    MainGain state;
    const Samples before = RunFade(state, Samples(9999, 32767));
    EXPECT_EQ(state.rampCounter, 9999);
    EXPECT_NE(state.gain, 1.0F);
    EXPECT_NEAR(state.gain, 0.9999, 0.0002);
    EXPECT_EQ(before[0], 3);              // 32767 * 0.0001
    EXPECT_NEAR(before[4999], 16383, 4);  // half way, within the rounding of the sums
    const Samples last = RunFade(state, Samples(1, -32768));
    EXPECT_EQ(state.rampCounter, 10000);
    EXPECT_EQ(state.gain, 1.0F);
    EXPECT_EQ(last[0], -32768);
}

TEST(Mixer, ADuckFromFullTakes8750SamplesAndArrivesAtExactlyOneEighth) {
    MainGain state{10000, 1.0F};
    RunMix(state, Samples(8749, 0), Samples(8749, 0));
    EXPECT_EQ(state.rampCounter, 1251);
    EXPECT_NE(state.gain, 0.125F);
    RunMix(state, Samples(1, 0), Samples(1, 0));
    EXPECT_EQ(state.rampCounter, 1250);
    EXPECT_EQ(state.gain, 0.125F);
}

TEST(Mixer, TheRecoveryFromTheDuckTakes8750Samples) {
    MainGain state{1250, 0.125F};
    RunFade(state, Samples(8749, 0));
    EXPECT_EQ(state.rampCounter, 9999);
    RunFade(state, Samples(1, 0));
    EXPECT_EQ(state.rampCounter, 10000);
    EXPECT_EQ(state.gain, 1.0F);
}

TEST(Mixer, AListThatComesBackUnderTheOverlayRisesToOneEighth) {
    MainGain state;
    RunMix(state, Samples(1249, 0), Samples(1249, 0));
    EXPECT_EQ(state.rampCounter, 1249);
    RunMix(state, Samples(10, 0), Samples(10, 0));
    EXPECT_EQ(state.rampCounter, 1250);
    EXPECT_EQ(state.gain, 0.125F);
}

TEST(Mixer, TheRampTruncatesTowardsZeroAndTheShiftTowardsMinusInfinity) {
    MainGain arriving{1251, 0.1251F};
    const Samples both = RunMix(arriving, {-9, -9, 9, -1, -8}, {0, 0, 0, 0, 0});
    EXPECT_EQ(both, (Samples{-1, -2, 1, -1, -1}));  // the first by 0.125, the rest shifted
}

TEST(Mixer, FullScaleSamplesAddWithWraparound) {
    MainGain ducked{1250, 0.125F};
    // 32767 >> 3 is 4095, -32768 >> 3 is -4096.
    EXPECT_EQ(RunMix(ducked, {32767, -32768, 32767}, {32767, -32768, -32768}), (Samples{-28674, 28672, -28673}));
    MainGain falling{10000, 1.0F};
    EXPECT_EQ(RunMix(falling, {32767}, {32767})[0], static_cast<i16>(32763 + 32767 - 65536));
}

TEST(Mixer, AtFullLevelTheSamplesPassAsTheyAre) {
    MainGain full{10000, 1.0F};
    const Samples all{-32768, -1, 0, 1, 32767};
    EXPECT_EQ(RunFade(full, all), all);
}

// The ramp turns back anywhere, in runs of every length around the size of the blocks.
TEST(Mixer, EveryRunEqualsTheRulesSampleBySample) {
    std::mt19937 engine(20240305);
    MainGain state;
    Reference reference;
    u64 samplesDone = 0;
    for (u32 run = 0; run < 3000; ++run) {
        const u64 count = run % 97 == 0 ? 1000 + engine() % 2000 : engine() % 140;
        const bool alone = (run / 23) % 2 == 0 ? engine() % 8 != 0 : engine() % 8 == 0;
        const Samples main = RandomSamples(engine, count);
        const Samples overlay = RandomSamples(engine, count);
        Samples expected(count);
        for (u64 i = 0; i < count; ++i) {
            expected[i] = alone ? reference.Alone(main[i]) : reference.Under(main[i], overlay[i]);
        }
        ASSERT_EQ(alone ? RunFade(state, main) : RunMix(state, main, overlay), expected) << "run " << run;
        ASSERT_EQ(state.rampCounter, reference.counter);
        ASSERT_EQ(std::memcmp(&state.gain, &reference.gain, sizeof(float)), 0) << state.gain << ' ' << reference.gain;
        samplesDone += count;
    }
    EXPECT_GT(samplesDone, 200000u);
}

TEST(Mixer, ARunOfNoSamplesChangesNothing) {
    MainGain state{500, 0.05F};
    RunFade(state, {});
    RunMix(state, {}, {});
    EXPECT_EQ(state.rampCounter, 500);
    EXPECT_EQ(state.gain, 0.05F);
}

TEST(Mixer, NothingBehindTheLastSampleIsWritten) {
    for (u32 count : {1u, 31u, 32u, 33u, 79u}) {
        const std::vector<u8> in(count * 2, 0x11);
        std::vector<u8> out(count * 2 + 4, 0x77);
        MainGain rising;
        FadeMain(rising, in.data(), out.data(), count);
        MainGain falling{5000, 0.5F};
        DuckAndMix(falling, in.data(), in.data(), out.data(), count);
        MainGain ducked{1250, 0.125F};
        DuckAndMix(ducked, in.data(), in.data(), out.data(), count);
        for (u32 i = 0; i < 4; ++i) EXPECT_EQ(out[count * 2 + i], 0x77);
    }
}

}  // namespace
}  // namespace Orv
