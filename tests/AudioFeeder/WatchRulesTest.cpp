// Goal: a restart is asked for only when it can help, and whoever waits is named. Method: looks at pumps that the test
// makes up, at times that the test chooses.
#include "AudioFeeder/WatchRules.h"

#include <gtest/gtest.h>

namespace Orv {
namespace {

using Platform::ThreadWait;

class Watch : public ::testing::Test {
protected:
    WatchVerdict Look(u64 now, const LockWait& lock = {}, bool stopping = false) {
        rules_.LookAtPumps(now, pumps_);
        return rules_.Judge(lock, stopping);
    }

    WatchRules rules_;
    std::vector<PumpState> pumps_ = {{1, "hold", 0, ThreadWait::None}, {2, "lobby", 0, ThreadWait::None}};
};

TEST_F(Watch, PumpsThatGoOnAreWell) {
    for (u64 now = 0; now <= 60'000; now += 1'000) {
        for (PumpState& pump : pumps_) ++pump.passes;
        const WatchVerdict verdict = Look(now);
        ASSERT_FALSE(verdict.stuck) << now;
        ASSERT_EQ(verdict.text, "Running") << now;
    }
}

TEST_F(Watch, NoPumpThatGoesOnFor20SecondsIsStuck) {
    Look(1'000);
    EXPECT_FALSE(Look(20'999).stuck);
    const WatchVerdict verdict = Look(21'000);
    EXPECT_TRUE(verdict.stuck);
    EXPECT_EQ(verdict.text, "Running; stuck: no feed goes on");
}

TEST_F(Watch, OnePumpThatGoesOnIsEnough) {
    for (u64 now = 0; now <= 60'000; now += 1'000) {
        ++pumps_[1].passes;
        ASSERT_FALSE(Look(now).stuck) << now;
    }
}

TEST_F(Watch, OnePumpThatStandsWithoutWaitingForAnybodyIsStuckOnlyIfNoneGoesOn) {
    pumps_[1].wait = ThreadWait::Client;
    Look(0);
    EXPECT_TRUE(Look(20'000).stuck);
    ++pumps_[1].passes;
    EXPECT_FALSE(Look(21'000).stuck);
}

TEST_F(Watch, PumpsThatAllWaitForTheirClientsOrDisksAreNotStuck) {
    pumps_[0].wait = ThreadWait::Client;
    pumps_[1].wait = ThreadWait::Disk;
    Look(0);
    const WatchVerdict verdict = Look(600'000);
    EXPECT_FALSE(verdict.stuck);
    EXPECT_EQ(verdict.text,
              "Running; a client of these feeds does not read: hold; these feeds wait for their disk: lobby");
}

// A pump whose disk has come back, or one between the writes to two slow clients, was once taken for one that had stood
// for nobody all the time.
TEST_F(Watch, TheTimeThatAPumpHasWaitedForSomebodyIsNotCountedWhenTheWaitIsOver) {
    pumps_ = {{1, "hold", 0, ThreadWait::Disk}};
    Look(0);
    EXPECT_FALSE(Look(600'000).stuck);
    pumps_[0].wait = ThreadWait::None;
    EXPECT_FALSE(Look(601'000).stuck);
    EXPECT_FALSE(Look(619'999).stuck);
    EXPECT_TRUE(Look(620'000).stuck);
}

TEST_F(Watch, NoPumpsAtAllAreWell) {
    pumps_.clear();
    Look(0);
    EXPECT_FALSE(Look(600'000).stuck);
}

TEST_F(Watch, ANewPumpHas20SecondsOfItsOwn) {
    pumps_.pop_back();
    Look(0);
    EXPECT_TRUE(Look(20'000).stuck);
    pumps_.push_back({3, "new", 0, ThreadWait::None});
    EXPECT_FALSE(Look(21'000).stuck);
    EXPECT_TRUE(Look(41'000).stuck);
}

TEST_F(Watch, ANumberOfPassesThatWrapsAroundIsStillAChange) {
    pumps_ = {{1, "hold", 0xFFFFFFFF, ThreadWait::None}};
    Look(0);
    pumps_[0].passes = 0;
    EXPECT_FALSE(Look(20'000).stuck);
}

TEST_F(Watch, ALockThatCannotBeHadFor20SecondsIsStuckWhateverThePumpsDo) {
    ++pumps_[0].passes;
    EXPECT_FALSE(Look(0, {19'999, "log"}).stuck);
    const WatchVerdict verdict = Look(1'000, {20'000, "log"});
    EXPECT_TRUE(verdict.stuck);
    EXPECT_EQ(verdict.text, "Running; stuck: a lock that all feeds share cannot be had: log");
    pumps_.clear();
    EXPECT_TRUE(Look(2'000, {20'000, "log"}).stuck);
}

// The list of the pumps may be in another's hands for a moment, or be the very lock that cannot be had.
TEST_F(Watch, WithoutALookAtThePumpsWhatTheLastOneFoundStays) {
    Look(0);
    EXPECT_FALSE(rules_.Judge({19'999, "pumps"}, false).stuck);
    EXPECT_EQ(rules_.Judge({20'000, "pumps"}, false).text,
              "Running; stuck: a lock that all feeds share cannot be had: pumps");
    EXPECT_EQ(Look(20'000).text, "Running; stuck: no feed goes on");
    EXPECT_EQ(rules_.Judge({}, false).text, "Running; stuck: no feed goes on");
}

TEST_F(Watch, AFeedThatWaitsIsNamedAfterFiveSecondsAndNoLongerOnceItGoesOn) {
    pumps_[0].wait = ThreadWait::Client;
    Look(0);
    ++pumps_[1].passes;
    EXPECT_EQ(Look(4'999).text, "Running");
    EXPECT_EQ(Look(5'000).text, "Running; a client of these feeds does not read: hold");
    ++pumps_[0].passes;
    EXPECT_EQ(Look(6'000).text, "Running");
}

TEST_F(Watch, MoreThanFiveNamesAreCounted) {
    pumps_.clear();
    for (u64 id = 1; id <= 7; ++id) pumps_.push_back({id, "f" + std::to_string(id), 0, ThreadWait::Disk});
    Look(0);
    EXPECT_EQ(Look(5'000).text, "Running; these feeds wait for their disk: f1, f2, f3, f4, f5 and 2 more");
}

TEST_F(Watch, AServiceThatStopsSaysWhomItWaitsFor) {
    pumps_ = {{1, "hold", 0, ThreadWait::Client}};
    Look(0, {}, true);
    EXPECT_EQ(Look(5'000, {}, true).text, "Stopping; a client of these feeds does not read: hold");
}

}  // namespace
}  // namespace Orv
