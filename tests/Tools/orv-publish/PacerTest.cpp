#include "Tools/orv-publish/Pacer.h"

#include <gtest/gtest.h>

namespace Orv {
namespace {

constexpr u64 kMillisecond = 1'000'000;
constexpr u64 kSecond = 1000 * kMillisecond;
constexpr u64 kStart = 77 * kSecond + 123;

TEST(PacerTest, AQuarterOfASecondIsDueAtOnceAndThenSixteenBytesEachMillisecond) {
    Pacer pacer(kStart);
    EXPECT_EQ(pacer.Due(kStart), 4000u);
    pacer.Spend(4000);
    EXPECT_EQ(pacer.Due(kStart), 0u);
    EXPECT_EQ(pacer.Due(kStart + 20 * kMillisecond), 320u);
    EXPECT_EQ(pacer.Due(kStart + 125 * kMillisecond), 2000u);
}

TEST(PacerTest, WholeSamplesAreDueHoweverOddTheMoment) {
    Pacer pacer(kStart);
    pacer.Spend(4000);
    EXPECT_EQ(pacer.Due(kStart + 124'999), 0u) << "one sample takes 125 microseconds";
    EXPECT_EQ(pacer.Due(kStart + 125'000), 2u);
    EXPECT_EQ(pacer.Due(kStart + 249'999), 2u);
}

TEST(PacerTest, ADayOfUnevenTicksGivesADaysBytesToTheSample) {
    Pacer pacer(kStart);
    u64 now = kStart;
    u64 given = 0;
    u64 state = 1;
    while (now < kStart + 86'400 * kSecond) {
        state = state * 6364136223846793005u + 1442695040888963407u;
        now += kMillisecond + (state >> 33) % (400 * kMillisecond);
        const u64 due = pacer.Due(now);
        pacer.Spend(due);
        given += due;
    }
    EXPECT_EQ(given, 4000 + ((now - kStart) / 125'000) * 2);
}

TEST(PacerTest, ALateSourceCatchesUpByHalfASecondAndTheRestIsGivenUp) {
    Pacer pacer(kStart);
    pacer.Spend(4000);
    EXPECT_EQ(pacer.Due(kStart + 500 * kMillisecond), 8000u);
    EXPECT_EQ(pacer.Due(kStart + 10 * kSecond), 8000u);
    pacer.Spend(8000);
    EXPECT_EQ(pacer.Due(kStart + 10 * kSecond), 0u);
    EXPECT_EQ(pacer.Due(kStart + 11 * kSecond), 8000u);
}

}  // namespace
}  // namespace Orv
