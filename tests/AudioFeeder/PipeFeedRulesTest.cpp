// Rules of a channel that hold across its parts: the order of the volume control and the ends of content, and the order
// of a channel's last lines.
//
// What is heard is compared sample for sample with models of the stream set and of the control.
#include <gtest/gtest.h>

#include <optional>
#include <system_error>

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

// Noise at one part in `divisor` of its level, with the lowest sample here and there.
Samples Sound(std::size_t count, u32 seed, i32 divisor) {
    Samples sound = Noise(count, seed);
    for (i16& sample : sound) sample = static_cast<i16>(sample / divisor);
    for (std::size_t index = 777; index < count; index += 1000) sound[index] = -32768;
    return sound;
}

void ExpectSame(const Samples& heard, const Samples& expected) {
    ASSERT_EQ(heard.size(), expected.size());
    for (std::size_t index = 0; index < heard.size(); ++index) {
        ASSERT_EQ(heard[index], expected[index]) << "in block " << index / 1000 << " at " << index % 1000;
    }
}

class ChannelRulesTest : public testing::Test {
protected:
    void SetUp() override {
        Orv::AnnouncementTable::Instance().Clear();
        for (std::size_t file = 0; file < music_.size(); ++file) {
            world_.Files().AddFile("/root/Playlist/x/" + std::to_string(file) + ".raw", RawBytes(music_[file]));
        }
    }

    FeederWorld world_;
    const std::vector<Samples> music_{Sound(5'500, 1, 1), Sound(5'500, 2, 8)};
};

class NullBlockTest : public ChannelRulesTest, public testing::WithParamInterface<bool> {};

// Each change of file is a null block. With autogain a control that ran on it would let the peak decay and raise the
// gain once more, which the next block would show; without, gain and peak start anew.
TEST_P(NullBlockTest, DuringANullBlockThePeakDoesNotDecayAndTheGainDoesNotRise) {
    constexpr std::size_t blocks = 90;
    const bool autogain = GetParam();
    Samples expected;
    FilesModel files(music_);
    SetModel set;
    ControlModel control(16'383, autogain);
    std::size_t nullBlocks = 0;
    for (std::size_t block = 0; block < blocks; ++block) {
        const Frame frame = files.Next();
        Samples out = set.Mix(frame, std::nullopt);
        if (frame) {
            out = control.Apply(out);
        } else {
            control.EndOfFile();
            ++nullBlocks;
        }
        expected.insert(expected.end(), out.begin(), out.end());
    }
    ASSERT_GT(nullBlocks, 10U);
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}, {"maxvolume", 50}, {"autogain", autogain ? 1 : 0}})));
        Client client("p");
        ExpectSame(client.ReadBlocks(blocks), expected);
    });
}

INSTANTIATE_TEST_SUITE_P(Autogain, NullBlockTest, testing::Bool());

// Under an announcement the block in which a file of music ends has sound: it is scaled by the old gain, and only then
// gain and peak start anew.
TEST_F(ChannelRulesTest, TheResetAtTheEndOfAFileComesAfterTheControlOfThatBlock) {
    constexpr std::size_t blocks = 80;
    const Samples spoken = Noise(100'500, 3);
    world_.Files().AddFile("/spoken.raw", RawBytes(spoken));
    Orv::AnnouncementTable::Instance().Store(MakeAnnouncement("hello", 0, "/spoken.raw"));

    Samples expected;
    FilesModel files(music_);
    SetModel set;
    ControlModel control(3'276, false);
    std::size_t scaledEnds = 0;
    for (std::size_t block = 0; block < blocks; ++block) {
        // A pause of one second takes nine blocks, the lead-in eight.
        Frame above;
        if (block >= 17) {
            above = Part(spoken, (block - 17) * 1000, 1000);
        } else if (block >= 9) {
            above = Constant(1000, 0);
        }
        const Frame below = files.Next();
        Samples out = set.Mix(below, above);
        if (below || above) out = control.Apply(out);
        if (!below) {
            if (above && control.Gain() < 1.0F) ++scaledEnds;
            control.EndOfFile();
        }
        expected.insert(expected.end(), out.begin(), out.end());
    }
    ASSERT_GT(scaledEnds, 5U);

    ScriptedDraws draws;
    draws.Then(0, 1);
    draws.Then(0, 2);
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3},
                                                {"maxvolume", 10},
                                                {"playannouncements", 1},
                                                {"minannouncementpause", 1},
                                                {"maxannouncementpause", 1}})));
        Client client("p");
        ExpectSame(client.ReadBlocks(blocks), expected);
    });
}

TEST_F(ChannelRulesTest, AChannelsLastLinesComeInTheirOrderAndAreToldAtInfo) {
    std::string prefix;
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}})));
        prefix = "Channel x as p[" + std::to_string(feed->InstanceId()) + "]:";
        Sleep(1'000);
        feed->Shutdown();
    });
    std::vector<std::string> last;
    for (const LogLine& line : world_.Log()) {
        for (const char* text : {"Shutdown", "closed", "Destroyed"}) {
            if (line.text == prefix + text) last.push_back(line.word + "|" + text);
        }
    }
    EXPECT_EQ(last, (std::vector<std::string>{" Info|Shutdown", " Info|closed", " Info|Shutdown", " Info|Destroyed"}));
}

// A source of draws that stops the channel from within one: on the pump thread, where an announcement is drawn.
class StopFromADraw : public Orv::IRandomSource {
public:
    StopFromADraw() { Orv::SetRandomSource(this); }
    ~StopFromADraw() override { Orv::SetRandomSource(nullptr); }
    u32 Next() override {
        if (feed == nullptr) return 0;
        try {
            feed->Shutdown();
        } catch (const std::system_error& failure) {
            error = failure.code();
        }
        feed = nullptr;
        return 0;
    }

    IPipeFeed* feed = nullptr;
    std::error_code error;
};

TEST_F(ChannelRulesTest, AShutdownOnThePumpThreadItselfRaisesTheDeadlockError) {
    StopFromADraw draws;
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}, {"nonstop", 1}, {"playannouncements", 1}})));
        draws.feed = feed.Get();
        Sleep(1'000);
        EXPECT_EQ(draws.error, std::errc::resource_deadlock_would_occur);
        EXPECT_EQ(Orv::runningPumpThreads.load(), 0) << "the pump has seen the flag";
        feed->Shutdown();
    });
}

}  // namespace
