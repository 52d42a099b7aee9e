#include "AudioFeeder/RandomDraw.h"

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <stdexcept>

namespace {

using Orv::UniformFrom;

class Script : public Orv::IRandomSource {
public:
    Script(std::initializer_list<u32> values) : values_(values) {}
    u32 Next() override {
        if (values_.empty()) throw std::logic_error("a value too many was drawn");
        const u32 value = values_.front();
        values_.pop_front();
        return value;
    }
    std::size_t Left() const { return values_.size(); }

private:
    std::deque<u32> values_;
};

TEST(RandomDraw, TheResultIsTheHighHalfOfTheProductAndBothBoundsAreReached) {
    Script lowest{0x00000004};  // low half of the product: 16, not below the range of 4
    EXPECT_EQ(UniformFrom(lowest, 10, 13), 10);
    Script highest{0xFFFFFFFF};
    EXPECT_EQ(UniformFrom(highest, 10, 13), 13);
    Script middle{0x80000000};
    EXPECT_EQ(UniformFrom(middle, 10, 13), 12);
}

TEST(RandomDraw, EqualBoundsAlwaysGiveThatValueAndStillUseOneEngineOutput) {
    Script script{0x12345678, 0xAAAAAAAA};
    EXPECT_EQ(UniformFrom(script, 7, 7), 7);
    EXPECT_EQ(script.Left(), 1U);
}

// For a range of 3: (0 - 3) mod 3 in 32 bits is 4294967293 mod 3 = 1, so a low half of 0 is drawn again and 1 is not.
TEST(RandomDraw, ALowHalfBelowTheThresholdIsDrawnAgain) {
    Script zero{0x00000000, 0xFFFFFFFF};
    EXPECT_EQ(UniformFrom(zero, 0, 2), 2);
    EXPECT_EQ(zero.Left(), 0U);
    // 0xAAAAAAAB * 3 = 0x2'00000001: the low half 1 lies below the range, but not below the threshold.
    Script one{0xAAAAAAAB, 0x00000000};
    EXPECT_EQ(UniformFrom(one, 0, 2), 2);
    EXPECT_EQ(one.Left(), 1U);
}

TEST(RandomDraw, ARangeOfAPowerOfTwoNeverDrawsAgain) {
    Script script{0x00000000};
    EXPECT_EQ(UniformFrom(script, -5, -2), -5);
    EXPECT_EQ(script.Left(), 0U);
}

TEST(RandomDraw, TheFullRangeIsTheLowerBoundPlusOneRawOutput) {
    Script script{5};
    EXPECT_EQ(UniformFrom(script, -2147483647 - 1, 2147483647), -2147483647 - 1 + 5);
    Script wrapped{5};  // b - a + 1 is 0 for b = a - 1 as well
    EXPECT_EQ(UniformFrom(wrapped, 100, 99), 105);
}

// 10 to 5 is a range of 2^32 - 4: from 10 upwards, around the end of the numbers, to 5.
TEST(RandomDraw, ALowerBoundAboveTheUpperOneDrawsOverTheWrappedRange) {
    Script low{0x00000004};  // 4 * (2^32 - 4) = 3 * 2^32 + (2^32 - 16)
    EXPECT_EQ(UniformFrom(low, 10, 5), 13);
    Script high{0xFFFFFFFF};  // high half 2^32 - 5; 10 + that wraps to 5
    EXPECT_EQ(UniformFrom(high, 10, 5), 5);
    Script middle{0x80000001};  // high half 2^31 - 2, and 10 more is past the largest number
    EXPECT_EQ(UniformFrom(middle, 10, 5), -2147483647 - 1 + 8);
}

TEST(RandomDraw, TheProcessEngineReachesEachOutcomeAboutEquallyOften) {
    std::map<i32, int> counts;
    for (int draw = 0; draw < 60000; ++draw) ++counts[Orv::Uniform(1, 6)];
    ASSERT_EQ(counts.size(), 6U);
    // Ten standard deviations of a fair draw around 10,000.
    for (const auto& [value, count] : counts) EXPECT_NEAR(count, 10000, 913) << value;
}

TEST(RandomDraw, AnotherSourceTakesTheEnginesPlaceUntilItIsTakenBack) {
    Script script{0xFFFFFFFF};
    Orv::SetRandomSource(&script);
    EXPECT_EQ(Orv::Uniform(0, 1), 1);
    Orv::SetRandomSource(nullptr);
    Orv::Uniform(0, 1);
    EXPECT_EQ(script.Left(), 0U);
}

}  // namespace
