#include "Projects/Common/VoIPFileEngine/WAVFileView.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "Platform/sim/Simulation.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"
#include "tests/Projects/Common/VoIPFileEngine/SoundFiles.h"

namespace Orv {
namespace {

using Platform::Sim::Files;
using TestData::AdpcmFormat;
using TestData::AdpcmWave;
using TestData::Audio;
using TestData::Chunk;
using TestData::Format;
using TestData::Le32;
using TestData::PcmFormat;
using TestData::PcmWave;
using TestData::Riff;
using TestData::ViewLine;
using Lines = std::vector<std::string>;

// Each file is parsed from disk and from memory; the two must agree.
class WAVFileViewTest : public testing::Test {
protected:
    WAVFileViewTest() { Platform::Sim::ResetProcessWorld(); }

    struct Result {
        bool valid;
        u64 offset;
        u64 size;
        bool adpcm;
        Lines lines;
        bool operator==(const Result&) const = default;
    };
    Result Parse(const std::string& bytes) {
        Files().AddFile("/s/a.wav", bytes);
        const Result fromDisk = Parse(false);
        EXPECT_EQ(fromDisk, Parse(true));
        return fromDisk;
    }
    Result Parse(bool prefetch) {
        log_.Take();
        const WAVFileView view("/s/a.wav", prefetch, false);
        return {view.IsValid(), view.offset, view.size, view.adpcm, log_.Take()};
    }
    // The file is refused with this one line, or none.
    void ExpectRefused(const std::string& bytes, const Lines& lines) {
        const Result result = Parse(bytes);
        EXPECT_FALSE(result.valid);
        EXPECT_EQ(result.size, 0u);
        EXPECT_EQ(result.lines, lines);
    }
    static Lines Warning(const std::string& text) { return {ViewLine("Warn", text)}; }

    TestData::EngineLog log_;
};

// A file with room behind its chunks, so that the size test is passed.
std::string Padded(const std::string& chunks) {
    return Riff(chunks + Chunk("pad ", std::string(64, 'p')));
}

TEST_F(WAVFileViewTest, APlainPcmFileBeginsAtFortyFour) {
    const Result result = Parse(PcmWave(Audio(1000)));
    EXPECT_EQ(result, (Result{true, 44, 1000, false, {}}));
}

TEST_F(WAVFileViewTest, AnAdpcmFileIsToldAsSuch) {
    const Result result = Parse(AdpcmWave(Audio(512)));
    EXPECT_EQ(result, (Result{true, 48, 512, true, {}}));
}

TEST_F(WAVFileViewTest, AFileOfFortyFourBytesIsRefusedSilentlyAndOneMoreIsParsed) {
    ExpectRefused(PcmWave(""), {});
    ExpectRefused(std::string(44, 'x'), {});
    EXPECT_TRUE(Parse(PcmWave("x")).valid);
    ExpectRefused(std::string(45, 'x'), Warning("No RIFF marker"));
}

TEST_F(WAVFileViewTest, AFileOfNoBytesIsRefusedSilentlyOnDiskAndHasNoMappingToParse) {
    Files().AddFile("/s/a.wav", "");
    EXPECT_EQ(Parse(false), (Result{false, 0, 0, false, {}}));
    EXPECT_EQ(Parse(true),
              (Result{false, 0, 0, false, {ViewLine("Error", "Failed to create file mapping of , error: 22")}}));
}

TEST_F(WAVFileViewTest, ADataChunkOfLengthZeroPasses) {
    const Result result = Parse(PcmWave("") + "tail");
    EXPECT_EQ(result, (Result{true, 44, 0, false, {}}));
}

TEST_F(WAVFileViewTest, EachBrokenMarkerHasItsMessage) {
    std::string file = PcmWave(Audio(1000));
    ExpectRefused("RIFX" + file.substr(4), Warning("No RIFF marker"));
    ExpectRefused(file.substr(0, 8) + "WAVX" + file.substr(12), Warning("No WAVE marker"));
    ExpectRefused(file.substr(0, 12) + "fmtX" + file.substr(16), Warning("No fmt marker"));
    ExpectRefused(file.substr(0, 36) + "datX" + file.substr(40),
                  {ViewLine("Debug", "Skipping chunk 'datX' of size 1000"), ViewLine("Warn", "No data marker")});
}

TEST_F(WAVFileViewTest, TheRiffLengthMayReachTheSizeOfTheFileAndNotPassIt) {
    std::string file = PcmWave(Audio(1000));
    ASSERT_EQ(file.size(), 1044u);
    EXPECT_TRUE(Parse(file.substr(0, 4) + Le32(1044) + file.substr(8)).valid);
    ExpectRefused(file.substr(0, 4) + Le32(1045) + file.substr(8), Warning("Invalid RIFF length"));
    ExpectRefused(file.substr(0, 4) + Le32(0xFFFFFFFF) + file.substr(8), Warning("Invalid RIFF length"));
    ExpectRefused(file.substr(0, 4) + Le32(0x80000000) + file.substr(8), Warning("Invalid RIFF length"));
    // It is not used for anything else.
    EXPECT_EQ(Parse(file.substr(0, 4) + Le32(0) + file.substr(8)), (Result{true, 44, 1000, false, {}}));
}

TEST_F(WAVFileViewTest, UnsupportedFormatsAreToldByTagChannelsRateAndBits) {
    const auto refused = [this](const std::string& format, const std::string& text) {
        ExpectRefused(Padded(Chunk("fmt ", format) + Chunk("data", Audio(100))),
                      Warning("Unsupported WAV format: " + text));
    };
    refused(Format(1, 2, 44100, 16, 4), "1/2/44100/16");
    refused(Format(1, 1, 44100, 16, 2), "1/1/44100/16");
    refused(Format(1, 2, 8000, 16, 4), "1/2/8000/16");
    refused(Format(1, 0, 8000, 16, 2), "1/0/8000/16");
    refused(Format(1, 1, 7999, 16, 2), "1/1/7999/16");
    refused(Format(1, 1, 8000, 8, 1), "1/1/8000/8");
    refused(Format(3, 1, 8000, 32, 4), "3/1/8000/32");
    refused(Format(6, 1, 8000, 8, 1), "6/1/8000/8");
    refused(Format(0xFFFE, 1, 8000, 16, 2), "65534/1/8000/16");
    refused(Format(17, 2, 8000, 4, 256), "17/2/8000/4");
    refused(Format(17, 1, 8000, 4, 512), "17/1/8000/4");
    refused(Format(17, 1, 8000, 3, 256), "17/1/8000/3");
    refused(Format(17, 1, 8000, 16, 256), "17/1/8000/16");
    refused(Format(1, 1, 0xFFFFFFFF, 4, 256), "1/1/4294967295/4");
}

TEST_F(WAVFileViewTest, TheBlockAlignOfPcmIsNotLookedAt) {
    EXPECT_TRUE(Parse(Padded(Chunk("fmt ", Format(1, 1, 8000, 16, 77)) + Chunk("data", Audio(100)))).valid);
}

TEST_F(WAVFileViewTest, AFormatChunkShorterThanSixteenIsRefusedThoughItsFieldsWouldDo) {
    const std::string file = Padded("fmt " + Le32(15) + PcmFormat() + Chunk("data", Audio(100)));
    ExpectRefused(file, Warning("Unsupported WAV format: 1/1/8000/16"));
}

TEST_F(WAVFileViewTest, AFormatChunkMayBeLonger) {
    const std::string file = Riff(Chunk("fmt ", PcmFormat() + std::string(24, 'e')) + Chunk("data", Audio(100)));
    EXPECT_EQ(Parse(file), (Result{true, 68, 100, false, {}}));
}

TEST_F(WAVFileViewTest, AFormatChunkThatReachesTheEndOfTheFileHasAnInvalidSize) {
    const std::string before = Chunk("pad ", std::string(64, 'p'));
    ExpectRefused(Riff(before + Chunk("fmt ", PcmFormat())), Warning("Invalid fmt size"));
    for (const u32 length : {17u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFFF0u, 0xFFFFFFE8u}) {
        ExpectRefused(Riff(before + "fmt " + Le32(length) + PcmFormat()), Warning("Invalid fmt size"));
    }
}

TEST_F(WAVFileViewTest, AFormatChunkCutByTheEndOfTheFileIsReadNoFurther) {
    const std::string whole = Riff(Chunk("pad ", std::string(64, 'p')) + Chunk("fmt ", PcmFormat()));
    const std::string riff = whole.substr(0, 4) + Le32(0) + whole.substr(8);
    // Without the last byte the 16 bits are still read as 16, but the chunk passes the end; with less they are not.
    ExpectRefused(riff.substr(0, riff.size() - 1), Warning("Invalid fmt size"));
    ExpectRefused(riff.substr(0, riff.size() - 2), Warning("Unsupported WAV format: 1/1/8000/0"));
    ExpectRefused(riff.substr(0, riff.size() - 16), Warning("Unsupported WAV format: 0/0/0/0"));
    ExpectRefused(riff.substr(0, riff.size() - 17), Warning("No fmt marker"));
}

TEST_F(WAVFileViewTest, ChunksBeforeTheFormatArePassedOverWithoutAWord) {
    const std::string file = Riff(Chunk("JUNK", Audio(7)) + Chunk("bext", Audio(602)) + Chunk("fmt ", PcmFormat()) +
                                  Chunk("data", Audio(9)));
    EXPECT_EQ(Parse(file), (Result{true, 12 + 15 + 610 + 24 + 8, 9, false, {}}));
}

TEST_F(WAVFileViewTest, AChunkOfOddLengthIsFollowedAtTheOddPositionWithoutAPadByte) {
    const std::string file = Riff(Chunk("fmt ", PcmFormat()) + Chunk("LIST", Audio(5)) + Chunk("data", Audio(100)));
    EXPECT_EQ(Parse(file), (Result{true, 44 + 13, 100, false, {ViewLine("Debug", "Skipping chunk 'LIST' of size 5")}}));
    // With a pad byte in between the walk goes astray: the tag it finds is "\0dat".
    const std::string padded =
        Riff(Chunk("fmt ", PcmFormat()) + Chunk("LIST", Audio(5)) + std::string(1, '\0') + Chunk("data", Audio(100)));
    const Result result = Parse(padded);
    EXPECT_FALSE(result.valid);
    EXPECT_EQ(result.lines.back(), ViewLine("Warn", "No data marker"));
}

TEST_F(WAVFileViewTest, EveryChunkBetweenFormatAndDataIsTold) {
    const std::string file = Riff(Chunk("fmt ", PcmFormat()) + Chunk("fact", Audio(4)) + Chunk("fmt ", Audio(40)) +
                                  Chunk("data", Audio(100)));
    EXPECT_EQ(Parse(file), (Result{true,
                                   12 + 24 + 12 + 48 + 8,
                                   100,
                                   false,
                                   {ViewLine("Debug", "Skipping chunk 'fact' of size 4"),
                                    ViewLine("Debug", "Skipping chunk 'fmt ' of size 40")}}));
}

TEST_F(WAVFileViewTest, ADataChunkThatRunsPastTheEndOfTheFileIsCutToTheFile) {
    const std::string file = PcmWave(Audio(1000));
    for (const u32 length : {1001u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(Parse(file.substr(0, 40) + Le32(length) + file.substr(44)), (Result{true, 44, 1000, false, {}}));
    }
    EXPECT_EQ(Parse(file.substr(0, 40) + Le32(999) + file.substr(44)), (Result{true, 44, 999, false, {}}));
}

TEST_F(WAVFileViewTest, ADataChunkWhoseHeaderIsCutByTheEndIsNone) {
    const std::string whole = Riff(Chunk("fmt ", PcmFormat()) + Chunk("pad ", Audio(64)) + "data" + Le32(4));
    const std::string riff = whole.substr(0, 4) + Le32(0) + whole.substr(8);
    EXPECT_EQ(Parse(riff).size, 0u);
    EXPECT_TRUE(Parse(riff).valid);
    for (u64 cut = 1; cut <= 8; ++cut) {
        ExpectRefused(riff.substr(0, riff.size() - cut),
                      {ViewLine("Debug", "Skipping chunk 'pad ' of size 64"), ViewLine("Warn", "No data marker")});
    }
}

TEST_F(WAVFileViewTest, ChunkLengthsOfTwoGibibytesAndMoreEndTheWalk) {
    for (const u32 length : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF0u, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
        ExpectRefused(Riff("LIST" + Le32(length) + Chunk("fmt ", PcmFormat()) + Chunk("data", Audio(100))),
                      Warning("No fmt marker"));
        const Result result =
            Parse(Riff(Chunk("fmt ", PcmFormat()) + "LIST" + Le32(length) + Chunk("data", Audio(100))));
        EXPECT_FALSE(result.valid);
        EXPECT_EQ(result.lines, (Lines{ViewLine("Debug", "Skipping chunk 'LIST' of size " + std::to_string(length)),
                                       ViewLine("Warn", "No data marker")}));
    }
}

TEST_F(WAVFileViewTest, AWalkThroughEmptyChunksEndsWithTheFileAndCostsFewReads) {
    // 131,072 chunks of length 0: a read for each would be felt.
    std::string file = Riff(std::string(1 << 20, '\0'));
    Files().AddFile("/s/a.wav", file);
    const u64 before = Files().Counters().reads;
    const WAVFileView view("/s/a.wav", false, false);
    EXPECT_FALSE(view.IsValid());
    EXPECT_EQ(log_.Take(), Warning("No fmt marker"));
    EXPECT_LE(Files().Counters().reads - before, (1u << 20) / 4096 + 3);
}

TEST_F(WAVFileViewTest, OnlyTheHeadersAreReadFromDisk) {
    const std::string file = Riff(Chunk("LIST", Audio(500'000)) + Chunk("fmt ", PcmFormat()) +
                                  Chunk("LIST", Audio(500'000)) + Chunk("data", Audio(1'000'000)));
    Files().AddFile("/s/a.wav", file);
    const WAVFileView view("/s/a.wav", false, false);
    EXPECT_TRUE(view.IsValid());
    EXPECT_EQ(view.size, 1'000'000u);
    EXPECT_LE(Files().Counters().bytesRead, 4u * 4096u);
}

TEST_F(WAVFileViewTest, TheAudioIsServedUpToItsLengthCountedFromTheStartOfTheFile) {
    const std::string audio = Audio(1000);
    Files().AddFile("/s/a.wav", PcmWave(audio));
    WAVFileView view("/s/a.wav", true, false);
    const u8* bytes = nullptr;
    ASSERT_EQ(view.GetData(&bytes, 0, 1000), 956u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes), 956), audio.substr(0, 956));
    EXPECT_EQ(view.GetData(&bytes, view.size - view.offset, 10), 0u);
    EXPECT_NE(bytes, nullptr);
    EXPECT_EQ(view.GetData(&bytes, view.size - view.offset + 1, 10), 0u);
    EXPECT_EQ(bytes, nullptr);
}

TEST_F(WAVFileViewTest, AudioAtAnOddAddressIsServedAsItIs) {
    const std::string audio = Audio(300);
    Files().AddFile("/s/a.wav", Riff(Chunk("fmt ", PcmFormat()) + Chunk("note", "x") + Chunk("data", audio)));
    WAVFileView view("/s/a.wav", true, false);
    EXPECT_EQ(view.offset % 2, 1u);
    std::string read(100, '\0');
    EXPECT_EQ(view.Read(read.data(), 10, 100), 100u);
    EXPECT_EQ(read, audio.substr(10, 100));
}

TEST_F(WAVFileViewTest, AMissingFileIsToldByItsOpeningAlone) {
    const WAVFileView view("/s/none.wav", false, false);
    EXPECT_FALSE(view.IsValid());
    EXPECT_EQ(log_.Take(), Lines{ViewLine("Error", "Failed to open file /s/none.wav, error: 2")});
}

TEST_F(WAVFileViewTest, WhatIsNoRegularFileIsRefused) {
    Files().AddFolder("/s/folder.wav");
    Files().AddSpecial("/s/fifo.wav", Platform::Sim::FileKind::Fifo);
    for (const char* path : {"/s/folder.wav", "/s/fifo.wav"}) {
        const WAVFileView view(path, false, false);
        EXPECT_FALSE(view.IsValid());
        const Lines lines = log_.Take();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].rfind(ViewLine("Error", "Failed to open file " + std::string(path) + ", error: "), 0), 0u);
    }
}

TEST_F(WAVFileViewTest, AReadErrorInTheHeaderIsABadHeader) {
    Files().AddFile("/s/a.wav", PcmWave(Audio(1000)));
    Files().FailReads("/s/a.wav", 5);
    const WAVFileView view("/s/a.wav", false, false);
    EXPECT_FALSE(view.IsValid());
    EXPECT_EQ(log_.Take(), Warning("No RIFF marker"));
}

TEST_F(WAVFileViewTest, WithoutAdaptersNothingIsWrittenAndNothingElseChanges) {
    LogWarnSink = nullptr;
    LogErrorSink = nullptr;
    LogDebugSink = nullptr;
    EXPECT_FALSE(Parse("RIFF" + std::string(100, 'x')).valid);
    EXPECT_TRUE(Parse(Riff(Chunk("fmt ", PcmFormat()) + Chunk("LIST", "abc") + Chunk("data", Audio(100)))).valid);
    EXPECT_EQ(log_.Take(), Lines{});
}

// Goal: no header, however broken, leads the parser or a reader of its result out of the file. Method: 20,000 files
// that come from good ones by overwriting, cutting and swapping, from a fixed seed; every accepted one must lie in the
// file, and from disk and from memory the parser must come to the same result.
TEST_F(WAVFileViewTest, NoHeaderLeadsOutOfTheFile) {
    LogDebugSink = nullptr;
    const std::vector<std::string> good = {
        PcmWave(Audio(100)), AdpcmWave(Audio(256)),
        Riff(Chunk("JUNK", Audio(3)) + Chunk("fmt ", AdpcmFormat()) + Chunk("fact", Audio(4)) +
             Chunk("data", Audio(64)) + Chunk("LIST", Audio(20)))};
    const u32 lengths[] = {0, 1, 2, 15, 16, 17, 255, 0x7FFFFFFF, 0x80000000, 0xFFFFFFF8, 0xFFFFFFFE, 0xFFFFFFFF};
    const std::string tags[] = {"RIFF", "WAVE", "fmt ", "data", "LIST"};
    std::mt19937 random(20240305);
    const auto draw = [&random](u64 below) { return random() % below; };
    u32 accepted = 0;
    for (u32 round = 0; round < 20'000; ++round) {
        std::string bytes = good[draw(good.size())];
        for (u64 changes = 1 + draw(3); changes > 0; --changes) {
            const u64 at = draw(bytes.size() - 4);
            switch (draw(4)) {
                case 0:
                    bytes.replace(at, 4, Le32(lengths[draw(std::size(lengths))]));
                    break;
                case 1:
                    bytes.replace(at, 4, tags[draw(std::size(tags))]);
                    break;
                case 2:
                    bytes[at] = static_cast<char>(random());
                    break;
                default:
                    bytes.resize(std::max<u64>(at, 8));
                    break;
            }
        }
        const Result result = Parse(bytes);
        if (!result.valid) continue;
        ++accepted;
        ASSERT_LE(result.offset, bytes.size());
        ASSERT_LE(result.size, bytes.size() - result.offset);
        WAVFileView view("/s/a.wav", true, false);
        std::string read(bytes.size() + 100, '\0');
        ASSERT_LE(view.Read(read.data(), 0, read.size()), result.size);
    }
    EXPECT_GT(accepted, 1000u);
}

}  // namespace
}  // namespace Orv
