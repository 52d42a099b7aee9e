#include "AudioFeeder/ChangePace.h"

#include <gtest/gtest.h>

#include "Platform/Clock.h"
#include "Platform/Thread.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;

class ChangePaceTest : public testing::Test {
protected:
    // What `count` changes take that follow one another and need `milliseconds` each.
    u64 Make(u32 count, u32 milliseconds) {
        const u64 begin = Platform::SteadyMilliseconds();
        for (u32 i = 0; i < count; ++i) {
            pace_.Begin();
            if (milliseconds != 0) Platform::SleepMilliseconds(milliseconds);
            pace_.End();
        }
        return Platform::SteadyMilliseconds() - begin;
    }

    FeederWorld world_;
    Orv::ChangePace pace_;
};

TEST_F(ChangePaceTest, AChangeThatTakesNoTimeDoesNotWait) {
    world_.Run([&] {
        EXPECT_EQ(Make(1000, 0), 0U);
        Sleep(5);
        EXPECT_EQ(Make(1, 1), 1U);
    });
}

TEST_F(ChangePaceTest, ChangesThatFollowOneAnotherRestAsLongAsTheyWork) {
    world_.Run([&] { EXPECT_EQ(Make(10, 1), 20U); });
}

TEST_F(ChangePaceTest, OneThatTakesLongHasTheRestOfAShortOne) {
    world_.Run([&] { EXPECT_EQ(Make(1, 100), 102U); });
}

// One process plays many simulated worlds, each of which begins its clock again.
TEST(ChangePaceOfManyWorldsTest, AClockThatBeginsAgainIsAGap) {
    Orv::ChangePace pace;
    for (int world = 0; world < 2; ++world) {
        FeederWorld().Run([&] {
            const u64 begin = Platform::SteadyMilliseconds();
            for (int change = 0; change < 10; ++change) {
                pace.Begin();
                Platform::SleepMilliseconds(1);
                pace.End();
            }
            EXPECT_EQ(Platform::SteadyMilliseconds() - begin, 20U) << "world " << world;
            Sleep(5000);
            pace.Begin();
            pace.End();
        });
    }
}

TEST_F(ChangePaceTest, AGapIsRestEnough) {
    world_.Run([&] {
        for (int i = 0; i < 10; ++i) {
            EXPECT_EQ(Make(1, 1), 1U);
            Sleep(2);
        }
    });
}

}  // namespace
