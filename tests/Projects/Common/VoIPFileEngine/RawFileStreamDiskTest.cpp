// A stream over a disk that is late, hangs, fails, or changes under it. The simulated clock moves by hand.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Platform/sim/Simulation.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"
#include "tests/Projects/Common/VoIPFileEngine/SoundFiles.h"
#include "tests/Projects/Common/VoIPFileEngine/StreamPlayer.h"

namespace Orv {
namespace {

using Platform::Sim::Files;
using TestData::Audio;
using TestData::PcmWave;
using TestData::RawLine;
using TestData::SameBytes;
using TestData::StreamPlayer;
using Lines = std::vector<std::string>;

constexpr char kPath[] = "/s/a.raw";
constexpr Platform::SystemError kInputOutputError = 5;

class RawFileStreamDiskTest : public testing::Test {
protected:
    RawFileStreamDiskTest() { Platform::Sim::ResetProcessWorld(); }

    static void PassMilliseconds(u64 count) { Platform::Sim::Clock().Advance(count * 1'000'000); }
    static std::string Zeros(u64 count) { return std::string(count, '\0'); }
    static Lines Zeroing(u64 count, const std::string& reason) {
        return {RawLine("Trace", "Zeroing out " + std::to_string(count) + " " + reason)};
    }
    // The error line of a failed read.
    static std::string ErrorLine(const std::string& label) {
        return RawLine("Error", label + " : error = 0x5, " + Platform::SystemErrorText(kInputOutputError));
    }
    // Plays `count` frames whose contents belong to another test.
    static void Skip(StreamPlayer& player, u32 count) {
        for (u32 i = 0; i < count; ++i) player.Next();
    }

    TestData::EngineLog log_;
};

TEST_F(RawFileStreamDiskTest, UntilTheFirstReadIsThereFramesAreZerosAndThenNothingIsMissing) {
    const std::string audio = Audio(5000);
    Files().AddFile(kPath, audio);
    Files().DelayReads(kPath, 200);
    StreamPlayer player(kPath, 2000);
    log_.Take();
    EXPECT_TRUE(SameBytes(player.Next(), Zeros(2000)));
    EXPECT_EQ(player.Frame(), player.Block());
    PassMilliseconds(125);
    EXPECT_TRUE(SameBytes(player.Next(), Zeros(2000)));
    EXPECT_EQ(log_.Take(), (Lines{Zeroing(2000, "Operation is in progress...")[0],
                                  Zeroing(2000, "Operation is in progress...")[0]}));
    PassMilliseconds(125);
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(0, 2000)));
    PassMilliseconds(125);
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(2000, 2000)));
    PassMilliseconds(125);
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(4000) + Zeros(1000)));
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
}

TEST_F(RawFileStreamDiskTest, NothingIsReadBehindTheFirstReadBeforeItIsThere) {
    Files().AddFile(kPath, Audio(50'000));
    Files().DelayReads(kPath, 200);
    StreamPlayer player(kPath, 2000);
    player.Next();
    EXPECT_EQ(Files().Counters().reads, 1u);
    PassMilliseconds(200);
    player.Next();
    EXPECT_EQ(Files().Counters().reads, 2u);
}

TEST_F(RawFileStreamDiskTest, WhenTheBackBufferIsLateTheRestOfTheFrameIsZerosAndThePositionIsKept) {
    const std::string audio = Audio(20'000);
    Files().AddFile(kPath, audio);
    StreamPlayer player(kPath, 2000);
    Skip(player, 4);
    // The read from 16384 on, which the frame across the first buffer's end starts, takes its time.
    Files().DelayReads(kPath, 300);
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(8000, 2000)));
    for (u64 at = 10'000; at < 16'000; at += 2000) EXPECT_TRUE(SameBytes(player.Next(), audio.substr(at, 2000)));
    log_.Take();
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(16'000, 384) + Zeros(1616)));
    EXPECT_EQ(log_.Take(), Zeroing(1616, "Back buffer is not ready..."));
    EXPECT_TRUE(SameBytes(player.Next(), Zeros(2000)));
    EXPECT_EQ(log_.Take(), Zeroing(2000, "Operation is in progress..."));
    PassMilliseconds(300);
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(16'384, 2000)));
    EXPECT_EQ(log_.Take(), Lines{});
    PassMilliseconds(300);
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(18'384) + Zeros(384)));
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
}

TEST_F(RawFileStreamDiskTest, ALateEndOfFileCostsAFrameOfZeros) {
    Files().AddFile(kPath, "");
    Files().DelayReads(kPath, 100);
    StreamPlayer player(kPath, 2000);
    log_.Take();
    PassMilliseconds(100);
    EXPECT_TRUE(SameBytes(player.Next(), Zeros(2000)));
    EXPECT_EQ(log_.Take(), Zeroing(2000, "Operation is in progress..."));
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
}

TEST_F(RawFileStreamDiskTest, ALateEndOfFileBehindTheLastBytesIsABackBufferThatIsNotReady) {
    const std::string audio = Audio(1500);
    Files().AddFile(kPath, audio);
    Files().DelayReads(kPath, 100);
    StreamPlayer player(kPath, 2000);
    PassMilliseconds(100);
    log_.Take();
    EXPECT_TRUE(SameBytes(player.Next(), audio + Zeros(500)));
    EXPECT_EQ(log_.Take(), Zeroing(500, "Back buffer is not ready..."));
    PassMilliseconds(100);
    EXPECT_TRUE(SameBytes(player.Next(), Zeros(2000)));
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
}

TEST_F(RawFileStreamDiskTest, AHangingDiskSilencesTheStreamAndNobodyWaitsForItWhenTheStreamGoes) {
    const std::string audio = Audio(50'000);
    Files().AddFile(kPath, audio);
    Files().HangReads(kPath, true);
    const u64 before = Platform::Sim::Clock().SteadyNanoseconds();
    {
        StreamPlayer player(kPath, 2000);
        for (u32 i = 0; i < 100; ++i) {
            EXPECT_TRUE(SameBytes(player.Next(), Zeros(2000)));
            PassMilliseconds(125);
        }
    }
    EXPECT_EQ(Platform::Sim::Clock().SteadyNanoseconds() - before, 12'500'000'000u);
    Files().HangReads(kPath, false);
    StreamPlayer next(kPath, 2000);
    EXPECT_TRUE(SameBytes(next.Next(), audio.substr(0, 2000)));
}

TEST_F(RawFileStreamDiskTest, ARewindGivesUpAHangingReadAndPlaysFromFreshBuffers) {
    const std::string audio = Audio(50'000);
    Files().AddFile(kPath, audio);
    StreamPlayer player(kPath, 2000);
    Files().HangReads(kPath, true);
    Skip(player, 5);
    player.Stream().Rewind();
    EXPECT_TRUE(SameBytes(player.Next(), Zeros(2000)));
    Files().HangReads(kPath, false);
    PassMilliseconds(1);
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(0, 2000)));
}

TEST_F(RawFileStreamDiskTest, AFailedFirstReadIsToldAtOpeningAndTheStreamHasFinished) {
    Files().AddFile(kPath, Audio(5000));
    Files().FailReads(kPath, kInputOutputError);
    StreamPlayer player(kPath, 2000);
    EXPECT_EQ(log_.Take(),
              (Lines{RawLine("Trace", "/s/a.raw put to shared async i/o storage"), ErrorLine("Prefetch")}));
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
    EXPECT_EQ(log_.Take(), Lines{});
}

TEST_F(RawFileStreamDiskTest, AFirstReadThatFailsLateCostsAFrameOfZeros) {
    Files().AddFile(kPath, Audio(5000));
    Files().FailReads(kPath, kInputOutputError);
    Files().DelayReads(kPath, 100);
    StreamPlayer player(kPath, 2000);
    log_.Take();
    PassMilliseconds(100);
    EXPECT_TRUE(SameBytes(player.Next(), Zeros(2000)));
    EXPECT_EQ(log_.Take(), (Lines{ErrorLine("UpdateStatus"), Zeroing(2000, "Operation is in progress...")[0]}));
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
}

TEST_F(RawFileStreamDiskTest, ALaterReadThatFailsLetsWhatIsThereFinishAFrameAndIsNotTriedAgain) {
    const std::string audio = Audio(50'000);
    Files().AddFile(kPath, audio);
    Files().FailReads(kPath, kInputOutputError, 10'000, 10'000);
    StreamPlayer player(kPath, 2000);
    Skip(player, 4);
    const u64 reads = Files().Counters().reads;
    log_.Take();
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(8000, 192) + Zeros(1808)));
    // Told once when the read was started, and once more when its outcome is asked for.
    EXPECT_EQ(log_.Take(), (Lines{ErrorLine("UpdateStatus"), Zeroing(1808, "Back buffer is not ready...")[0]}));
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
    EXPECT_EQ(Files().Counters().reads, reads);
}

TEST_F(RawFileStreamDiskTest, AFailureOfTheReadBehindTheSecondBufferIsToldAsAPrefetch) {
    const std::string audio = Audio(50'000);
    Files().AddFile(kPath, audio);
    Files().FailReads(kPath, kInputOutputError, 20'000, 20'000);
    StreamPlayer player(kPath, 2000);
    Skip(player, 4);
    log_.Take();
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(8000, 2000)));
    EXPECT_EQ(log_.Take(), Lines{ErrorLine("Prefetch")});
    for (u64 at = 10'000; at < 16'000; at += 2000) EXPECT_TRUE(SameBytes(player.Next(), audio.substr(at, 2000)));
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(16'000, 384) + Zeros(1616)));
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
}

TEST_F(RawFileStreamDiskTest, TheEventOfAFileThatBreaksOffHasTheErrorAndItsNameWhereverItBroke) {
    Files().AddFile(kPath, Audio(50'000));
    for (const u64 position : {0u, 10'000u, 20'000u, 49'999u}) {
        Files().FailReads(kPath, kInputOutputError, position, position);
        StreamPlayer player(kPath, 2000);
        player.PlayToTheEnd();
        EXPECT_EQ(player.End().error, kInputOutputError) << position;
        EXPECT_EQ(player.End().name, kPath) << position;
        Files().ClearFaults();
        player.Stream().Rewind();
        EXPECT_EQ(player.PlayToTheEnd().size(), 25u + 1) << "whole frames, and one of zeros";
        EXPECT_EQ(player.End().error, 0u) << "a file that plays to its end has none";
        EXPECT_EQ(player.End().name, "");
    }
}

TEST_F(RawFileStreamDiskTest, TheEventsOfAListAndOfAFileThatCouldNotBeOpenedHaveNoError) {
    Files().AddFile(kPath, Audio(50'000));
    Files().FailReads(kPath, kInputOutputError);
    const auto set = CreateStreamSet();
    u8 buffer[2000];
    set->Prepare(buffer, sizeof buffer);
    set->SetMainContent(2, {{7, kPath, false}, {8, "/s/none.raw", false}}, false);
    set->SetMixMask(1);
    ContentEventList events;
    const u8* frame = nullptr;
    set->GetReader()->GetNextFrame(&frame, events);
    std::vector<std::pair<u32, Platform::SystemError>> told;
    for (const ContentEvent& event : events) told.emplace_back(event.id, event.error);
    EXPECT_EQ(told, (std::vector<std::pair<u32, Platform::SystemError>>{{7, kInputOutputError}, {8, 0}, {2, 0}}));
    EXPECT_EQ(events.front().name, kPath);
    EXPECT_EQ(events.back().name, "");
}

TEST_F(RawFileStreamDiskTest, ARewindAfterAFailureTriesAnew) {
    const std::string audio = Audio(5000);
    Files().AddFile(kPath, audio);
    Files().FailReads(kPath, kInputOutputError);
    StreamPlayer player(kPath, 2000);
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
    Files().ClearFaults();
    player.Stream().Rewind();
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(0, 2000)));
}

TEST_F(RawFileStreamDiskTest, AShortReadLeavesNoHole) {
    // The file is cut to 3000 bytes while its first read is made, and grown again behind it.
    const std::string audio = Audio(3000);
    Files().AddFile(kPath, audio);
    Files().HangReads(kPath, true);
    StreamPlayer player(kPath, 2000);
    Files().HangReads(kPath, false);
    PassMilliseconds(1);
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(0, 2000)));
    // Both reads have been made: 3000 bytes, and the end of the file behind them.
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(2000) + Zeros(1000)));
    EXPECT_TRUE(SameBytes(player.Next(), "end"));

    const std::string longer = Audio(9000, 3);
    Files().AddFile("/s/b.raw", longer.substr(0, 3000));
    Files().DelayReads("/s/b.raw", 100);
    StreamPlayer growing("/s/b.raw", 1000);
    PassMilliseconds(100);
    EXPECT_TRUE(SameBytes(growing.Next(), longer.substr(0, 1000)));
    Files().AddFile("/s/b.raw", longer);
    PassMilliseconds(100);
    EXPECT_TRUE(SameBytes(growing.Next(), longer.substr(1000, 1000)));
    EXPECT_TRUE(SameBytes(growing.Next(), longer.substr(2000, 1000)));
    EXPECT_TRUE(SameBytes(growing.Next(), longer.substr(3000, 1000)));
}

TEST_F(RawFileStreamDiskTest, AFileCutWhileItPlaysEndsEarly) {
    const std::string audio = Audio(100'000);
    Files().AddFile("/s/a.wav", PcmWave(audio));
    StreamPlayer player("/s/a.wav", 2000);
    Skip(player, 1);
    Files().Truncate("/s/a.wav", 100);
    // What two buffers hold still plays.
    const std::string rest = audio.substr(2000, 16'384 - 2000);
    std::string played;
    for (const std::string& frame : player.PlayToTheEnd(20)) played += frame;
    ASSERT_GE(played.size(), rest.size());
    EXPECT_TRUE(SameBytes(played, rest + Zeros(played.size() - rest.size())));
}

TEST_F(RawFileStreamDiskTest, AFileRemovedOrReplacedWhileItPlaysPlaysOn) {
    const std::string audio = Audio(60'000);
    Files().AddFile(kPath, audio);
    Files().AddFile("/s/b.raw", audio);
    StreamPlayer removed(kPath, 2000), replaced("/s/b.raw", 2000);
    Files().Remove(kPath);
    Files().Replace("/s/b.raw", "something else");
    EXPECT_TRUE(SameBytes(removed.PlayToTheEnd(), TestData::ExpectedFrames(audio, 2000)));
    EXPECT_TRUE(SameBytes(replaced.PlayToTheEnd(), TestData::ExpectedFrames(audio, 2000)));
}

}  // namespace
}  // namespace Orv
