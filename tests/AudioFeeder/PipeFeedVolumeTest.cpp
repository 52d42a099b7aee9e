// The volume control inside a channel: which setting counts, when a change is taken up, what the log tells, and that no
// other listener hears it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/PipeFeed.h"
#include "AudioFeeder/SharedValues.h"
#include "tests/AudioFeeder/ControlModel.h"
#include "tests/AudioFeeder/FeederWorld.h"
#include "tests/AudioFeeder/SetModel.h"

namespace {

using namespace FeederTest;
using Orv::IPipeFeed;
using FeedHolder = MTObjects::THolder<IPipeFeed>;
using Texts = std::vector<std::string>;

i32 Loudest(const Samples& samples) {
    i32 loudest = 0;
    for (const i16 sample : samples) loudest = std::max(loudest, std::abs(static_cast<i32>(sample)));
    return loudest;
}

class FeedVolumeTest : public testing::Test {
protected:
    void SetUp() override { world_.Files().AddFile("/root/Playlist/x/loud.raw", RawBytes(Constant(400'500, 20'000))); }
    static FeedHolder Feed(std::initializer_list<Field> fields = {}) {
        Orv::FeedRow row = MakeFeed(fields);
        if (VXParamInfo(row.base.Get(), "feedtype") == nullptr) VXSetInt32Value(row.base.Get(), "feedtype", 3);
        return new IPipeFeed(row);
    }
    Texts VolumeLines() {
        Texts texts;
        for (const std::string& line : world_.LogOf("]:Volume control")) {
            texts.push_back(line.substr(0, 6) + line.substr(line.find("]:") + 2));
        }
        return texts;
    }

    FeederWorld world_;
};

TEST_F(FeedVolumeTest, ANewChannelTellsItsOwnLimitWhenItsRowHasOne) {
    world_.Run([&] {
        Orv::SetMaxVolume(30);
        Orv::SetAutogain(true);
        FeedHolder feed = Feed({{"maxvolume", 50}, {"autogain", 0}});
        EXPECT_EQ(VolumeLines(), Texts{"Trace|Volume control: MaxVolume=50%, autogain disabled"});
    });
}

TEST_F(FeedVolumeTest, ANewChannelWithoutMaxVolumeStartsWithTheGlobalPairAndDoesNotReadItsAutogain) {
    world_.Run([&] {
        Orv::SetMaxVolume(30);
        FeedHolder feed = Feed({{"autogain", 1}});
        EXPECT_EQ(VolumeLines(), Texts{"Trace|Volume control: MaxVolume=30%, autogain disabled"});
    });
}

TEST_F(FeedVolumeTest, ANewChannelWithoutAnyLimitTellsThatItsControlIsOff) {
    world_.Run([&] {
        FeedHolder feed = Feed();
        EXPECT_EQ(VolumeLines(), Texts{"Trace|Volume control is turned off"});
    });
}

TEST_F(FeedVolumeTest, AMaxVolumeOf0InTheRowIsOffAtFirstAndFollowsTheGlobalPairAtTheFirstBlock) {
    world_.Run([&] {
        Orv::SetMaxVolume(30);
        Orv::SetAutogain(true);
        FeedHolder feed = Feed({{"maxvolume", 0}, {"autogain", 0}});
        Client client("p");
        client.ReadBlocks(1);
        Sleep(1);
        EXPECT_EQ(VolumeLines()[0], "Trace|Volume control is turned off");
        EXPECT_EQ(VolumeLines()[1], "Trace|Volume control has been updated MaxVolume=30%, autogain enabled");
    });
}

TEST_F(FeedVolumeTest, AMaxVolumeOutsideZeroToAHundredIsClamped) {
    world_.Run([&] {
        FeedHolder high = Feed({{"maxvolume", 250}});
        FeedHolder low = Feed({{"maxvolume", -7}, {"pipename", "q"}});
        EXPECT_EQ(VolumeLines(), (Texts{"Trace|Volume control: MaxVolume=100%, autogain disabled",
                                        "Trace|Volume control is turned off"}));
    });
}

TEST_F(FeedVolumeTest, NoSampleOfAFeedWithALimitLeavesAboveItWithAndWithoutAutogain) {
    world_.Run([&] {
        FeedHolder plain = Feed({{"maxvolume", 50}, {"autogain", 0}});
        FeedHolder automatic = Feed({{"maxvolume", 50}, {"autogain", 1}, {"pipename", "q"}});
        Client first("p");
        Client second("q");
        const Samples limited = first.ReadBlocks(30);
        EXPECT_LE(Loudest(limited), 16'383);
        EXPECT_GE(Loudest(limited), 16'380);
        EXPECT_LE(Loudest(second.ReadBlocks(30)), 16'383);
    });
}

// What the channel sends is what the control makes of the finished mix, block by block.
TEST_F(FeedVolumeTest, TheControlWorksOnTheFinishedMixBlockByBlock) {
    world_.Run([&] {
        FeedHolder feed = Feed({{"maxvolume", 40}, {"autogain", 1}});
        Client client("p");
        const Samples heard = client.ReadBlocks(30);
        const Samples mix = ExpectedStream({Constant(400'500, 20'000)}, 30);
        ControlModel control(13'106, true);  // 40 * 32767 / 100
        Samples expected;
        for (std::size_t block = 0; block < 30; ++block)
            expected = Join({expected, control.Apply(Blocks(mix, block, 1))});
        EXPECT_EQ(heard, expected);
    });
}

TEST_F(FeedVolumeTest, WithoutALimitEverySampleIsSentAsItCame) {
    world_.Run([&] {
        FeedHolder feed = Feed({{"maxvolume", 0}, {"autogain", 1}});
        Client client("p");
        EXPECT_EQ(client.ReadBlocks(30), ExpectedStream({Constant(400'500, 20'000)}, 30));
    });
}

TEST_F(FeedVolumeTest, AChangeOfTheFeedsOwnPairIsInEffectAtTheNextBlockAndIsLogged) {
    world_.Run([&] {
        FeedHolder feed = Feed();
        Client client("p");
        client.ReadBlocks(20);
        Sleep(1'000);  // two blocks in the pipe, a third one in the write
        feed->SetFeedLevel({16'383, false});
        const Samples before = client.ReadBlocks(3);
        EXPECT_EQ(before, Constant(3'000, 20'000));
        const Samples after = client.ReadBlocks(5);
        EXPECT_EQ(Loudest(after), 16'382);
        EXPECT_EQ(VolumeLines().back(), "Trace|Volume control has been updated MaxVolume=50%, autogain disabled");
        EXPECT_EQ(VolumeLines().size(), 2U) << "an equal pair is not told again";
    });
}

TEST_F(FeedVolumeTest, AChangeOfTheFeedsLimitFrom50To0MakesItFollowTheGlobalPairAndTheLogSaysSo) {
    world_.Run([&] {
        FeedHolder feed = Feed({{"maxvolume", 50}});
        Listener client("p");
        Sleep(1'000);
        feed->SetFeedLevel({0, true});
        Sleep(500);
        EXPECT_EQ(VolumeLines().back(), "Trace|Volume control has been turned off");
        feed->SetFeedLevel({16'383, false});
        Sleep(500);
        Orv::SetMaxVolume(20);
        feed->SetFeedLevel({0, true});
        Sleep(500);
        EXPECT_EQ(VolumeLines().back(), "Trace|Volume control has been updated MaxVolume=20%, autogain disabled")
            << "its own autogain is not looked at";
    });
}

TEST_F(FeedVolumeTest, NothingIsLoggedWhenThePairThatCountsIsTheSameAsBefore) {
    world_.Run([&] {
        Orv::SetMaxVolume(50);
        FeedHolder feed = Feed({{"maxvolume", 50}});
        Listener client("p");
        Sleep(1'000);
        feed->SetFeedLevel({0, false});
        Sleep(1'000);
        EXPECT_EQ(VolumeLines().size(), 1U);
    });
}

TEST_F(FeedVolumeTest, AChangeOfTheGlobalLimitReachesARunningChannelAndNotOneWithALimitOfItsOwn) {
    world_.Run([&] {
        FeedHolder follows = Feed();
        FeedHolder owns = Feed({{"pipename", "q"}, {"maxvolume", 100}});
        Listener first("p");
        Listener second("q");
        Sleep(3'000);
        Orv::SetMaxVolume(10);
        Sleep(1'000);
        Orv::SetAutogain(true);
        Sleep(1'000);
        first.Stop();
        second.Stop();
        EXPECT_LE(Loudest(Part(first.Heard(), first.Heard().size() - 5'000, 5'000)), 3'276);
        EXPECT_EQ(Loudest(Part(second.Heard(), second.Heard().size() - 5'000, 5'000)), 20'000);
        u64 changes = 0;
        for (const std::string& line : world_.LogOf("Volume control has been")) {
            EXPECT_NE(line.find("as p["), std::string::npos) << line;
            ++changes;
        }
        EXPECT_EQ(changes, 2U) << "limit and autogain were set one after the other";
    });
}

// A channel whose feedtype is unknown has null blocks only; one that plays has them between files.
TEST_F(FeedVolumeTest, NullBlocksSkipTheControlAltogether) {
    world_.Run([&] {
        FeedHolder feed = Feed({{"feedtype", 9}, {"nonstop", 1}});
        Sleep(1'000);
        Orv::SetMaxVolume(10);
        Sleep(1'000);
        EXPECT_EQ(VolumeLines(), Texts{"Trace|Volume control is turned off"});
    });
}

class EndOfFileTest : public FeedVolumeTest, public testing::WithParamInterface<bool> {};

// The fade-in is over within the first file; then one loud sample sets the level of the rest of that file.
TEST_P(EndOfFileTest, WithoutAutogainEachFileStartsUnscaledAndWithItTheGainCarriesOver) {
    const bool autogain = GetParam();
    Samples first = Constant(20'300, 1'000);
    first[15'000] = 32'000;
    world_.Files().AddFile("/root/Playlist/two/a.raw", RawBytes(first));
    world_.Files().AddFile("/root/Playlist/two/b.raw", RawBytes(Constant(3'500, 1'000)));
    world_.Run([&] {
        FeedHolder feed = Feed({{"thename", "two"}, {"maxvolume", 10}, {"autogain", autogain ? 1 : 0}});
        Client client("p");
        const Samples heard = client.ReadBlocks(24);
        EXPECT_GE(heard[15'000], 3'274);
        EXPECT_LE(heard[15'000], 3'276);
        EXPECT_LT(heard[15'001], 110) << "a tenth of the level, since the peak was ten times the limit";
        EXPECT_EQ(Blocks(heard, 21, 1), Constant(1000, 0)) << "the null block of the change";
        if (autogain) {
            EXPECT_LT(heard[22'000], 500);
        } else {
            EXPECT_EQ(heard[22'000], 1'000);
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Autogain, EndOfFileTest, testing::Bool());

// A file ends under an announcement, so that its last block is no null block.
TEST_F(FeedVolumeTest, TheResetAtTheEndOfAFileComesBehindTheControlOfThatBlock) {
    Orv::AnnouncementTable::Instance().Clear();
    Orv::AnnouncementTable::Instance().Store(MakeAnnouncement("a", 0, "/spoken.raw"));
    world_.Files().AddFile("/spoken.raw", RawBytes(Constant(40'500, 2'000)));
    world_.Files().AddFile("/root/Playlist/short/a.raw", RawBytes(Constant(25'500, 32'000)));
    ScriptedDraws draws;
    draws.Then(0, 1);  // the pause, of nine blocks
    draws.Then(0, 2);  // the announcement: a lead-in of eight, and its sound from block 17 on
    world_.Run([&] {
        FeedHolder feed = Feed({{"thename", "short"},
                                {"maxvolume", 10},
                                {"autogain", 0},
                                {"playannouncements", 1},
                                {"minannouncementpause", 1},
                                {"maxannouncementpause", 1}});
        Client client("p");
        const Samples heard = client.ReadBlocks(28);
        // The music rose for nine blocks before it was ducked: a peak of nine tenths of 32000, and a gain below 0.12.
        EXPECT_EQ(Blocks(heard, 26, 1), Constant(1'000, heard[26'000]));
        EXPECT_GT(heard[26'000], 200);
        EXPECT_LT(heard[26'000], 240) << "2000 of the announcement alone, still scaled";
        // 32000 / 8 + 2000 meets a gain of one.
        EXPECT_GE(heard[27'000], 3'275);
        EXPECT_LE(heard[27'000], 3'276);
    });
    Orv::AnnouncementTable::Instance().Clear();
}

TEST_F(FeedVolumeTest, AMoveOfTheGainByMoreThanTenPointsIsToldAtDebug) {
    world_.Files().AddFile("/root/Playlist/quiet/a.raw", RawBytes(Constant(400'500, 1'000)));
    world_.Run([&] {
        FeedHolder feed = Feed({{"thename", "quiet"}, {"maxvolume", 50}, {"autogain", 1}});
        Client client("p");
        client.ReadBlocks(40);
        const Texts told = world_.LogOf("Volume has been raised to ");
        ASSERT_GT(told.size(), 3U);
        EXPECT_EQ(told[0].substr(0, 6), "Debug|");
        EXPECT_EQ(told[0].back(), '%');
        // The first block ends a tenth up the fade-in, at 100: ((16383 - 100) / 20 + 100) / 100 is 9.1415.
        EXPECT_NE(told[0].find("raised to 914%"), std::string::npos) << told[0];
    });
}

// Both hear the same chunks of the shared box. What one channel's limit does must not reach the other.
TEST_F(FeedVolumeTest, TwoChannelsOnTheDefaultSetWithDifferentLimitsDoNotDisturbEachOther) {
    world_.Files().AddFile("/sounds/d.raw", RawBytes(Constant(400'500, 20'000)));
    world_.Run([&] {
        Orv::SetDefaultAudioFile("/sounds/d.raw");
        FeedHolder limited = Feed({{"feedtype", 0}, {"maxvolume", 10}});
        FeedHolder open = Feed({{"feedtype", 0}, {"pipename", "q"}});
        FeedHolder half = Feed({{"feedtype", 0}, {"pipename", "r"}, {"maxvolume", 50}});
        Listener first("p");
        Listener second("q");
        Listener third("r");
        Sleep(10'000);
        first.Stop();
        second.Stop();
        third.Stop();
        EXPECT_LE(Loudest(first.Heard()), 3'276);
        EXPECT_LE(Loudest(third.Heard()), 16'383);
        EXPECT_GE(Loudest(third.Heard()), 16'380);
        // Behind both fade-ins the untouched channel hears the file.
        EXPECT_EQ(Part(second.Heard(), 40'000, 10'000), Constant(10'000, 20'000));
    });
}

}  // namespace
