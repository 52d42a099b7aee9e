// The manager on hand-made rows: soft update and rebuild, the end of channels, the default set, the turns.
#include "AudioFeeder/PipeManager.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/SharedValues.h"
#include "Platform/Thread.h"
#include "tests/AudioFeeder/FeederWorld.h"
#include "tests/AudioFeeder/SetModel.h"

namespace {

using namespace FeederTest;
using Orv::FeedRow;
using Orv::IPipeManager;
using Texts = std::vector<std::string>;

class PipeManagerTest : public testing::Test {
protected:
    void SetUp() override {
        Orv::AnnouncementTable::Instance().Clear();
        world_.Files().AddFile("/root/Playlist/x/a.raw", RawBytes(first_));
        world_.Files().AddFile("/root/Playlist/x/b.raw", RawBytes(second_));
    }
    static FeedRow Row(std::initializer_list<Field> fields = {}) {
        FeedRow row = MakeFeed(fields);
        if (VXParamInfo(row.base.Get(), "feedtype") == nullptr) VXSetInt32Value(row.base.Get(), "feedtype", 3);
        return row;
    }
    static void Update(const FeedRow& newRow, const FeedRow& oldRow = {}) {
        EXPECT_TRUE(IPipeManager::Instance()->UpdateFeed(newRow, oldRow));
        Sleep(1);
    }
    static void Remove(const FeedRow& row) { EXPECT_TRUE(IPipeManager::Instance()->ShutdownFeed(row)); }
    // The manager's own lines about channels.
    Texts ManagerLines() {
        Texts lines;
        for (const LogLine& line : world_.Log()) {
            if (line.text.starts_with("Shutdown channel") || line.text.starts_with("Creating channel")) {
                lines.push_back(line.word + "|" + line.text);
            }
        }
        return lines;
    }
    // Whether a change from Row() to this one leaves a listening client connected.
    bool Keeps(std::initializer_list<Field> fields) {
        bool keeps = false;
        world_.Run([&] {
            Update(Row());
            Client client("p");
            client.ReadBlocks(4);
            Update(Row(fields), Row());
            keeps = client.ReadBlocks(40).size() == 40'000;
            EXPECT_EQ(world_.CountLog("]:Destroyed"), keeps ? 0U : 1U);
        });
        return keeps;
    }

    FeederWorld world_;
    const Samples first_ = Noise(400'500, 1);
    const Samples second_ = Noise(400'500, 2);
};

TEST_F(PipeManagerTest, TheManagerIsMadeOnFirstUseAndAgainWhenItsHolderIsEmpty) {
    world_.Run([&] {
        IPipeManager* manager = IPipeManager::Instance().Get();
        ASSERT_NE(manager, nullptr);
        EXPECT_EQ(IPipeManager::Instance().Get(), manager);
        IPipeManager::StopAll();
        IPipeManager::Instance() = nullptr;
        EXPECT_TRUE(IPipeManager::Instance().IsValid());
    });
}

TEST_F(PipeManagerTest, AnInsertBuildsAChannelAndLogsOnlyItsCreation) {
    world_.Run([&] {
        Update(Row());
        EXPECT_EQ(ManagerLines(), (Texts{" Info|Shutdown channel p", " Info|Creating channel p"}));
        EXPECT_EQ(world_.CountLog("]:Shutdown"), 0U) << "nothing was there to shut down";
        EXPECT_TRUE(world_.Pipes().IsServed("p"));
    });
}

TEST_F(PipeManagerTest, ARowWithoutItsIdBuildsAChannelAndLogsNothing) {
    world_.Run([&] {
        Update(MakeRow({{"pipename", "p"}, {"thename", "x"}, {"feedtype", 3}}));
        EXPECT_TRUE(ManagerLines().empty());
        EXPECT_TRUE(world_.Pipes().IsServed("p"));
    });
}

TEST_F(PipeManagerTest, ARebuildShutsBothNamesDownInOrderAndBuildsTheNewOne) {
    world_.Run([&] {
        Update(Row());
        const std::size_t before = world_.Log().size();
        Update(Row({{"pipename", "q"}}), Row());
        Texts steps;
        const auto log = world_.Log();
        for (std::size_t line = before; line < log.size(); ++line) {
            for (const char* part :
                 {"Shutdown channel ", "Creating channel ", "]:Shutdown", "]:closed", "]:Destroyed", "]:Started"}) {
                const std::size_t at = log[line].text.find(part);
                if (at != std::string::npos) steps.push_back(log[line].text.substr(part[0] == ']' ? at + 2 : at));
            }
        }
        EXPECT_EQ(steps, (Texts{"Shutdown channel p", "Shutdown", "closed", "Shutdown channel q", "Creating channel q",
                                "Shutdown", "Destroyed", "Started"}));
        EXPECT_FALSE(world_.Pipes().IsServed("p"));
        EXPECT_TRUE(world_.Pipes().IsServed("q"));
    });
}

TEST_F(PipeManagerTest, AChangeOfTheNameEndsAllConnectionsOfTheChannel) {
    EXPECT_FALSE(Keeps({{"thename", "y"}}));
}

TEST_F(PipeManagerTest, AChangeOfTheFeedTypeEndsAllConnectionsOfTheChannel) {
    EXPECT_FALSE(Keeps({{"feedtype", 2}}));
}

TEST_F(PipeManagerTest, AChangeOfPlayAnnouncementsRebuildsTheChannel) {
    EXPECT_FALSE(Keeps({{"playannouncements", 1}}));
}

TEST_F(PipeManagerTest, AChangeOfNonstopRebuildsTheChannelAlsoFromOneTrueValueToAnother) {
    EXPECT_FALSE(Keeps({{"nonstop", 1}}));
}

TEST_F(PipeManagerTest, AChangeOfAnyOtherColumnKeepsTheConnections) {
    EXPECT_TRUE(Keeps({{"maxvolume", 40}, {"autogain", 1}, {"minannouncementpause", 5}, {"maxannouncementpause", 9}}));
}

TEST_F(PipeManagerTest, AChangeOfMaxVolumeAloneRestartsTheContentButKeepsConnectionsPipeAndThread) {
    world_.Run([&] {
        Update(Row());
        Client client("p");
        EXPECT_EQ(client.ReadBlocks(20), ExpectedStream({first_}, 20));
        Sleep(1'000);
        const u64 threads = world_.Sim().ThreadsStarted();
        const std::size_t managerLines = ManagerLines().size();
        Update(Row({{"maxvolume", 100}}), Row());
        EXPECT_EQ(client.ReadBlocks(3), Blocks(first_, 20, 3)) << "what was on its way";
        EXPECT_EQ(client.ReadBlocks(5), Blocks(first_, 0, 5)) << "the content begins anew";
        EXPECT_EQ(world_.Sim().ThreadsStarted(), threads);
        EXPECT_EQ(ManagerLines().size(), managerLines) << "nothing is logged here";
        EXPECT_EQ(world_.CountLog("Volume control has been updated MaxVolume=100%, autogain disabled"), 1U);
    });
}

TEST_F(PipeManagerTest, ASoftUpdateTakesLimitAndAutogainFromTheBaseListAndClampsTheLimit) {
    world_.Run([&] {
        Update(Row({{"nonstop", 1}}));
        FeedRow changed = Row({{"nonstop", 1}, {"maxvolume", 400}, {"autogain", -1}});
        changed.overrides = MakeList({{"maxvolume", 3}, {"autogain", 0}});
        Update(changed, Row({{"nonstop", 1}}));
        Sleep(1'000);
        EXPECT_EQ(world_.CountLog("Volume control has been updated MaxVolume=100%, autogain enabled"), 1U);
        Update(Row({{"nonstop", 1}}), changed);
        Sleep(1'000);
        EXPECT_EQ(world_.CountLog("Volume control has been turned off"), 1U)
            << "a row without maxvolume follows the global pair";
    });
}

TEST_F(PipeManagerTest, ASoftUpdateKeepsThePausesOfTheRowThatTheChannelWasBuiltFrom) {
    const std::initializer_list<Field> built{
        {"nonstop", 1}, {"playannouncements", 1}, {"minannouncementpause", 2}, {"maxannouncementpause", 2}};
    const std::initializer_list<Field> changed{
        {"nonstop", 1}, {"playannouncements", 1}, {"minannouncementpause", 7}, {"maxannouncementpause", 7}};
    world_.Run([&] {
        Update(Row(built));
        Update(Row(changed), Row(built));
        Sleep(5'000);
        EXPECT_EQ(world_.CountLog("for 7 seconds"), 0U);
        EXPECT_GE(world_.CountLog("for 2 seconds"), 3U);
        // They take effect at a rebuild.
        FeedRow rebuilt = Row(changed);
        VXSetInt32Value(rebuilt.base.Get(), "nonstop", 2);
        Update(rebuilt, Row(changed));
        EXPECT_EQ(world_.CountLog("for 7 seconds"), 1U);
    });
}

TEST_F(PipeManagerTest, OfTwoRowsWithTheSamePipeTheLaterOnesBuildShutsTheFirstChannelDownAndTakesTheKey) {
    world_.Run([&] {
        Update(Row());
        Client client("p");
        client.ReadBlocks(3);
        Update(Row({{"thename", "other"}}));
        EXPECT_TRUE(client.SeesEnd());
        EXPECT_EQ(world_.CountLog("]:Destroyed"), 1U);
        EXPECT_TRUE(world_.Pipes().IsServed("p"));
        EXPECT_EQ(world_.CountLog("]:Started"), 2U);
    });
}

TEST_F(PipeManagerTest, PipeNamesThatDifferInCaseAreDifferentKeys) {
    world_.Run([&] {
        Update(Row({{"pipename", "P"}}));
        Update(Row({{"pipename", "p"}}));
        EXPECT_EQ(world_.CountLog("]:Destroyed"), 0U);
        Sleep(500);
        // They meet in one name of the platform, and the later one cannot be served.
        EXPECT_GE(world_.CountLog("Cannot create new listener for connection. error="), 4U);
    });
}

TEST_F(PipeManagerTest, ShutdownOfAnUnknownPipeDoesNothing) {
    world_.Run([&] {
        Update(Row());
        const std::size_t before = world_.Log().size();
        Remove(Row({{"pipename", "unknown"}}));
        Remove(FeedRow());
        EXPECT_EQ(world_.Log().size(), before);
        EXPECT_TRUE(world_.Pipes().IsServed("p"));
    });
}

TEST_F(PipeManagerTest, ShutdownOfAFeedEndsItsChannelAndForgetsIt) {
    world_.Run([&] {
        Update(Row());
        Client client("p");
        client.ReadBlocks(3);
        Remove(Row());
        EXPECT_TRUE(client.SeesEnd());
        EXPECT_FALSE(world_.Pipes().IsServed("p"));
        EXPECT_EQ(world_.CountLog("]:Destroyed"), 1U);
        Remove(Row());
        EXPECT_EQ(world_.CountLog("]:Shutdown"), 2U) << "the operation and the destructor";
    });
}

TEST_F(PipeManagerTest, ShutdownAllGoesThroughTheMapAndShutsEachChannelDownThreeTimes) {
    world_.Run([&] {
        for (const char* pipe : {"c", "a", "b"}) Update(Row({{"pipename", pipe}}));
        EXPECT_TRUE(IPipeManager::Instance()->ShutdownAll());
        Texts order;
        for (const LogLine& line : world_.Log()) {
            for (const char* part : {"]:Shutdown", "]:Destroyed"}) {
                if (line.text.find(part) == std::string::npos) continue;
                order.push_back(line.text.substr(line.text.find(" as ") + 4, 1) + (part[2] == 'S' ? "-" : "+"));
            }
        }
        // A channel is destroyed when the next one has been taken in hand.
        EXPECT_EQ(order, (Texts{"a-", "a-", "a-", "a+", "b-", "b-", "b-", "b+", "c-", "c-", "c-", "c+"}));
        EXPECT_TRUE(world_.Pipes().ServedNames().empty());
        EXPECT_FALSE(Orv::FindMusicBox("defaultset:").IsValid());
    });
}

TEST_F(PipeManagerTest, ASecondShutdownAllFindsNothingLeftToDo) {
    world_.Run([&] {
        Update(Row());
        IPipeManager::Instance()->ShutdownAll();
        const u64 shutdowns = world_.CountLog("]:Shutdown");
        IPipeManager::Instance()->ShutdownAll();
        EXPECT_EQ(world_.CountLog("]:Shutdown"), shutdowns);
        EXPECT_EQ(world_.CountLog("is not registered entity"), 1U);
    });
}

// --- the default set ------------------------------------------------------------------------------------------------

TEST_F(PipeManagerTest, TheDefaultSetRepeatsItsFileWithoutEndForAllChannelsWithoutAPlaylist) {
    world_.Files().AddFile("/d.raw", RawBytes(Constant(8'000, 12'000)));
    world_.Run([&] {
        Orv::SetDefaultAudioFile("/d.raw");
        Update(Row({{"feedtype", 0}}));
        Listener client("p");
        Sleep(30'000);
        client.Stop();
        // Behind the fade-ins of the box's source and of the channel; the source steps within its tick, and each turn
        // of the file costs the frame of zeros with which a file of whole frames ends.
        const Samples late = Part(client.Heard(), 100'000, 100'000);
        EXPECT_EQ(std::count(late.begin(), late.end(), 12'000) + std::count(late.begin(), late.end(), 0), 100'000);
        EXPECT_GT(std::count(late.begin(), late.end(), 12'000), 95'000);
    });
}

TEST_F(PipeManagerTest, AnEmptyDefaultAudioFileStartsNothingOnTheDefaultSet) {
    world_.Files().AddFile("/d.raw", RawBytes(Constant(400'000, 12'000)));
    world_.Run([&] {
        Orv::SetDefaultAudioFile("/d.raw");
        Update(Row({{"feedtype", 0}}));
        Listener client("p");
        Sleep(10'000);
        const u64 opens = world_.Files().Counters().opens;
        Orv::SetDefaultAudioFile("");
        Orv::SetDefaultAudioFile(nullptr);
        IPipeManager::Instance()->UpdateDefaultSet(nullptr);
        EXPECT_EQ(world_.Files().Counters().opens, opens);
        Sleep(5'000);
        client.Stop();
        EXPECT_EQ(Part(client.Heard(), 60'000, 50'000), Constant(50'000, 12'000)) << "it plays on";
    });
}

TEST_F(PipeManagerTest, ANewDefaultAudioFileReachesTheDefaultSetAtOnce) {
    world_.Files().AddFile("/d.raw", RawBytes(Constant(400'000, 12'000)));
    world_.Files().AddFile("/e.raw", RawBytes(Constant(400'000, -9'000)));
    world_.Run([&] {
        Orv::SetDefaultAudioFile("/d.raw");
        Update(Row({{"feedtype", 0}}));
        Listener client("p");
        Sleep(10'000);
        Orv::SetDefaultAudioFile("/e.raw");
        Sleep(10'000);
        client.Stop();
        EXPECT_EQ(client.Heard().back(), -9'000);
    });
}

TEST_F(PipeManagerTest, AfterStopAllTheDefaultSetComesBackOnlyThroughADefaultAudioFile) {
    world_.Files().AddFile("/d.raw", RawBytes(Constant(400'000, 12'000)));
    world_.Run([&] {
        IPipeManager::Instance();
        EXPECT_TRUE(Orv::FindMusicBox("defaultset:").IsValid());
        IPipeManager::StopAll();
        Update(Row({{"feedtype", 0}}));
        EXPECT_FALSE(Orv::FindMusicBox("defaultset:").IsValid());
        EXPECT_EQ(world_.CountLog("Cannot find musicbox 'defaultset:'"), 1U);
        Orv::SetDefaultAudioFile("/d.raw");
        EXPECT_TRUE(Orv::FindMusicBox("defaultset:").IsValid());
    });
}

TEST_F(PipeManagerTest, StopAllEmptiesTheAnnouncementsAndKeepsTheSharedValues) {
    world_.Run([&] {
        Orv::SetMaxVolume(50);
        Orv::SetAutogain(true);
        Orv::SetRootPath("/kept");
        Orv::SetDefaultAudioFile("/kept.wav");
        Orv::UpdateAnnouncement(MakeAnnouncement("a", 0, "/a.wav"), {});
        Update(Row());
        IPipeManager::StopAll();
        EXPECT_EQ(Orv::AnnouncementTable::Instance().Size(), 0U);
        EXPECT_EQ(Orv::GlobalLevelSetting(), (Orv::LevelSetting{16383, true}));
        EXPECT_EQ(Orv::RootPath(), "/kept");
        std::string file;
        Orv::GetDefaultAudioFile(file);
        EXPECT_EQ(file, "/kept.wav");
    });
}

// --- the end --------------------------------------------------------------------------------------------------------

TEST_F(PipeManagerTest, WaitForChannelsReturnsAtOnceWhenNoPumpRuns) {
    world_.Run([&] {
        IPipeManager::StopAll();
        const u64 start = Now();
        IPipeManager::WaitForChannels();
        EXPECT_EQ(Now(), start);
        IPipeManager::Instance()->UpdateDefaultSet("/d.raw");
        EXPECT_FALSE(Orv::FindMusicBox("defaultset:").IsValid()) << "the default set is gone for good";
    });
}

TEST_F(PipeManagerTest, WaitForChannelsEndsAtTheFirstCheckThatFindsNoPump) {
    world_.Run([&] {
        Orv::runningPumpThreads.fetch_add(1);
        Platform::Thread last("last", [] {
            Sleep(2'500);
            Orv::runningPumpThreads.fetch_sub(1);
        });
        const u64 start = Now();
        IPipeManager::WaitForChannels();
        EXPECT_EQ(Now() - start, 3'000U);
        last.Join();
    });
}

TEST_F(PipeManagerTest, WaitForChannelsGivesUpAfter30SecondsWithoutAMessage) {
    world_.Run([&] {
        IPipeManager::StopAll();
        Orv::runningPumpThreads.fetch_add(1);
        const std::size_t lines = world_.Log().size();
        const u64 start = Now();
        IPipeManager::WaitForChannels();
        EXPECT_EQ(Now() - start, 30'000U);
        EXPECT_EQ(world_.Log().size(), lines);
        Orv::runningPumpThreads.fetch_sub(1);
    });
}

// --- turns ----------------------------------------------------------------------------------------------------------

// A stalled client holds the shutdown of its channel; an event that comes meanwhile waits for it, while other pumps and
// what they read go on.
TEST_F(PipeManagerTest, AnEventThatComesWhileAnotherOneRunsWaitsForItAndPumpsDoNot) {
    world_.Run([&] {
        Update(Row());
        Update(Row({{"pipename", "q"}, {"playannouncements", 1}}));
        Client stalled("p");
        Listener listens("q");
        Sleep(1'000);
        ASSERT_EQ(world_.Pipes().Counters().writersBlocked, 1U);
        Platform::Thread first("first", [] { Remove(Row()); });
        Sleep(100);
        bool announced = false;
        Platform::Thread second("second", [&] {
            Orv::UpdateAnnouncement(MakeAnnouncement("a", 0, "/a.wav"), {});
            announced = true;
        });
        const std::size_t heard = listens.Heard().size();
        Sleep(5'000);
        EXPECT_FALSE(announced);
        EXPECT_GE(listens.Heard().size(), heard + 38'000);
        stalled.Leave();
        first.Join();
        second.Join();
        EXPECT_TRUE(announced);
        listens.Stop();
    });
}

}  // namespace
