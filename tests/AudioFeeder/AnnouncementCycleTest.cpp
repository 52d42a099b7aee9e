// The cycle of pauses and announcements: which draws it makes, what it tells the log, and what the listener hears,
// sample for sample against a model of its own.
#include <gtest/gtest.h>

#include <algorithm>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/ContentItems.h"
#include "AudioFeeder/PipeFeed.h"
#include "tests/AudioFeeder/FeederWorld.h"
#include "tests/AudioFeeder/SetModel.h"

namespace {

using namespace FeederTest;
using Orv::AnnouncementTable;
using Orv::IPipeFeed;
using FeedHolder = MTObjects::THolder<IPipeFeed>;
using Texts = std::vector<std::string>;

class AnnouncementTest : public testing::Test {
protected:
    void SetUp() override {
        AnnouncementTable::Instance().Clear();
        world_.Files().AddFile("/root/Playlist/x/music.raw", RawBytes(music_));
        world_.Files().AddFile("/spoken.raw", RawBytes(spoken_));
    }
    static FeedHolder Feed(i32 minPause, i32 maxPause, bool nonstop = false) {
        return new IPipeFeed(MakeFeed({{"feedtype", 3},
                                       {"playannouncements", 1},
                                       {"nonstop", nonstop ? 1 : 0},
                                       {"minannouncementpause", minPause},
                                       {"maxannouncementpause", maxPause}}));
    }
    // The lines about pauses and announcements, without the prefix.
    Texts Cycle() {
        Texts texts;
        for (const LogLine& line : world_.Log()) {
            const std::size_t prefix = line.text.find("]:");
            if (line.word != "Trace" || prefix == std::string::npos) continue;
            const std::string text = line.text.substr(prefix + 2);
            if (text.find("nnouncement") != std::string::npos) texts.push_back(text);
        }
        return texts;
    }

    FeederWorld world_;
    const Samples music_ = Noise(900'500, 1);
    const Samples spoken_ = Noise(13'500, 2);  // 14 blocks
};

TEST_F(AnnouncementTest, ASilenceItemIsAGapBetweenNumberSignsAndALeadInHasOneMoreInFront) {
    const Orv::StreamItem leadIn = Orv::MakeSilenceItem(1, 10, true);
    EXPECT_EQ(leadIn.name, "##1#");
    EXPECT_EQ(leadIn.id, 10U);
    EXPECT_FALSE(leadIn.isText);
    const Orv::StreamItem pause = Orv::MakeSilenceItem(12, 0, false);
    EXPECT_EQ(pause.name, "#12#");
    EXPECT_EQ(pause.id, 0U);
    EXPECT_EQ(Orv::MakeSilenceItem(0, 0, false).name, "#0#");
}

TEST_F(AnnouncementTest, ANegativePauseGivesANameWithAMinus) {
    EXPECT_EQ(Orv::MakeSilenceItem(-5, 0, false).name, "#-5#");
    EXPECT_EQ(Orv::MakeSilenceItem(-2147483647 - 1, 0, false).name, "#-2147483648#");
}

TEST_F(AnnouncementTest, TheFirstAnnouncementComesAfterAPauseThatStartsWithTheContent) {
    ScriptedDraws draws;
    draws.Then(4, 11);
    world_.Run([&] {
        FeedHolder feed = Feed(10, 20);
        EXPECT_EQ(Cycle(), Texts{"Pause announcement: for 14 seconds"});
    });
}

TEST_F(AnnouncementTest, WithOneAnnouncementHalfOfAllDrawsPlayItAndHalfArePauses) {
    AnnouncementTable::Instance().Store(MakeAnnouncement("hello", 0, "/spoken.raw"));
    ScriptedDraws draws;
    draws.Then(0, 1);  // pause
    draws.Then(1, 2);  // the second of two outcomes: another pause
    draws.Then(0, 1);
    draws.Then(0, 2);  // the first one: the announcement
    draws.Then(0, 1);
    world_.Run([&] {
        FeedHolder feed = Feed(1, 1, true);
        Sleep(5'300);
        EXPECT_EQ(Cycle(), (Texts{"Pause announcement: for 1 seconds", "Invalid announcement: pause for 1 seconds",
                                  "Play announcement: hello(0)[/spoken.raw]", "Pause announcement: for 1 seconds"}));
        EXPECT_EQ(draws.Taken(), 5U);
    });
}

// 2,000 real draws: the outcomes come about equally often.
TEST_F(AnnouncementTest, TheDrawsOfTheProcessEngineSplitEvenlyBetweenTheAnnouncementAndThePause) {
    AnnouncementTable::Instance().Store(MakeAnnouncement("hello", 0, "/none.raw"));
    world_.Run([&] {
        FeedHolder feed = Feed(0, 0, true);
        Sleep(600'000);
        const Texts cycle = Cycle();
        const auto played = std::count(cycle.begin(), cycle.end(), "Play announcement: hello(0)[/none.raw]");
        const auto paused = std::count(cycle.begin(), cycle.end(), "Invalid announcement: pause for 0 seconds");
        ASSERT_GT(played + paused, 500);
        EXPECT_NEAR(static_cast<double>(played) / static_cast<double>(played + paused), 0.5, 0.15);
    });
}

TEST_F(AnnouncementTest, WithoutAnyAnnouncementEveryOutcomeIsThePause) {
    world_.Run([&] {
        FeedHolder feed = Feed(1, 1, true);
        Sleep(10'000);
        Texts cycle = Cycle();
        ASSERT_GE(cycle.size(), 8U);
        EXPECT_EQ(cycle[0], "Pause announcement: for 1 seconds");
        for (std::size_t line = 1; line < cycle.size(); ++line) {
            EXPECT_EQ(cycle[line], "Invalid announcement: pause for 1 seconds");
        }
    });
}

TEST_F(AnnouncementTest, AnnouncementsAreDrawnFromAllNamesInKeyOrder) {
    AnnouncementTable::Instance().Store(MakeAnnouncement("b", 0, "/none.raw"));
    AnnouncementTable::Instance().Store(MakeAnnouncement("a", 0, "/none.raw"));
    AnnouncementTable::Instance().Store(MakeAnnouncement("C", 0, "/none.raw"));
    ScriptedDraws draws;
    draws.Then(0, 1);
    for (const u32 index : {0U, 1U, 2U, 3U}) {
        draws.Then(index, 4);
        draws.Then(0, 1);
    }
    world_.Run([&] {
        FeedHolder feed = Feed(1, 1, true);
        Sleep(8'000);
        Texts expected{"Play announcement: C(0)[/none.raw]", "Play announcement: a(0)[/none.raw]",
                       "Play announcement: b(0)[/none.raw]", "Invalid announcement: pause for 1 seconds"};
        Texts drawn;
        for (const std::string& line : Cycle()) {
            if (!line.starts_with("Pause")) drawn.push_back(line);
        }
        EXPECT_EQ(drawn, expected);
    });
}

TEST_F(AnnouncementTest, ARowWithoutItsIdCountsAsInvalid) {
    AnnouncementTable::Instance().Store(MakeRow({{"thename", "ghost"}, {"thefile", "/spoken.raw"}}));
    ScriptedDraws draws;
    draws.Then(0, 1);
    draws.Then(0, 2);
    draws.Then(0, 1);
    world_.Run([&] {
        FeedHolder feed = Feed(1, 1, true);
        Sleep(1'500);
        EXPECT_EQ(Cycle().back(), "Invalid announcement: pause for 1 seconds");
    });
}

TEST_F(AnnouncementTest, EqualBoundsAlwaysGiveThatPause) {
    world_.Run([&] {
        FeedHolder feed = Feed(2, 2, true);
        Sleep(20'000);
        for (const std::string& line : Cycle()) EXPECT_TRUE(line.ends_with("for 2 seconds")) << line;
        EXPECT_GE(Cycle().size(), 8U);
    });
}

// From 3 to 1 there are 2^32 - 1 values, 2 excepted; the value in the middle of them is 3 + (2^31 - 1), wrapped.
TEST_F(AnnouncementTest, ALowerBoundAboveTheUpperOneDrawsOverTheWrappedRange) {
    ScriptedDraws draws;
    draws.Then(0x7FFFFFFF, 0xFFFFFFFF);
    world_.Run([&] {
        FeedHolder feed = Feed(3, 1);
        EXPECT_EQ(Cycle(), Texts{"Pause announcement: for -2147483646 seconds"});
    });
}

class ShortPauseTest : public AnnouncementTest, public testing::WithParamInterface<i32> {};

TEST_P(ShortPauseTest, APauseOfZeroOrLessEndsAtOnceAndTheNextDrawFollowsAtTheNextBlock) {
    world_.Run([&] {
        FeedHolder feed = Feed(GetParam(), GetParam());
        Client client("p");
        client.ReadBlocks(20);
        const std::string text = "Invalid announcement: pause for " + std::to_string(GetParam()) + " seconds";
        EXPECT_NEAR(static_cast<double>(world_.CountLog(text)), 20, 3) << "one draw for each block";
    });
}

INSTANTIATE_TEST_SUITE_P(Pauses, ShortPauseTest, testing::Values(0, -5));

TEST_F(AnnouncementTest, APauseOfNSecondsTakesEightTimesNPlusOneBlocks) {
    world_.Run([&] {
        FeedHolder feed = Feed(2, 2);
        Client client("p");
        client.ReadBlocks(16);
        Sleep(20);
        // Up to two blocks more wait in the pipe: the 17th, whose call ends the pause, is among them by the next look.
        EXPECT_EQ(Cycle().size(), 1U);
        client.ReadBlocks(1);
        Sleep(20);
        EXPECT_EQ(Cycle().size(), 2U);
    });
}

// --- what is heard --------------------------------------------------------------------------------------------------

// A channel with pauses of one second and one announcement that is drawn each time, block by block.
Samples ExpectedCycle(const Samples& music, const Samples& spoken, bool alone, std::size_t count) {
    enum class Phase { Pause, LeadIn, Speech };
    FilesModel main({music});
    SetModel set;
    Phase phase = Phase::Pause;
    std::size_t left = 8;  // blocks of the gap
    std::size_t position = 0;
    bool mainIsRead = true;
    Samples stream;
    for (std::size_t block = 0; block < count; ++block) {
        Frame below;
        if (mainIsRead) {
            below = main.Next();
        } else {
            set.Forget();
        }
        Frame above;
        bool leadInOver = false;
        bool speechOver = false;
        if (phase == Phase::Pause) {
            if (left-- == 0) {  // the call that finds the gap over gives nothing
                phase = Phase::LeadIn;
                left = 8;
            }
        } else {
            if (phase == Phase::LeadIn && left-- == 0) {  // the speech begins in the same call
                phase = Phase::Speech;
                position = 0;
                leadInOver = true;
            }
            if (phase == Phase::LeadIn) {
                above = Constant(1000, 0);
            } else if (position < spoken.size()) {
                above = Part(spoken, position, 1000);
                above->resize(1000, 0);
                position += 1000;
            } else {
                speechOver = true;
            }
        }
        const Samples out = set.Mix(below, above);
        stream.insert(stream.end(), out.begin(), out.end());
        if (leadInOver) mainIsRead = !alone;
        if (speechOver) {
            mainIsRead = true;
            phase = Phase::Pause;
            left = 8;
        }
    }
    return stream;
}

class HeardAnnouncementTest : public AnnouncementTest {
protected:
    void Compare(i32 type, bool alone) {
        AnnouncementTable::Instance().Store(MakeAnnouncement("hello", type, "/spoken.raw"));
        ScriptedDraws draws;
        draws.Then(0, 1);
        for (int round = 0; round < 20; ++round) {
            draws.Then(0, 2);
            draws.Then(0, 1);
        }
        world_.Run([&] {
            FeedHolder feed = Feed(1, 1);
            Client client("p");
            const std::size_t blocks = 400;
            const Samples heard = client.ReadBlocks(blocks);
            const Samples expected = ExpectedCycle(music_, spoken_, alone, blocks);
            ASSERT_EQ(heard.size(), expected.size());
            const auto difference = std::mismatch(heard.begin(), heard.end(), expected.begin());
            EXPECT_EQ(difference.first - heard.begin(), static_cast<std::ptrdiff_t>(heard.size()))
                << "differs in block " << (difference.first - heard.begin()) / 1000;
            EXPECT_GT(world_.CountLog("Play announcement"), 10U);
        });
    }
};

TEST_F(HeardAnnouncementTest, AnAnnouncementOfType0PlaysOverTheLoweredMusicSampleForSample) {
    Compare(0, false);
}

TEST_F(HeardAnnouncementTest, AnAnnouncementOfType1PlaysAloneWithTheMusicsPlaceHeldSampleForSample) {
    Compare(1, true);
}

TEST_F(HeardAnnouncementTest, ATypeOtherThan0And1ActsAs0) {
    Compare(7, false);
}

TEST_F(HeardAnnouncementTest, AnAnnouncementThatCannotBeOpenedStillPlaysItsLeadInAndThenThePauseFollows) {
    AnnouncementTable::Instance().Store(MakeAnnouncement("hello", 1, "/none.raw"));
    ScriptedDraws draws;
    for (int round = 0; round < 10; ++round) {
        draws.Then(0, 1);
        draws.Then(0, 2);
    }
    world_.Run([&] {
        FeedHolder feed = Feed(1, 1);
        Client client("p");
        // The file's end and the list's come in the call in which the lead-in ends, so the mask of that end, 2, is
        // followed at once by the next pause's 3, and the music is never away.
        EXPECT_EQ(client.ReadBlocks(60), ExpectedCycle(music_, {}, false, 60));
    });
}

TEST_F(HeardAnnouncementTest, WithoutAnnouncementsTheOverlayListIsSilentForEver) {
    AnnouncementTable::Instance().Store(MakeAnnouncement("hello", 0, "/spoken.raw"));
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}, {"minannouncementpause", 1}})));
        Client client("p");
        EXPECT_EQ(client.ReadBlocks(100), ExpectedStream({music_}, 100));
        EXPECT_TRUE(Cycle().empty());
    });
}

}  // namespace
