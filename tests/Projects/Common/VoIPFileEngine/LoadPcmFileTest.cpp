// The whole-file road: what is taken, what is refused with which message, and that no header leads out of the file.
#include "Projects/Common/VoIPFileEngine/LoadPcmFile.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "Platform/sim/Simulation.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"
#include "tests/Projects/Common/VoIPFileEngine/ResampleModel.h"
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
using TestData::SameBytes;
using TestData::ViewLine;
using Lines = std::vector<std::string>;

class LoadPcmFileTest : public testing::Test {
protected:
    LoadPcmFileTest() { Platform::Sim::ResetProcessWorld(); }

    // Loads the bytes under a name. Null gives "null".
    std::string Load(const std::string& bytes, const std::string& path = "/s/a.wav") {
        Files().AddFile(path, bytes);
        return LoadPath(path);
    }
    std::string LoadPath(const std::string& path) {
        log_.Take();
        fileSize = dataOffset = dataSize = 77;
        adpcm = true;
        const PageBytes loaded = LoadPcmFile(path, fileSize, dataOffset, dataSize, adpcm);
        lines = log_.Take();
        EXPECT_EQ(Files().Counters().filesAlive, 0u) << "the file is closed on every way out";
        if (loaded == nullptr) return "null";
        return {reinterpret_cast<const char*>(loaded.get()), dataSize};
    }
    void ExpectRefused(const std::string& bytes, const Lines& messages) {
        EXPECT_EQ(Load(bytes), "null");
        EXPECT_EQ(lines, messages);
    }
    static Lines Warning(const std::string& text) { return {ViewLine("Warn", text)}; }

    TestData::EngineLog log_;
    u64 fileSize = 0;
    u64 dataOffset = 0;
    u64 dataSize = 0;
    bool adpcm = false;
    Lines lines;
};

std::string Rate(u32 rate) {
    return Format(1, 1, rate, 16, 2);
}
std::string WaveOf(const std::string& format, const std::string& audio) {
    return Riff(Chunk("fmt ", format) + Chunk("data", audio));
}
ResampleModel::Samples ToSamples(const std::string& bytes) {
    ResampleModel::Samples samples(bytes.size() / 2);
    std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}
std::string ToBytes(const ResampleModel::Samples& samples) {
    return {reinterpret_cast<const char*>(samples.data()), samples.size() * 2};
}

TEST_F(LoadPcmFileTest, PcmAtEightKilohertzComesAsItIs) {
    const std::string audio = Audio(30'001);
    EXPECT_TRUE(SameBytes(Load(PcmWave(audio)), audio));
    EXPECT_EQ(fileSize, 30'045u);
    EXPECT_EQ(dataOffset, 44u);
    EXPECT_EQ(dataSize, 30'001u);
    EXPECT_FALSE(adpcm);
    EXPECT_EQ(lines, Lines{});
}

TEST_F(LoadPcmFileTest, AdpcmComesAsItIsAndIsToldAsSuch) {
    const std::string audio = Audio(700);
    EXPECT_TRUE(SameBytes(Load(AdpcmWave(audio)), audio));
    EXPECT_TRUE(adpcm);
    EXPECT_EQ(dataOffset, 48u);
}

TEST_F(LoadPcmFileTest, AnyOtherNameGivesTheWholeFile) {
    const std::string bytes = PcmWave(Audio(5000));
    for (const char* path : {"/s/a.raw", "/s/a.dat", "wav", "/s/awav"}) {
        EXPECT_TRUE(SameBytes(Load(bytes, path), bytes)) << path;
        EXPECT_EQ(dataSize, bytes.size());
        EXPECT_EQ(dataOffset, 0u);
    }
}

TEST_F(LoadPcmFileTest, ANameThatEndsInUpperCaseLettersCountsAsWavAndSoDoesABareExtension) {
    const std::string audio = Audio(500);
    for (const char* path : {"/s/B.WAV", "/s/c.wAv", ".wav"}) EXPECT_EQ(Load(PcmWave(audio), path), audio) << path;
}

TEST_F(LoadPcmFileTest, AFileOfFortyThreeBytesIsRefusedInSilenceAndFortyFourPassTheFirstTest) {
    ExpectRefused(std::string(43, 'x'), {});
    EXPECT_EQ(fileSize, 43u);
    ExpectRefused("", {});
    ExpectRefused(std::string(44, 'x'), Warning("No RIFF marker"));
    ExpectRefused(PcmWave(""), Warning("Zero 'data' chunk"));
    EXPECT_EQ(Load(std::string(43, 'x'), "/s/a.raw"), "null");
    EXPECT_EQ(Load(std::string(44, 'x'), "/s/a.raw"), std::string(44, 'x'));
}

TEST_F(LoadPcmFileTest, AFileThatCannotBeOpenedIsToldWithPathAndError) {
    EXPECT_EQ(LoadPath("/s/none.wav"), "null");
    EXPECT_EQ(lines, Lines{ViewLine("Error", "Failed to open file /s/none.wav, error: 2")});
    EXPECT_EQ(fileSize + dataOffset + dataSize, 0u);
    EXPECT_FALSE(adpcm);
    Files().MakeUnreadable("/s/a.wav");
    ExpectRefused(PcmWave(Audio(100)), {ViewLine("Error", "Failed to open file /s/a.wav, error: 13")});
}

TEST_F(LoadPcmFileTest, EachBrokenMarkerHasItsMessage) {
    const std::string file = PcmWave(Audio(1000));
    ExpectRefused("RIFX" + file.substr(4), Warning("No RIFF marker"));
    ExpectRefused(file.substr(0, 8) + "WAVX" + file.substr(12), Warning("No WAVE marker"));
    ExpectRefused(file.substr(0, 12) + "fmtX" + file.substr(16), Warning("No fmt marker"));
    ExpectRefused(file.substr(0, 36) + "datX" + file.substr(40), Warning("No data marker"));
}

TEST_F(LoadPcmFileTest, TheRiffLengthMayReachFourLessThanTheFileAndNotPassIt) {
    const std::string file = PcmWave(Audio(1000));
    ASSERT_EQ(file.size(), 1044u);
    EXPECT_NE(Load(file.substr(0, 4) + Le32(1040) + file.substr(8)), "null");
    ExpectRefused(file.substr(0, 4) + Le32(1041) + file.substr(8), Warning("Invalid RIFF length"));
    ExpectRefused(file.substr(0, 4) + Le32(0x80000000) + file.substr(8), Warning("Invalid RIFF length"));
    ExpectRefused(file.substr(0, 4) + Le32(0xFFFFFFFF) + file.substr(8), Warning("Invalid RIFF length"));
    EXPECT_NE(Load(file.substr(0, 4) + Le32(0) + file.substr(8)), "null");
}

TEST_F(LoadPcmFileTest, UnsupportedFormatsAreToldByTagChannelsRateAndBits) {
    const auto refused = [this](const std::string& format, const std::string& text) {
        ExpectRefused(WaveOf(format, Audio(100)), Warning("Unsupported WAV format: " + text));
    };
    for (const u32 rate : {7999u, 8000u, 8001u, 11025u, 44100u, 96000u}) {
        refused(Format(1, 2, rate, 16, 4), "1/2/" + std::to_string(rate) + "/16");
    }
    refused(Rate(7999), "1/1/7999/16");
    refused(Rate(0), "1/1/0/16");
    refused(Format(1, 1, 44100, 8, 1), "1/1/44100/8");
    refused(Format(1, 1, 44100, 24, 3), "1/1/44100/24");
    refused(Format(3, 1, 48000, 32, 4), "3/1/48000/32");
    refused(Format(17, 1, 16000, 4, 256), "17/1/16000/4");
    refused(Format(17, 1, 8000, 4, 512), "17/1/8000/4");
    refused(Format(0xFFFE, 1, 44100, 16, 2), "65534/1/44100/16");
}

class LoadPcmFileRates : public LoadPcmFileTest, public testing::WithParamInterface<u32> {};

TEST_P(LoadPcmFileRates, AHigherRateIsResampledAndToldAsInformation) {
    const std::string audio = Audio(25'001, GetParam());
    const std::string expected = ToBytes(ResampleModel::To8k(ToSamples(audio), GetParam()));
    EXPECT_TRUE(SameBytes(Load(WaveOf(Rate(GetParam()), audio)), expected));
    EXPECT_EQ(dataSize, expected.size());
    EXPECT_EQ(dataOffset, 44u);
    EXPECT_FALSE(adpcm);
    EXPECT_EQ(lines, Lines{ViewLine("Info", "File has been resampled /s/a.wav")});
}

INSTANTIATE_TEST_SUITE_P(Rates, LoadPcmFileRates, testing::Values(11025, 16000, 22050, 32000, 44100, 48000, 96000));

TEST_F(LoadPcmFileTest, ARateThatCannotBeResampledIsToldWithThePath) {
    for (const u32 rate : {0x80000000u, 0xFFFFFFFBu}) {
        ExpectRefused(WaveOf(Rate(rate), Audio(100)), Warning("Failed to resample /s/a.wav"));
    }
}

TEST_F(LoadPcmFileTest, TheFormsThatPlayAsTheyAreNeedALengthOfSixteenAndTheOneThatIsResampledDoesNot) {
    const auto shortened = [](const std::string& format, u32 length) {
        return Riff("fmt " + Le32(length) + format + Chunk("data", Audio(100)));
    };
    ExpectRefused(shortened(PcmFormat(), 15), Warning("Unsupported WAV format: 1/1/8000/16"));
    ExpectRefused(shortened(AdpcmFormat().substr(0, 16), 15), Warning("Unsupported WAV format: 17/1/8000/4"));
    // 12 bytes: back to the last four of the body, block align and bits, 02 00 10 00, which count as a tag; "data" is
    // its length then, 1635017060 bytes, and nothing follows.
    ExpectRefused(shortened(Rate(16000), 12), Warning("No data marker"));
}

TEST_F(LoadPcmFileTest, AFormatChunkThatCallsItselfTooShortIsGoneBackInto) {
    // Length 0: back to the body's start. Its first four bytes are a tag, the rate's four are a length: 16000 bytes
    // further on, counted from the middle of the body, the walk goes on.
    std::string file = Riff("fmt " + Le32(0) + Rate(16000) + Chunk("junk", std::string(16'000, 'j')));
    const std::string audio = Audio(400);
    file = file.substr(0, 20 + 8 + 16'000) + Chunk("data", audio);
    file = file.substr(0, 4) + Le32(0) + file.substr(8);
    EXPECT_TRUE(SameBytes(Load(file), ToBytes(ResampleModel::To8k(ToSamples(audio), 16000))));
    EXPECT_EQ(dataOffset, 16'036u);
}

TEST_F(LoadPcmFileTest, AFormatChunkMayBeLongerAndChunksOfOddLengthAreFollowedWithoutAPadByte) {
    const std::string audio = Audio(333);
    const std::string file = Riff(Chunk("JUNK", Audio(7)) + Chunk("fmt ", PcmFormat() + "12345") +
                                  Chunk("LIST", Audio(5)) + Chunk("data", audio) + "tail");
    EXPECT_EQ(Load(file), audio);
    EXPECT_EQ(dataOffset, 12u + 15 + 29 + 13 + 8);
    EXPECT_EQ(lines, Lines{}) << "this road passes chunks over without a word";
}

TEST_F(LoadPcmFileTest, ADataChunkThatRunsPastTheEndOfTheFileIsCutToTheFile) {
    const std::string audio = Audio(1000);
    const std::string file = PcmWave(audio);
    for (const u32 length : {1001u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFD3u, 0xFFFFFFFFu}) {
        EXPECT_EQ(Load(file.substr(0, 40) + Le32(length) + audio), audio) << length;
        EXPECT_EQ(dataSize, 1000u);
    }
}

TEST_F(LoadPcmFileTest, AnEmptyDataChunkOrOneByteInItIsToldAsZero) {
    const std::string before = Riff(Chunk("fmt ", PcmFormat()) + Chunk("JUNK", Audio(50)));
    for (const u32 length : {0u, 1u}) {
        ExpectRefused(before + "data" + Le32(length) + "xyz", Warning("Zero 'data' chunk"));
    }
    ExpectRefused(before + "data" + Le32(500), Warning("Zero 'data' chunk"));
    ExpectRefused(before + "data" + Le32(500) + "x", Warning("Zero 'data' chunk"));
    EXPECT_EQ(Load(before + "data" + Le32(2) + "xyz"), "xy");
}

// A cut at every byte: no file loads, and what is said is what the missing piece calls for.
TEST_F(LoadPcmFileTest, HeadersCutByTheEndOfTheFileAreRefused) {
    const std::string pad = Chunk("pad ", std::string(44, 'p'));
    std::string whole = Riff(pad + Chunk("fmt ", PcmFormat()) + Chunk("data", "1234"));
    whole = whole.substr(0, 4) + Le32(0) + whole.substr(8);
    const u64 format = 12 + pad.size();
    for (u64 length = format; length < whole.size() - 2; ++length) {
        Lines expected;
        if (length < format + 4) expected = Warning("No fmt marker");
        if (length >= format + 24 && length < format + 28) expected = Warning("No data marker");
        if (length >= format + 32) expected = Warning("Zero 'data' chunk");
        ExpectRefused(whole.substr(0, length), expected);
    }
    EXPECT_EQ(Load(whole.substr(0, whole.size() - 2)), "12");
    // A chunk on the way to the format: its tag cut, its length cut, its body missing.
    std::string longer = Riff(Chunk("pad ", std::string(24, 'p')) + "pad2" + Le32(8));
    longer = longer.substr(0, 4) + Le32(0) + longer.substr(8);
    for (u64 length = 44; length <= 52; ++length) {
        ExpectRefused(longer.substr(0, length), length >= 48 && length < 52 ? Lines{} : Warning("No fmt marker"));
    }
}

TEST_F(LoadPcmFileTest, ChunkLengthsOfTwoGibibytesAndMoreEndTheWalkAndNeverGoBack) {
    for (const u32 length : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFE8u, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
        const std::string junk = "JUNK" + Le32(length) + Audio(50);
        ExpectRefused(Riff(junk + Chunk("fmt ", PcmFormat()) + Chunk("data", "1234")), Warning("No fmt marker"));
        ExpectRefused(Riff(Chunk("fmt ", PcmFormat()) + junk + Chunk("data", "1234")), Warning("No data marker"));
    }
    EXPECT_LT(Files().Counters().reads, 100u);
}

TEST_F(LoadPcmFileTest, AFormatLengthBehindWhichNoFileCanGoOnIsAnInvalidSize) {
    const auto file = [](u32 length, const std::string& format) {
        return Riff("fmt " + Le32(length) + format + Chunk("data", Audio(50)));
    };
    // Position 36 and the length less 16: 2^31 - 1 can still be gone to, and holds nothing.
    const u32 last = 0x7FFFFFFF - 36 + 16;
    for (const std::string& format : {PcmFormat(), Rate(44100)}) {
        ExpectRefused(file(last, format), Warning("No data marker"));
        for (const u32 length : {last + 1, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFE0u, 0xFFFFFFFFu}) {
            ExpectRefused(file(length, format), Warning("Invalid fmt size"));
        }
    }
}

TEST_F(LoadPcmFileTest, AFileThatIsRefusedBehindItsFormatIsStillToldAsAdpcm) {
    const auto file = [](u32 length) { return Riff("fmt " + Le32(length) + AdpcmFormat() + Chunk("fact", Audio(50))); };
    ExpectRefused(file(static_cast<u32>(AdpcmFormat().size())), Warning("No data marker"));
    EXPECT_TRUE(adpcm);
    ExpectRefused(file(0xFFFFFFFF), Warning("Invalid fmt size"));
    EXPECT_TRUE(adpcm);
    ExpectRefused(file(15), Warning("Unsupported WAV format: 17/1/8000/4"));
    EXPECT_FALSE(adpcm);
}

TEST_F(LoadPcmFileTest, AWalkThroughEmptyChunksEndsWithTheFileAndCostsFewReads) {
    std::string chunks;
    for (int i = 0; i < 50'000; ++i) chunks += Chunk("JUNK", "");
    const u64 before = Files().Counters().reads;
    ExpectRefused(Riff(chunks), Warning("No fmt marker"));
    ExpectRefused(Riff(Chunk("fmt ", PcmFormat()) + chunks), Warning("No data marker"));
    EXPECT_LT(Files().Counters().reads - before, 250u);
}

TEST_F(LoadPcmFileTest, AReadErrorInTheAudioIsNoResultWithoutAMessage) {
    Files().FailReads("/s/a.wav", 5, 9000);
    ExpectRefused(PcmWave(Audio(20'000)), {});
    Files().FailReads("/s/a.wav", 5, 0);
    ExpectRefused(PcmWave(Audio(20'000)), Warning("No RIFF marker"));
}

TEST_F(LoadPcmFileTest, SinksThatAreNullSilenceTheirWords) {
    LogInfoSink = nullptr;
    LogWarnSink = nullptr;
    EXPECT_NE(Load(WaveOf(Rate(16000), Audio(100))), "null");
    EXPECT_EQ(lines, Lines{});
    ExpectRefused(WaveOf(Rate(7999), Audio(100)), {});
}

}  // namespace
}  // namespace Orv
