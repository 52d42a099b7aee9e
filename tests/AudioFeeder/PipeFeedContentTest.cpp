// What a channel plays and when: the playlist, the fall-backs and the cycle of pauses and announcements, told by the
// log and heard by clients.
#include <gtest/gtest.h>

#include <algorithm>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/PipeFeed.h"
#include "AudioFeeder/SharedValues.h"
#include "Platform/Random.h"
#include "Projects/Common/VoIPFileEngine/MusicBox.h"
#include "tests/AudioFeeder/FeederWorld.h"
#include "tests/AudioFeeder/SetModel.h"

namespace {

using namespace FeederTest;
using Orv::IPipeFeed;
using FeedHolder = MTObjects::THolder<IPipeFeed>;
using Texts = std::vector<std::string>;

class ContentTest : public testing::Test {
protected:
    // A file of one block.
    void AddShort(const std::string& name, const std::string& folder = "/root/Playlist/x") {
        const bool wav = name.size() > 4 && name.substr(name.size() - 4) != ".raw";
        const Samples sound = Noise(500, static_cast<u32>(name.size()));
        world_.Files().AddFile(folder + "/" + name, wav ? WavBytes(sound) : RawBytes(sound));
    }
    // What a nonstop channel of that row starts in ten seconds, in order, without the folder.
    Texts Play(std::initializer_list<Field> fields, u32 milliseconds = 10'000) {
        Orv::FeedRow row = MakeFeed(fields);
        VXSetInt32Value(row.base.Get(), "nonstop", 1);
        FeedHolder feed(new IPipeFeed(row));
        Sleep(milliseconds);
        feed->Shutdown();
        return Started();
    }
    Texts Started() {
        Texts names;
        for (const std::string& line : world_.LogOf("Start next audio file ")) {
            names.push_back(line.substr(line.rfind('/') + 1));
        }
        return names;
    }
    Texts Bodies(const std::string& part) {
        Texts texts;
        for (const std::string& line : world_.LogOf(part)) {
            texts.push_back(line.substr(0, 6) + line.substr(line.find("]:") + 2));
        }
        return texts;
    }

    FeederWorld world_;
};

TEST_F(ContentTest, ASortedFolderPlaysUpperCaseFirstWithTheMasksMergedByTheSort) {
    AddShort("a.wav");
    AddShort("B.raw");
    AddShort("c.wav");
    world_.Run([&] {
        const Texts started = Play({{"feedtype", 3}});
        ASSERT_GT(started.size(), 6U);
        EXPECT_EQ(Texts(started.begin(), started.begin() + 6),
                  (Texts{"B.raw", "a.wav", "c.wav", "B.raw", "a.wav", "c.wav"}));
    });
    EXPECT_EQ(world_.CountLog("r:"), 0U) << "nothing is logged by a sort";
}

TEST_F(ContentTest, StartNextAudioFileIsToldAtTraceWithTheWholePath) {
    AddShort("a.wav");
    world_.Run([&] {
        Play({{"feedtype", 3}}, 300);
        EXPECT_EQ(Bodies("Start next").front(), "Trace|Start next audio file /root/Playlist/x/a.wav");
    });
}

TEST_F(ContentTest, APlaylistOfOneFilePlaysItAgainAndAgainAndRebuildsBetweenEach) {
    AddShort("a.wav");
    world_.Run([&] {
        const Texts started = Play({{"feedtype", 3}});
        ASSERT_GT(started.size(), 20U);
        const Texts builds = Bodies("Build playlist");
        EXPECT_EQ(builds.size(), started.size() - 1) << "the build of the start is not told";
        EXPECT_EQ(builds.front(), "Trace|Build playlist");
        // One block of sound and one null block for each turn.
        EXPECT_NEAR(static_cast<double>(started.size()), 10'000 / 250.0, 3);
    });
}

TEST_F(ContentTest, FilesAddedLaterAreSeenAtTheNextBuildOnly) {
    AddShort("b.wav");
    AddShort("c.wav");
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}, {"nonstop", 1}})));
        AddShort("a.wav");
        AddShort("d.wav");
        Sleep(1'500);
        const Texts started = Started();
        ASSERT_GE(started.size(), 6U);
        EXPECT_EQ(Texts(started.begin(), started.begin() + 6),
                  (Texts{"b.wav", "c.wav", "a.wav", "b.wav", "c.wav", "d.wav"}));
    });
}

// The first shuffle is drawn on the thread that builds the channel, the later ones on the pump's, whose generator was
// seeded by its start with the steady clock.
TEST_F(ContentTest, AShuffleRunsInTheOrderOfTheDrawnKeysAndIsDrawnAnewForEachRound) {
    for (const char* name : {"a.wav", "b.wav", "c.raw", "d.wav", "e.wav"}) AddShort(name);
    const Texts folder{"a.wav", "b.wav", "d.wav", "e.wav", "c.raw"};
    world_.Run([&] {
        Platform::SeedThreadRand(4711);
        const u32 pumpSeed = static_cast<u32>(Now());
        const Texts started = Play({{"feedtype", 2}});

        Texts expectedDraws;
        Texts expectedOrder;
        for (const u32 seed : {4711U, pumpSeed}) {
            Platform::SeedThreadRand(seed);
            std::vector<std::pair<i32, std::string>> keys;
            for (const std::string& name : folder) keys.emplace_back(Platform::ThreadRand(), name);
            for (const auto& [key, name] : keys) {
                expectedDraws.push_back(" Info|r:" + std::to_string(key) + "<->/root/Playlist/x/" + name);
            }
            std::stable_sort(keys.begin(), keys.end(),
                             [](const auto& left, const auto& right) { return left.first < right.first; });
            for (const auto& [key, name] : keys) expectedOrder.push_back(name);
        }
        const Texts draws = Bodies("]:r:");
        ASSERT_GE(draws.size(), 15U);
        EXPECT_EQ(Texts(draws.begin(), draws.begin() + 10), expectedDraws);
        ASSERT_GE(started.size(), 11U);
        EXPECT_EQ(Texts(started.begin(), started.begin() + 10), expectedOrder);
    });
}

TEST_F(ContentTest, APathSeparatorInTheFeedsNameSimplyBecomesPartOfTheFolderPath) {
    AddShort("a.wav", "/root/Playlist/floor2/lobby");
    world_.Run([&] { EXPECT_EQ(Play({{"thename", "floor2/lobby"}, {"feedtype", 3}}, 100).front(), "a.wav"); });
}

TEST_F(ContentTest, ANewRootPathCountsFromTheNextBuildOfAPlaylist) {
    AddShort("a.wav");
    AddShort("b.wav", "/other/Playlist/x");
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}, {"nonstop", 1}})));
        Orv::SetRootPath("/other/");
        Sleep(1'000);
        const Texts started = Started();
        ASSERT_GE(started.size(), 2U);
        EXPECT_EQ(started[0], "a.wav");
        EXPECT_EQ(started[1], "b.wav");
    });
}

TEST_F(ContentTest, AMissingFolderPlaysTheDefaultAudioFileAndWarnsAtEachOfItsEnds) {
    AddShort("d.raw", "/sounds");
    world_.Run([&] {
        Orv::SetDefaultAudioFile("/sounds/d.raw");
        EXPECT_TRUE(Play({{"feedtype", 3}}).empty());
        const Texts warnings = Bodies("PlayList is empty");
        EXPECT_EQ(warnings.front(), " Warn|PlayList is empty. Start default audio file - /sounds/d.raw");
        EXPECT_NEAR(static_cast<double>(warnings.size()), 10'000 / 250.0, 3);
        EXPECT_EQ(Bodies("Build playlist").size(), warnings.size() - 1);
    });
}

TEST_F(ContentTest, AFeedWithoutANameHasNoFolderAndPlaysTheDefaultAudioFile) {
    AddShort("a.wav", "/root/Playlist");
    AddShort("d.raw", "/sounds");
    world_.Run([&] {
        Orv::SetDefaultAudioFile("/sounds/d.raw");
        EXPECT_TRUE(Play({{"thename", ""}, {"feedtype", 2}}, 1'000).empty());
        EXPECT_GE(Bodies("PlayList is empty. Start default audio file - /sounds/d.raw").size(), 3U);
    });
}

TEST_F(ContentTest, ANewDefaultAudioFileReachesAChannelAtItsNextFallBack) {
    AddShort("d.raw", "/sounds");
    AddShort("e.raw", "/sounds");
    world_.Run([&] {
        Orv::SetDefaultAudioFile("/sounds/d.raw");
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}, {"nonstop", 1}})));
        Orv::SetDefaultAudioFile("/sounds/e.raw");
        Sleep(1'000);
        const Texts warnings = Bodies("PlayList is empty");
        EXPECT_NE(warnings[0].find("d.raw"), std::string::npos);
        EXPECT_NE(warnings[1].find("e.raw"), std::string::npos);
    });
}

TEST_F(ContentTest, ADefaultAudioFileThatCannotBeOpenedRepeatsTheWarningOnceForEachBlockAndSendsSilence) {
    world_.Run([&] {
        Orv::SetDefaultAudioFile("/sounds/none.raw");
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}})));
        Client client("p");
        const u64 before = Bodies("PlayList is empty").size();
        EXPECT_EQ(client.ReadBlocks(20), Constant(20'000, 0));
        EXPECT_NEAR(static_cast<double>(Bodies("PlayList is empty").size() - before), 20, 3);
    });
}

TEST_F(ContentTest, WhenEveryFileFailsTheChannelMovesOnByOneFilePerBlockAndSendsSilence) {
    for (const char* name : {"a.wav", "b.wav", "c.wav"}) {
        world_.Files().AddFile(std::string("/root/Playlist/x/") + name, "no sound");
    }
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}})));
        Client client("p");
        const u64 before = Started().size();
        EXPECT_EQ(client.ReadBlocks(30), Constant(30'000, 0));
        EXPECT_NEAR(static_cast<double>(Started().size() - before), 30, 3);
    });
}

TEST_F(ContentTest, TheLineInputIsNotThereAndItsFeedPlaysWhatKindZeroPlays) {
    AddShort("d.raw", "/sounds");
    world_.Run([&] {
        Orv::SetDefaultAudioFile("/sounds/d.raw");
        FeedHolder line(new IPipeFeed(MakeFeed({{"feedtype", 1}, {"pipename", "line"}})));
        FeedHolder plain(new IPipeFeed(MakeFeed({{"feedtype", 0}, {"pipename", "plain"}})));
        EXPECT_EQ(Bodies("LINEIN"), Texts{" Info|LINEIN is not available. Play as default stream"});
        Listener first("line");
        Listener second("plain");
        Sleep(4'000);
        first.Stop();
        second.Stop();
        const std::size_t common = std::min(first.Heard().size(), second.Heard().size());
        ASSERT_GT(common, 25'000U);
        EXPECT_EQ(Part(first.Heard(), 0, common), Part(second.Heard(), 0, common));
        EXPECT_GT(std::count_if(first.Heard().begin(), first.Heard().end(), [](i16 s) { return s != 0; }), 1000);
    });
}

// The channels of the shared box end when it goes; `feedtype` does not matter any more then, but for the sort.
TEST_F(ContentTest, AChannelWhoseBoxEndsShufflesTheFolderNamedAfterItAndElsePlaysTheDefaultAudioFile) {
    AddShort("d.raw", "/sounds");
    AddShort("a.wav");
    AddShort("b.wav");
    world_.Run([&] {
        Orv::SetDefaultAudioFile("/sounds/d.raw");
        FeedHolder folder(new IPipeFeed(MakeFeed({{"feedtype", 0}, {"nonstop", 1}})));
        FeedHolder none(
            new IPipeFeed(MakeFeed({{"feedtype", 0}, {"nonstop", 1}, {"thename", "none"}, {"pipename", "q"}})));
        Sleep(3'000);
        EXPECT_TRUE(Started().empty());
        Orv::UnregisterMusicBox("defaultset:", true);
        Sleep(1'000);
        EXPECT_GE(Started().size(), 2U);
        EXPECT_GE(Bodies("]:r:").size(), 2U);
        EXPECT_GE(world_.CountLog("Channel none as q"), 3U);
        EXPECT_GE(Bodies("PlayList is empty").size(), 1U);
    });
}

TEST_F(ContentTest, ASecondStartThrowsAwayWhatIsPlayingAndTakesTheNextFileOfANewBuild) {
    const Samples first = Noise(100'500, 1);
    const Samples second = Noise(100'500, 2);
    world_.Files().AddFile("/root/Playlist/x/a.raw", RawBytes(first));
    world_.Files().AddFile("/root/Playlist/x/b.raw", RawBytes(second));
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}})));
        Client client("p");
        EXPECT_EQ(client.ReadBlocks(20), ExpectedStream({first}, 20));
        feed->Start();
        // The build begins with the first file again; the ramp has reached its end and stays there.
        EXPECT_EQ(client.ReadBlocks(20), Blocks(first, 0, 20));
        EXPECT_EQ(Started(), (Texts{"a.raw", "a.raw"}));
    });
}

// A frame that has been handed out stays what it was, although its reader is gone: the write of it is still waiting.
TEST_F(ContentTest, AStartWhileAWriteWaitsDoesNotChangeTheBlockThatIsBeingWritten) {
    const Samples sound = Noise(100'500, 1);
    world_.Files().AddFile("/root/Playlist/x/a.raw", RawBytes(sound));
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}})));
        Client client("p");
        EXPECT_EQ(client.ReadBlocks(20), ExpectedStream({sound}, 20));
        Sleep(2'000);
        ASSERT_EQ(world_.Pipes().Counters().writersBlocked, 1U);
        feed->Start();
        // Two blocks in the pipe, one in the write that waits, then the new content.
        EXPECT_EQ(client.ReadBlocks(3), Blocks(sound, 20, 3));
        EXPECT_EQ(client.ReadBlocks(10), Blocks(sound, 0, 10));
    });
}

TEST_F(ContentTest, EventsOfAnotherKindOrWithoutAMeaningDoNothing) {
    AddShort("a.wav");
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}})));
        Sleep(50);
        const std::size_t before = world_.Log().size();
        feed->OnContentEvent({2, 2});
        feed->OnContentEvent({0, 2});
        for (const u32 id : {0U, 1U, 5U, 11U}) feed->OnContentEvent({1, id});
        EXPECT_EQ(world_.Log().size(), before);
        // Without announcements the ends of a pause and of an announcement mean nothing either.
        feed->OnContentEvent({1, 3});
        feed->OnContentEvent({1, 4});
        EXPECT_EQ(world_.Log().size(), before);
        feed->OnContentEvent({1, 2});
        EXPECT_GT(world_.Log().size(), before);
    });
}

}  // namespace
