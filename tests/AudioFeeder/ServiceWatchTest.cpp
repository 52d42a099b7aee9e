// Goal: the sign of life goes out while real channels play, wait for their clients or have none, and stops when a lock
// that they share is held. Method: channels and the watch on simulated time; the test is the client that does not read
// and the thread that does not let go.
#include "AudioFeeder/ServiceWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "AudioFeeder/PipeFeed.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/WatchRules.h"
#include "ServiceProcess/Log.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using Orv::IPipeFeed;
using Orv::ServiceWatch;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using FeedHolder = MTObjects::THolder<IPipeFeed>;

constexpr u32 kWatchdog = 60'000;
constexpr u64 kPing = kWatchdog / 4;

class ServiceWatchTest : public testing::Test {
protected:
    ServiceWatchTest() {
        world_.Sim().Service().SetWatchdog(kWatchdog);
        world_.Files().AddFile("/root/Playlist/x/long.raw", RawBytes(Noise(100'500, 1)));
    }
    static FeedHolder Sorted(const char* pipe) {
        Orv::FeedRow row = MakeFeed({{"pipename", pipe}, {"feedtype", 3}});
        return new IPipeFeed(row);
    }
    std::vector<u64> Pings() { return world_.Sim().Service().Pings(); }
    std::vector<std::string> Texts() { return world_.Sim().Service().Texts(); }
    // Pings between two times.
    u64 PingsIn(u64 from, u64 to) {
        u64 count = 0;
        for (const u64 ping : Pings()) count += ping >= from && ping < to ? 1 : 0;
        return count;
    }
    // `hold` holds a lock while it runs what it is given, which takes ten times the watchdog's time.
    void ExpectNoPingsWhile(const std::function<void(const std::function<void()>&)>& hold) {
        world_.Run([&] {
            const ServiceWatch watch;
            FeedHolder feed = Sorted("p");
            Sleep(1'000);
            const u64 held = Now();
            hold([] { Sleep(10 * kWatchdog); });
            const u64 free = Now();
            // Each lock is taken once a second, so that it has been waited for 20 seconds one second later at most.
            EXPECT_GE(PingsIn(held, held + 20'000), 1u);
            EXPECT_EQ(PingsIn(held + 22'000, free), 0u);
            Sleep(5'000);
            EXPECT_GE(PingsIn(free, Now()), 1u) << "well again, and told so";
            ASSERT_EQ(Texts().size(), 2u);
            EXPECT_EQ(Texts()[0], "Running; stuck: a lock that all feeds share cannot be had");
            EXPECT_EQ(Texts()[1], "Running");
        });
    }

    FeederWorld world_;
};

TEST_F(ServiceWatchTest, PingsComeAtOnceAndThenFourTimesInTheWatchdogsTime) {
    world_.Run([&] {
        const u64 begin = Now();
        const ServiceWatch watch;
        FeedHolder feed = Sorted("p");
        Listener client("p");
        Sleep(4 * kWatchdog);
        ASSERT_FALSE(Pings().empty());
        EXPECT_LE(Pings()[0] - begin, 1u);
        for (std::size_t i = 1; i < Pings().size(); ++i) {
            EXPECT_GE(Pings()[i] - Pings()[i - 1], kPing);
            EXPECT_LE(Pings()[i] - Pings()[i - 1], kPing + 1'000);
        }
        EXPECT_GE(Pings().size(), 15u);
        EXPECT_THAT(Texts(), IsEmpty());
    });
}

TEST_F(ServiceWatchTest, WithoutAWatchdogNothingIsPinged) {
    world_.Sim().Service().SetWatchdog(0);
    world_.Run([&] {
        const ServiceWatch watch;
        Sleep(4 * kWatchdog);
        EXPECT_THAT(Pings(), IsEmpty());
    });
}

TEST_F(ServiceWatchTest, AClientThatDoesNotReadIsToldAndHoldsBackNoPing) {
    world_.Run([&] {
        const ServiceWatch watch;
        FeedHolder feed = Sorted("p");
        const u64 begin = Now();
        {
            Client silent("p");
            Sleep(3 * kWatchdog);
            EXPECT_GE(PingsIn(begin, Now()), 11u);
            EXPECT_THAT(Texts(), ElementsAre("Running; a client of these feeds does not read: p"));
        }
        Sleep(3'000);
        EXPECT_THAT(Texts(), ElementsAre("Running; a client of these feeds does not read: p", "Running"));
    });
}

TEST_F(ServiceWatchTest, ALockThatIsHeldFor20SecondsEndsThePingsUntilItIsLetGo) {
    ExpectNoPingsWhile([](const std::function<void()>& wait) {
        Orv::LogWriter& log = Orv::LogWriter::Instance();
        log.Lock();
        wait();
        log.Unlock();
    });
}

// Who kept this lock would be unseen otherwise: the feeds play on meanwhile, but no change comes in any more.
TEST_F(ServiceWatchTest, TheMapOfTheChannelsIsAmongTheLocksThatAreLookedAt) {
    ExpectNoPingsWhile([](const std::function<void()>& wait) { Orv::IPipeManager::Instance()->HoldChannelMap(wait); });
}

TEST_F(ServiceWatchTest, APumpIsSeenFromItsBeginningToItsEnd) {
    world_.Run([&] {
        EXPECT_THAT(Orv::PumpPulse::All(), IsEmpty());
        FeedHolder feed = Sorted("p");
        Sleep(250);
        const auto first = Orv::PumpPulse::All();
        ASSERT_EQ(first.size(), 1u);
        EXPECT_EQ(first[0].name, "p");
        EXPECT_EQ(first[0].wait, Platform::ThreadWait::None);
        Sleep(1'000);
        EXPECT_GE(Orv::PumpPulse::All()[0].passes, first[0].passes + 9);
        feed->Shutdown();
        EXPECT_THAT(Orv::PumpPulse::All(), IsEmpty());
    });
}

}  // namespace
