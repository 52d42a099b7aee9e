// Goal: a channel tells what it does, and nothing when nobody wants to know. Method: channels on simulated time.
#include "AudioFeeder/FeedReport.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/ContentItems.h"
#include "AudioFeeder/PipeFeed.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/SharedValues.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using Orv::FeedFigures;
using Orv::IPipeFeed;
using FeedHolder = MTObjects::THolder<IPipeFeed>;

class FeedReportTest : public testing::Test {
protected:
    FeedReportTest() { Orv::WantFeedReports(true); }
    ~FeedReportTest() override { Orv::WantFeedReports(false); }

    void AddMusic() { world_.Files().AddFile("/root/Playlist/x/a.wav", WavBytes(Constant(400'000, 1000))); }

    FeederWorld world_;
};

TEST_F(FeedReportTest, WithoutTheWishThereIsNoReport) {
    Orv::WantFeedReports(false);
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}})));
        EXPECT_EQ(feed->Report(), nullptr);
    });
}

TEST_F(FeedReportTest, BlocksClientsAndLevelAreCounted) {
    AddMusic();
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}, {"maxvolume", 50}, {"autogain", 1}})));
        Sleep(500);
        EXPECT_EQ(feed->Report()->Read().blocks, 0u) << "nobody listens";
        {
            Client first("p");
            Client second("p");
            for (int block = 0; block < 10; ++block) {
                first.ReadBlocks(1);
                second.ReadBlocks(1);
            }
            const FeedFigures figures = feed->Report()->Read();
            EXPECT_TRUE(figures.hasThread);
            EXPECT_EQ(figures.clients, 2u);
            EXPECT_GE(figures.blocks, 10u);
            EXPECT_GE(figures.blocksSent, 2 * figures.blocks - 2);
            EXPECT_EQ(figures.silentBlocks, 0u);
            EXPECT_EQ(figures.lateBlocks, 0u);
            EXPECT_EQ(figures.music, "/root/Playlist/x/a.wav");
            EXPECT_EQ(figures.level, (Orv::LevelSetting{16383, true}));
            EXPECT_GT(figures.gain, 1.0F) << "quiet music is raised";
            EXPECT_GT(figures.peak, 500);
        }
        Sleep(1000);
        EXPECT_EQ(feed->Report()->Read().clients, 0u);
    });
}

TEST_F(FeedReportTest, SilenceIsCountedWhenThereIsNothingToPlay) {
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}})));
        Client client("p");
        client.ReadBlocks(8);
        const FeedFigures figures = feed->Report()->Read();
        EXPECT_GE(figures.silentBlocks, 8u);
        EXPECT_EQ(figures.silentBlocks, figures.blocks);
        EXPECT_EQ(figures.peak, 0);
        EXPECT_EQ(figures.badReason, "no file is named");
    });
}

TEST_F(FeedReportTest, AClientThatTakesNothingShowsAsAWriteThatWaitsAndLeavesLateBlocks) {
    AddMusic();
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}})));
        Client client("p");
        client.ReadBlocks(2);
        Sleep(5000);
        const u32 waits = feed->Report()->Read().writeMilliseconds;
        EXPECT_GT(waits, 4000u);
        EXPECT_LE(waits, 5000u);
        client.ReadBlocks(40);
        const FeedFigures figures = feed->Report()->Read();
        EXPECT_GT(figures.lateBlocks, 30u);
        EXPECT_LT(figures.writeMilliseconds, 1000u);
    });
}

TEST_F(FeedReportTest, AFileThatDoesNotPlayIsNamedWithItsReasonAndItsAge) {
    AddMusic();
    std::string stereo = WavBytes(Constant(1000, 1));
    stereo[22] = 2;
    world_.Files().AddFile("/root/Playlist/x/0.wav", stereo);
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}})));
        Client client("p");
        client.ReadBlocks(4);
        Sleep(3000);
        const FeedFigures figures = feed->Report()->Read();
        EXPECT_EQ(figures.badContent, "/root/Playlist/x/0.wav");
        EXPECT_EQ(figures.badReason, "it is stereo; only mono is played");
        EXPECT_GE(figures.badSeconds, 2u);
        EXPECT_LE(figures.badSeconds, 5u);
        EXPECT_EQ(figures.music, "/root/Playlist/x/a.wav") << "the next one plays";
    });
}

// Every look at the file says that it is well; only the reading finds the spot.
TEST_F(FeedReportTest, AFileWithABadSpotIsNamedOnceThatHasEndedIt) {
    AddMusic();
    world_.Files().AddFile("/root/Playlist/x/0.wav", WavBytes(Constant(20'000, 1000)));
    world_.Files().FailReads("/root/Playlist/x/0.wav", EIO, 20'000, 20'000);
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}})));
        Client client("p");
        client.ReadBlocks(4);
        EXPECT_EQ(feed->Report()->Read().badReason, "") << "its beginning plays";
        client.ReadBlocks(12);
        const FeedFigures figures = feed->Report()->Read();
        EXPECT_EQ(figures.badContent, "/root/Playlist/x/0.wav");
        EXPECT_EQ(figures.badReason, "it ended where it could not be read: Input/output error");
        EXPECT_EQ(figures.music, "/root/Playlist/x/a.wav") << "the next one plays";
    });
}

TEST_F(FeedReportTest, AnAnnouncementWithABadSpotIsNamedOnceThatHasEndedIt) {
    AddMusic();
    world_.Files().AddFile("/hello.wav", WavBytes(Constant(30'000, 2000)));
    world_.Files().FailReads("/hello.wav", EIO, 20'000, 20'000);
    world_.Run([&] {
        ScriptedDraws draws;
        draws.Then(0, 1);
        draws.Then(0, 2);
        draws.Then(0, 1);
        Orv::AnnouncementTable::Instance().Store(MakeAnnouncement("hello", 0, "/hello.wav"));
        FeedHolder feed(new IPipeFeed(MakeFeed(
            {{"feedtype", 3}, {"playannouncements", 1}, {"minannouncementpause", 1}, {"maxannouncementpause", 1}})));
        Client client("p");
        client.ReadBlocks(28);
        const FeedFigures figures = feed->Report()->Read();
        EXPECT_EQ(figures.badContent, "/hello.wav");
        EXPECT_EQ(figures.badReason, "it ended where it could not be read: Input/output error");
        Orv::AnnouncementTable::Instance().Clear();
    });
}

// The next file was blamed when a change had begun it between the failed read and the telling.
TEST_F(FeedReportTest, AFileThatEndedAtABadSpotIsNamedAlsoWhenAnotherOneIsToPlayByThen) {
    AddMusic();
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}})));
        feed->OnContentEvent({Orv::ContentEvent::ContentFinished, Orv::ContentIds::MusicFile, EIO, "/before.wav"});
        const FeedFigures figures = feed->Report()->Read();
        EXPECT_EQ(figures.badContent, "/before.wav");
        EXPECT_EQ(figures.badReason, "it ended where it could not be read: Input/output error");
        EXPECT_EQ(figures.music, "/root/Playlist/x/a.wav");
    });
}

// It showed the row that the channel was built from, and no level before the first block.
TEST_F(FeedReportTest, AnIdleFeedShowsItsRowAndItsLevelAlsoAfterAChangeThatLeavesItStanding) {
    AddMusic();
    world_.Run([&] {
        const Orv::FeedRow before = MakeFeed({{"feedtype", 3}, {"maxvolume", 50}});
        const Orv::FeedRow after =
            MakeFeed({{"feedtype", 3}, {"maxvolume", 40}, {"autogain", 1}, {"minannouncementpause", 5}});
        Orv::IPipeManager::Instance()->UpdateFeed(before, {});
        Sleep(500);
        const auto report = Orv::IPipeManager::Instance()->Reports().at(0);
        EXPECT_EQ(report->Read().level, (Orv::LevelSetting{16383, false}));
        Orv::IPipeManager::Instance()->UpdateFeed(after, before);
        EXPECT_EQ(report->Row().Number("maxvolume"), 40);
        EXPECT_EQ(report->Row().Number("autogain"), 1);
        EXPECT_EQ(report->Row().Number("minannouncementpause"), 5);
        Sleep(500);
        EXPECT_EQ(Orv::IPipeManager::Instance()->Reports().at(0), report) << "it is the same channel";
        EXPECT_EQ(report->Read().level, (Orv::LevelSetting{13106, true}));
        EXPECT_EQ(report->Read().blocks, 0U);
    });
}

TEST_F(FeedReportTest, AnnouncementsAreCountedAndNamedWhileTheyPlay) {
    AddMusic();
    world_.Files().AddFile("/hello.wav", WavBytes(Constant(16'000, 2000)));
    world_.Run([&] {
        ScriptedDraws draws;
        draws.Then(0, 1);
        draws.Then(0, 2);
        Orv::AnnouncementTable::Instance().Store(MakeAnnouncement("hello", 0, "/hello.wav"));
        FeedHolder feed(new IPipeFeed(MakeFeed(
            {{"feedtype", 3}, {"playannouncements", 1}, {"minannouncementpause", 1}, {"maxannouncementpause", 1}})));
        Client client("p");
        EXPECT_EQ(feed->Report()->Read().announcement, "");
        client.ReadBlocks(16);
        const FeedFigures figures = feed->Report()->Read();
        EXPECT_EQ(figures.announcements, 1u);
        EXPECT_EQ(figures.announcement, "/hello.wav");
        Orv::AnnouncementTable::Instance().Clear();
    });
}

TEST_F(FeedReportTest, APipeThatCannotBeServedAndAThreadThatCannotStartAreTold) {
    world_.Pipes().FailInstances("p", EACCES);
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}})));
        Sleep(300);
        EXPECT_EQ(feed->Report()->Read().pipeError, static_cast<u32>(EACCES));
        world_.Pipes().ClearFaults();
        Sleep(300);
        EXPECT_EQ(feed->Report()->Read().pipeError, 0u);
        world_.Sim().FailThreadStarts(1);
        FeedHolder dead(new IPipeFeed(MakeFeed({{"feedtype", 3}, {"pipename", "q"}})));
        EXPECT_FALSE(dead->Report()->Read().hasThread);
    });
}

TEST_F(FeedReportTest, AReportOutlivesItsChannelAndKeepsNoPipe) {
    world_.Run([&] {
        std::shared_ptr<const Orv::FeedReport> report;
        {
            FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}})));
            report = feed->Report();
            Sleep(300);
            EXPECT_TRUE(world_.Pipes().IsServed("p"));
        }
        EXPECT_FALSE(world_.Pipes().IsServed("p"));
        EXPECT_STREQ(report->Row().Text("pipename"), "p");
    });
}

}  // namespace
