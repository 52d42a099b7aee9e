// Goal: the sign of life goes out while real channels play, wait for their clients or have none, and stops when a lock
// that they share is held. Method: channels and the watch on simulated time; the test is the client that does not read,
// and has a thread that stays in the lock that an ordinary use of it takes. That the state names this lock shows that
// the watch takes the same one.
#include "AudioFeeder/ServiceWatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/ContentItems.h"
#include "AudioFeeder/PipeFeed.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/Preload.h"
#include "AudioFeeder/SharedLocks.h"
#include "AudioFeeder/SharedValues.h"
#include "AudioFeeder/WatchRules.h"
#include "Platform/sim/StayInLock.h"
#include "Projects/Common/VoIPFileEngine/FileMapping.h"
#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"
#include "Projects/Common/VoIPFileEngine/MusicBox.h"
#include "Projects/Common/VoIPFileEngine/PipeStorage.h"
#include "Projects/Common/VoIPFileEngine/RawFile.h"
#include "ServiceProcess/Log.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using Orv::IPipeFeed;
using Orv::ServiceWatch;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;
using FeedHolder = MTObjects::THolder<IPipeFeed>;

constexpr u32 kWatchdog = 60'000;
constexpr u64 kPing = kWatchdog / 4;
constexpr char kLogSource[] = "ServiceWatchTest";

std::vector<Orv::PumpState> Pumps() {
    std::vector<Orv::PumpState> pumps;
    EXPECT_TRUE(Orv::PumpPulse::TryAll(pumps));
    return pumps;
}

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

// A lock by the name that the state gives it, and what a thread does that takes it before any other.
struct Use {
    const char* lock;
    void (*prepare)();
    void (*use)();
};

void PrintTo(const Use& use, std::ostream* out) {
    *out << use.lock;
}

void Nothing() {}
Orv::IMusicBox* defaultBox = nullptr;

const Use kUses[] = {
    {"log", Nothing, [] { ORV_LOG(Info) << "a line"; }},
    {"root path", Nothing, [] { Orv::RootPath(); }},
    {"default audio file", Nothing,
     [] {
         std::string file;
         Orv::GetDefaultAudioFile(file);
     }},
    {"announcements", Nothing, [] { Orv::AnnouncementTable::Instance().Erase("none"); }},
    // Who kept this one would be unseen otherwise: the feeds play on meanwhile, but no change comes in any more.
    {"feeds", [] { Orv::IPipeManager::Instance(); }, [] { Orv::IPipeManager::Instance()->Reports(); }},
    {"pumps", Nothing,
     [] {
         const Orv::ContentGiver nobody;
         const Orv::PumpPulse pulse("another", nobody);
     }},
    {"random numbers", Nothing, [] { Orv::Uniform(1, 6); }},
    {"preload settings", Nothing, [] { Orv::PreloadWanted(); }},
    {"preloaded files", Nothing, [] { Orv::MemoryFileCache::Instance().Find("/root/none.wav"); }},
    {"file mappings", Nothing,
     [] {
         Platform::SystemError error = 0;
         Orv::FileMapping::Create("/root/none.wav", 0, error);
     }},
    {"open files", Nothing, [] { Orv::ReleaseSharedRawFile("/root/none.raw"); }},
    {"live sources", Nothing, [] { Orv::ReleasePipeBox(R"(\\.\pipe\none)"); }},
    {"music boxes", Nothing, [] { Orv::FindMusicBox("none:"); }},
    {"default stream",
     [] {
         Orv::IPipeManager::Instance();
         defaultBox = Orv::FindMusicBox(Orv::DefaultSetName).Get();
     },
     [] { defaultBox->Shutdown(); }},
};

class SharedLockTest : public ServiceWatchTest, public testing::WithParamInterface<Use> {};

TEST_P(SharedLockTest, HeldForLongerThan20SecondsEndsThePingsUntilItIsLetGo) {
    world_.Run([&] {
        GetParam().prepare();
        const ServiceWatch watch;
        FeedHolder feed = Sorted("p");
        Sleep(1'000);
        const u64 held = Now();
        Platform::Thread holder("holder", [] {
            Platform::Sim::StayInNextLock(10 * kWatchdog);
            GetParam().use();
        });
        holder.Join();
        const u64 free = Now();
        ASSERT_GE(free - held, 10 * kWatchdog);
        // Each lock is taken once a second, so that it has been waited for 20 seconds one second later at most.
        EXPECT_GE(PingsIn(held, held + 20'000), 1u);
        EXPECT_EQ(PingsIn(held + 22'000, free), 0u);
        Sleep(5'000);
        EXPECT_GE(PingsIn(free, Now()), 1u) << "well again, and told so";
        EXPECT_THAT(Texts(), ElementsAre("Running; stuck: a lock that all feeds share cannot be had: " +
                                             std::string(GetParam().lock),
                                         "Running"));
    });
}

INSTANTIATE_TEST_SUITE_P(Each, SharedLockTest, testing::ValuesIn(kUses), [](const auto& use) {
    std::string name;
    for (const char* c = use.param.lock; *c != '\0'; ++c) {
        if (*c != ' ') name += *c;
    }
    return name;
});

TEST_F(ServiceWatchTest, EachLockThatIsTakenIsTriedHere) {
    std::vector<std::string> taken;
    for (const Orv::SharedLock& lock : Orv::SharedLocks()) taken.emplace_back(lock.name);
    std::vector<std::string> tried;
    for (const Use& use : kUses) tried.emplace_back(use.lock);
    EXPECT_THAT(taken, UnorderedElementsAreArray(tried));
}

// Held meanwhile: the turn of the changes and the stream set of the default stream.
TEST_F(ServiceWatchTest, ADefaultFileWhoseDiskHangsHoldsBackNoPing) {
    world_.Files().AddFile("/root/slow.raw", RawBytes(Noise(8'000, 2)));
    world_.Files().DelayOpens("/root/slow.raw", 10 * kWatchdog);
    world_.Run([&] {
        Orv::IPipeManager::Instance();
        const ServiceWatch watch;
        Orv::FeedRow row = MakeFeed({{"pipename", "d"}, {"feedtype", 0}});
        FeedHolder feed = new IPipeFeed(row);
        Listener client("d");
        Sleep(1'000);
        const u64 begin = Now();
        Orv::IPipeManager::Instance()->UpdateDefaultSet("/root/slow.raw");
        ASSERT_GE(Now() - begin, 10 * kWatchdog);
        EXPECT_GE(PingsIn(begin, Now()), 35u);
        EXPECT_THAT(Texts(), IsEmpty());
    });
}

// A change of volume opens the feed's next file on the thread of the changes, and the pump stands until it is open. It
// waited for nobody then, so that the one feed of a service whose disk hung had it killed.
TEST_F(ServiceWatchTest, AFeedWhoseChangeWaitsForTheDiskIsToldAndHoldsBackNoPing) {
    world_.Run([&] {
        const ServiceWatch watch;
        FeedHolder feed = Sorted("p");
        Listener client("p");
        Sleep(1'000);
        world_.Files().AddFile("/root/Playlist/x/first.raw", RawBytes(Noise(8'000, 2)));
        world_.Files().DelayOpens("/root/Playlist/x/first.raw", 10 * kWatchdog);
        const u64 begin = Now();
        feed->Start();
        ASSERT_GE(Now() - begin, 10 * kWatchdog);
        EXPECT_GE(PingsIn(begin, Now()), 35u);
        Sleep(3'000);
        EXPECT_THAT(Texts(), ElementsAre("Running; these feeds wait for their disk: p", "Running"));
    });
}

TEST_F(ServiceWatchTest, APumpIsSeenFromItsBeginningToItsEnd) {
    world_.Run([&] {
        EXPECT_THAT(Pumps(), IsEmpty());
        FeedHolder feed = Sorted("p");
        Sleep(250);
        const auto first = Pumps();
        ASSERT_EQ(first.size(), 1u);
        EXPECT_EQ(first[0].name, "p");
        EXPECT_EQ(first[0].wait, Platform::ThreadWait::None);
        Sleep(1'000);
        EXPECT_GE(Pumps()[0].passes, first[0].passes + 9);
        feed->Shutdown();
        EXPECT_THAT(Pumps(), IsEmpty());
    });
}

}  // namespace
