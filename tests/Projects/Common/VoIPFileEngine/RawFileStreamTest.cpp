// A stream over a disk that is never late: frames, ends, rewinds, formats.
#include "Projects/Common/VoIPFileEngine/RawFileStream.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Platform/sim/Simulation.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"
#include "tests/Projects/Common/VoIPFileEngine/SoundFiles.h"
#include "tests/Projects/Common/VoIPFileEngine/StreamPlayer.h"

namespace Orv {
namespace {

using Platform::Sim::Files;
using TestData::AdpcmFormat;
using TestData::AdpcmWave;
using TestData::Audio;
using TestData::Chunk;
using TestData::ExpectedFrames;
using TestData::Le32;
using TestData::PcmFormat;
using TestData::PcmWave;
using TestData::RawLine;
using TestData::Riff;
using TestData::SameBytes;
using TestData::StreamPlayer;
using TestData::ViewLine;
using Lines = std::vector<std::string>;

class RawFileStreamTest : public testing::Test {
protected:
    RawFileStreamTest() { Platform::Sim::ResetProcessWorld(); }

    std::vector<std::string> PlayFile(const std::string& path, const std::string& bytes, u32 frameBytes) {
        Files().AddFile(path, bytes);
        StreamPlayer player(path, frameBytes);
        return player.PlayToTheEnd();
    }
    TestData::EngineLog log_;
};

const std::string kZeros(2000, '\0');

TEST_F(RawFileStreamTest, EveryLengthGivesItsBytesItsFilledUpTailAndItsExtraFrame) {
    for (const u64 length :
         {1u,     2u,     44u,    1999u,  2000u,  2001u,  3999u,  4000u,  8000u,   8001u,   8191u,
          8192u,  8193u,  9999u,  10000u, 10001u, 15999u, 16000u, 16001u, 16384u,  16385u,  18000u,
          24576u, 24577u, 40960u, 40961u, 65536u, 65537u, 66000u, 99999u, 100000u, 128000u, 128001u}) {
        const std::string audio = Audio(length);
        EXPECT_TRUE(SameBytes(PlayFile("/s/a.raw", audio, 2000), ExpectedFrames(audio, 2000))) << length;
        if (length > 1) {
            EXPECT_TRUE(SameBytes(PlayFile("/s/a.wav", PcmWave(audio), 2000), ExpectedFrames(audio, 2000))) << length;
        }
        EXPECT_TRUE(SameBytes(PlayFile("/s/a.raw", audio, 160), ExpectedFrames(audio, 160))) << length;
    }
}

TEST_F(RawFileStreamTest, AFileWhoseLengthIsAMultipleOfTheFrameEndsWithOneMoreFrameOfZeros) {
    const std::string audio = Audio(4000);
    EXPECT_TRUE(SameBytes(PlayFile("/s/a.raw", audio, 2000),
                          (std::vector<std::string>{audio.substr(0, 2000), audio.substr(2000), kZeros})));
}

TEST_F(RawFileStreamTest, ALastFrameThatCrossesAMultipleOfTheBufferIsFollowedByOneMoreFrameOfZeros) {
    // Frame 5 begins at 8000. Up to 8192 it ends in the first buffer, from 8193 on it crosses into the second.
    EXPECT_EQ(PlayFile("/s/a.raw", Audio(8192), 2000).size(), 5u);
    const auto crossing = PlayFile("/s/b.raw", Audio(8193), 2000);
    ASSERT_EQ(crossing.size(), 6u);
    EXPECT_TRUE(SameBytes(crossing[5], kZeros));
    // Frame 513 begins at 1,024,000, which is 125 * 8192 itself.
    const auto beginning = PlayFile("/s/c.raw", Audio(1'024'001), 2000);
    ASSERT_EQ(beginning.size(), 514u);
    EXPECT_TRUE(SameBytes(beginning[513], kZeros));
    // One byte more than a whole number of frames elsewhere: no extra frame.
    EXPECT_EQ(PlayFile("/s/d.raw", Audio(10'001), 2000).size(), 6u);
}

TEST_F(RawFileStreamTest, TheZerosOfATailAreTold) {
    Files().AddFile("/s/a.raw", Audio(4500));
    StreamPlayer player("/s/a.raw", 2000);
    log_.Take();
    player.Next();
    player.Next();
    EXPECT_EQ(log_.Take(), Lines{});
    player.Next();
    EXPECT_EQ(log_.Take(), Lines{RawLine("Trace", "Zeroing out 1500 ")});
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
    EXPECT_EQ(log_.Take(), Lines{});
}

TEST_F(RawFileStreamTest, OnceTheEndHasBeenMetNothingMoreIsRead) {
    // One read brings the bytes, the one behind it meets the end.
    Files().AddFile("/s/a.raw", Audio(4500));
    StreamPlayer player("/s/a.raw", 2000);
    EXPECT_EQ(Files().Counters().reads, 2u);
    EXPECT_EQ(player.PlayToTheEnd().size(), 3u);
    EXPECT_EQ(player.Next(), "end");
    EXPECT_EQ(Files().Counters().reads, 2u);
}

TEST_F(RawFileStreamTest, ARawFileOfNoBytesFinishesAtOnce) {
    Files().AddFile("/s/a.raw", "");
    StreamPlayer player("/s/a.raw", 2000);
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
}

TEST_F(RawFileStreamTest, AFrameInsideABufferIsHandedOutInPlaceAndOneAcrossComesFromTheCallersBlock) {
    Files().AddFile("/s/a.raw", Audio(16'384));
    StreamPlayer player("/s/a.raw", 2000);
    player.Next();
    const u8* const buffer = player.Frame();
    EXPECT_NE(buffer, player.Block());
    for (u32 i = 1; i < 4; ++i) {
        player.Next();
        EXPECT_EQ(player.Frame(), buffer + i * 2000);
    }
    player.Next();
    EXPECT_EQ(player.Frame(), player.Block());
    player.Next();
    EXPECT_NE(player.Frame(), player.Block());
}

TEST_F(RawFileStreamTest, TheTwoReadRecordsAlternateForTheWholeFile) {
    Files().AddFile("/s/a.raw", Audio(100'000));
    StreamPlayer player("/s/a.raw", 2000);
    EXPECT_EQ(Files().Counters().readRecordsAlive, 2u);
    for (u32 i = 0; i < 40; ++i) player.Next();
    EXPECT_EQ(Files().Counters().readRecordsAlive, 2u);
}

TEST_F(RawFileStreamTest, AFrameLargerThanBothBuffersIsFilledUpWithoutAReason) {
    const std::string audio = Audio(30'000);
    Files().AddFile("/s/a.raw", audio);
    StreamPlayer player("/s/a.raw", 20'000);
    log_.Take();
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(0, 16'384) + std::string(3616, '\0')));
    EXPECT_EQ(log_.Take(), Lines{RawLine("Trace", "Zeroing out 3616 ")});
    // The first buffer is used up now, so that the next frame gets what one buffer holds.
    EXPECT_TRUE(SameBytes(player.Next(), audio.substr(16'384, 8192) + std::string(11'808, '\0')));
}

TEST_F(RawFileStreamTest, OfAWaveFileTheDataChunkAlonePlays) {
    const std::string audio = Audio(5000);
    const std::string file = Riff(Chunk("LIST", Audio(77)) + Chunk("fmt ", PcmFormat()) + Chunk("fact", Audio(4)) +
                                  Chunk("data", audio) + Chunk("LIST", Audio(9000)));
    EXPECT_TRUE(SameBytes(PlayFile("/s/a.wav", file, 2000), ExpectedFrames(audio, 2000)));
}

TEST_F(RawFileStreamTest, AudioAtAnOddPositionPlaysAsItIs) {
    const std::string audio = Audio(20'001);
    const std::string file = Riff(Chunk("fmt ", PcmFormat()) + Chunk("x   ", "1") + Chunk("data", audio));
    EXPECT_TRUE(SameBytes(PlayFile("/s/a.wav", file, 2000), ExpectedFrames(audio, 2000)));
}

TEST_F(RawFileStreamTest, ReadingStopsAtTheEndOfTheAudioAndSaysSo) {
    const std::string audio = Audio(3000);
    Files().AddFile("/s/a.wav", PcmWave(audio) + Audio(50'000));
    StreamPlayer player("/s/a.wav", 2000);
    // The first read is cut at the end of the audio, the one behind it is not made.
    EXPECT_EQ(log_.Take(), (Lines{RawLine("Trace", "/s/a.wav put to shared async i/o storage"),
                                  RawLine("Debug", "ReadFile skip at EOF")}));
    EXPECT_TRUE(SameBytes(player.PlayToTheEnd(), ExpectedFrames(audio, 2000)));
}

TEST_F(RawFileStreamTest, AWaveFileWithNoDataPlaysFromItsStartToTheEndOfTheFile) {
    const std::string tail = Audio(5000);
    EXPECT_TRUE(SameBytes(PlayFile("/s/a.wav", PcmWave("") + tail, 2000), ExpectedFrames(tail, 2000)));
}

TEST_F(RawFileStreamTest, ADataLengthBeyondTheFilePlaysWhatTheFileHas) {
    const std::string audio = Audio(5000);
    std::string file = PcmWave(audio);
    file.replace(40, 4, Le32(0xFFFFFFFF));
    EXPECT_TRUE(SameBytes(PlayFile("/s/a.wav", file, 2000), ExpectedFrames(audio, 2000)));
}

TEST_F(RawFileStreamTest, EndingsCountInAnyCaseAndEverythingButWavIsPlayedWhole) {
    const std::string audio = Audio(5000);
    const std::string file = PcmWave(audio);
    EXPECT_TRUE(SameBytes(PlayFile("/s/A.WAV", file, 2000), ExpectedFrames(audio, 2000)));
    EXPECT_TRUE(SameBytes(PlayFile("/s/.Wav", file, 2000), ExpectedFrames(audio, 2000)));
    EXPECT_TRUE(SameBytes(PlayFile("/s/a.raw", file, 2000), ExpectedFrames(file, 2000)));
    EXPECT_TRUE(SameBytes(PlayFile("/s/a.wave", file, 2000), ExpectedFrames(file, 2000)));
}

TEST_F(RawFileStreamTest, AnswersForItself) {
    Files().AddFile("/s/a.raw", Audio(5000));
    StreamPlayer player;
    EXPECT_FALSE(player.Stream().IsOpen());
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
    ASSERT_TRUE(player.Open("/s/a.raw"));
    EXPECT_TRUE(player.Stream().IsOpen());
    EXPECT_TRUE(player.Stream().IsFile());
    EXPECT_EQ(player.Stream().GetName(), "/s/a.raw");
    EXPECT_EQ(player.Stream().GetContentId(), StreamPlayer::Id);
    const u8* frame = reinterpret_cast<const u8*>(1);
    EXPECT_EQ(player.Stream().ReadSamples(&frame), 0u);
    EXPECT_EQ(frame, nullptr);
}

TEST_F(RawFileStreamTest, AWaveFileWhoseHeaderFailsGivesNoStreamAndIsNotCalledMissing) {
    Files().AddFile("/s/a.wav", std::string(100, 'x'));
    StreamPlayer player;
    EXPECT_FALSE(player.Open("/s/a.wav"));
    EXPECT_FALSE(player.Stream().IsOpen());
    EXPECT_EQ(log_.Take(), Lines{ViewLine("Warn", "No RIFF marker")});
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
}

TEST_F(RawFileStreamTest, AMissingWaveFileGivesTheOpeningErrorAndIsNotCalledMissingEither) {
    StreamPlayer player;
    EXPECT_FALSE(player.Open("/s/none.wav"));
    EXPECT_EQ(log_.Take(), Lines{ViewLine("Error", "Failed to open file /s/none.wav, error: 2")});
}

TEST_F(RawFileStreamTest, ARewindStraightAfterOpeningChangesNothing) {
    const std::string audio = Audio(5000);
    Files().AddFile("/s/a.raw", audio);
    StreamPlayer player("/s/a.raw", 2000);
    const u64 reads = Files().Counters().reads;
    player.Stream().Rewind();
    player.Stream().Rewind();
    EXPECT_EQ(Files().Counters().reads, reads);
    EXPECT_TRUE(SameBytes(player.PlayToTheEnd(), ExpectedFrames(audio, 2000)));
}

TEST_F(RawFileStreamTest, ARewindAfterAReadStartsOverAtTheStart) {
    const std::string audio = Audio(30'000);
    Files().AddFile("/s/a.wav", PcmWave(audio));
    StreamPlayer player("/s/a.wav", 2000);
    for (u32 i = 0; i < 7; ++i) player.Next();
    player.Stream().Rewind();
    EXPECT_TRUE(SameBytes(player.PlayToTheEnd(), ExpectedFrames(audio, 2000)));
    player.Stream().Rewind();
    EXPECT_TRUE(SameBytes(player.PlayToTheEnd(), ExpectedFrames(audio, 2000)));
}

TEST_F(RawFileStreamTest, AStreamOpenedAgainWithoutAReadKeepsItsOldBuffers) {
    // The name and the shared file are the new ones, what plays is still the old file.
    const std::string a = Audio(5000, 1), b = Audio(7000, 2);
    Files().AddFile("/s/a.raw", a);
    Files().AddFile("/s/b.raw", b);
    StreamPlayer player("/s/a.raw", 2000);
    ASSERT_TRUE(player.Open("/s/b.raw"));
    EXPECT_EQ(player.Stream().GetName(), "/s/b.raw");
    EXPECT_TRUE(SameBytes(player.PlayToTheEnd(), ExpectedFrames(a, 2000)));
    player.Stream().Rewind();
    EXPECT_TRUE(SameBytes(player.PlayToTheEnd(), ExpectedFrames(b, 2000)));
}

TEST_F(RawFileStreamTest, AStreamOpenedAgainAfterAReadPlaysTheNewFile) {
    const std::string b = Audio(7000, 2);
    Files().AddFile("/s/a.raw", Audio(5000, 1));
    Files().AddFile("/s/b.raw", b);
    StreamPlayer player("/s/a.raw", 2000);
    player.Next();
    ASSERT_TRUE(player.Open("/s/b.raw"));
    EXPECT_TRUE(SameBytes(player.PlayToTheEnd(), ExpectedFrames(b, 2000)));
}

TEST_F(RawFileStreamTest, AStreamThatCouldNotBeOpenedAgainIsNotOpen) {
    Files().AddFile("/s/a.raw", Audio(5000));
    StreamPlayer player("/s/a.raw", 2000);
    EXPECT_FALSE(player.Open("/s/none.raw"));
    EXPECT_FALSE(player.Stream().IsOpen());
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
    player.Stream().Rewind();
    EXPECT_TRUE(SameBytes(player.Next(), "end"));
}

// Compressed audio that is easy to foretell: a block whose nibbles are all 0 at step index 0 holds its first sample.
std::string HeldBlock(i16 sample) {
    return TestData::Le16(static_cast<u16>(sample)) + std::string(254, '\0');
}
std::string Pcm(i16 sample, u64 count) {
    std::string bytes;
    for (u64 i = 0; i < count; ++i) bytes += TestData::Le16(static_cast<u16>(sample));
    return bytes;
}
std::string Joined(const std::vector<std::string>& frames) {
    std::string all;
    for (const std::string& frame : frames) all += frame;
    return all;
}

TEST_F(RawFileStreamTest, AnAdpcmFileOfWholeBlocksPlaysDecodedAndEndsWithOneMoreBlockOfZeros) {
    // 40 blocks, so that the compressed bytes cross a buffer: 40 * 505 samples, then the block of zeros that stands for
    // the end of the file, then the rest of the frame.
    std::string compressed, pcm;
    for (i16 i = 1; i <= 40; ++i) {
        compressed += HeldBlock(static_cast<i16>(i * 100));
        pcm += Pcm(static_cast<i16>(i * 100), 505);
    }
    for (const u32 frameBytes : {2000u, 160u, 320u, 2048u}) {
        const u64 total = pcm.size() + 1010;
        const std::string played = Joined(PlayFile("/s/a.wav", AdpcmWave(compressed), frameBytes));
        EXPECT_EQ(played.size(), (total + frameBytes - 1) / frameBytes * frameBytes);
        EXPECT_TRUE(SameBytes(played, pcm + std::string(played.size() - pcm.size(), '\0')));
    }
}

TEST_F(RawFileStreamTest, AnAdpcmFileOfOneBlockGivesItsSamplesAndZeros) {
    const auto frames = PlayFile("/s/a.wav", AdpcmWave(HeldBlock(321)), 2000);
    EXPECT_TRUE(SameBytes(Joined(frames), Pcm(321, 505) + Pcm(0, 1495)));
}

TEST_F(RawFileStreamTest, AShortLastAdpcmBlockIsFilledUpWithZeroNibbles) {
    // 4 bytes of header are left, at step index 0: the zeros behind them hold the sample for the whole block.
    const auto frames = PlayFile("/s/a.wav", AdpcmWave(HeldBlock(100) + HeldBlock(200).substr(0, 4)), 2020);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_TRUE(SameBytes(frames[0], Pcm(100, 505) + Pcm(200, 505)));
}

TEST_F(RawFileStreamTest, AnAdpcmFrameSmallerThanACompressedBlockLeavesTheCallersBlockAlone) {
    // The blocks across a buffer and the filled-up one at the end are put together somewhere; the guards of the player
    // stand right behind the 160 bytes.
    Files().AddFile("/s/a.wav", Riff(Chunk("fmt ", AdpcmFormat()) + Chunk("data", Audio(20'000))));
    StreamPlayer player("/s/a.wav", 160);
    EXPECT_GT(player.PlayToTheEnd().size(), 400u);
}

TEST_F(RawFileStreamTest, ABadAdpcmBlockIsSilentAndTheNextOnePlays) {
    std::string bad = HeldBlock(999);
    bad[2] = 89;
    const auto frames = PlayFile("/s/a.wav", AdpcmWave(bad + HeldBlock(5)), 2020);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_TRUE(SameBytes(frames[0], Pcm(0, 505) + Pcm(5, 505)));
}

TEST_F(RawFileStreamTest, ARewoundAdpcmFileForgetsTheBlockItWasIn) {
    Files().AddFile("/s/a.wav", AdpcmWave(HeldBlock(100) + HeldBlock(200)));
    StreamPlayer player("/s/a.wav", 1200);
    EXPECT_TRUE(SameBytes(player.Next(), Pcm(100, 505) + Pcm(200, 95)));
    player.Stream().Rewind();
    EXPECT_TRUE(SameBytes(player.Next(), Pcm(100, 505) + Pcm(200, 95)));
}

TEST_F(RawFileStreamTest, AnAdpcmStreamOpenedAgainWithoutAReadPlaysItsBytesUndecoded) {
    // The old buffers stay, the decoder goes.
    const std::string compressed = HeldBlock(100) + HeldBlock(200);
    Files().AddFile("/s/a.wav", AdpcmWave(compressed));
    StreamPlayer player("/s/a.wav", 512);
    ASSERT_TRUE(player.Open("/s/a.wav"));
    EXPECT_TRUE(SameBytes(player.Next(), compressed));
}

}  // namespace
}  // namespace Orv
