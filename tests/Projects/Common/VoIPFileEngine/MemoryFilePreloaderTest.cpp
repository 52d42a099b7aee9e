// What is loaded into the cache, by which road, up to which limit, and what is said of the rest.
#include "Projects/Common/VoIPFileEngine/MemoryFilePreloader.h"

#include <gtest/gtest.h>

#include <cstring>

#include "Platform/sim/Simulation.h"
#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"
#include "tests/Projects/Common/VoIPFileEngine/ReaderFakes.h"
#include "tests/Projects/Common/VoIPFileEngine/ResampleModel.h"
#include "tests/Projects/Common/VoIPFileEngine/SoundFiles.h"

namespace Orv {
namespace {

using Platform::Sim::Files;
using TestData::Audio;
using TestData::Chunk;
using TestData::Format;
using TestData::PcmWave;
using TestData::Pull;
using TestData::Pulled;
using TestData::Riff;
using TestData::ViewLine;
using Lines = std::vector<std::string>;

std::string CacheLine(const std::string& word, const std::string& text) {
    return word + " VoIPFileEngine/MemoryFileCache: " + text;
}

class MemoryFilePreloaderTest : public testing::Test {
protected:
    MemoryFilePreloaderTest() {
        MemoryFileCache::Instance().Clear();
        Platform::Sim::ResetProcessWorld();
        Files().AddFolder("/Base");
        Files().SetWorkingDirectory("/Base");
    }
    ~MemoryFilePreloaderTest() override { MemoryFileCache::Instance().Clear(); }

    static std::shared_ptr<IMemoryFile> Cached(const char* name) { return MemoryFileCache::Instance().Find(name); }
    MTObjects::THolder<IMMFileStreamReader> Create(const char* name) {
        return CreateStreamReader(42, name, buffer_, 2000);
    }

    TestData::EngineLog log_;
    u8 buffer_[2000] = {};
};

TEST_F(MemoryFilePreloaderTest, AFileThatPlaysAsItIsIsMappedAndFoundUnderEveryNameOfItsPath) {
    Files().AddFile("/Base/Music/Jingle.WAV", PcmWave(Audio(5000)));
    MemoryFilePreloader preloader(1'000'000);
    EXPECT_TRUE(preloader.Load("Music\\Jingle.WAV"));
    EXPECT_EQ(log_.Take(), Lines{CacheLine("Trace", "/base/music/jingle.wav preloaded, 5044 bytes, locked")});
    EXPECT_EQ(preloader.Files(), 1u);
    EXPECT_EQ(preloader.Locked(), 1u);
    EXPECT_EQ(preloader.Bytes(), 5044u);
    for (const char* name : {"/Base/Music/Jingle.WAV", "music/jingle.wav", "./MUSIC\\JINGLE.wav"}) {
        ASSERT_NE(Cached(name), nullptr) << name;
        EXPECT_EQ(Cached(name)->offset, 44u);
    }
    // From here on the disk does not matter.
    Files().Remove("/Base/Music/Jingle.WAV");
    EXPECT_NE(Pull(*Create("Music/Jingle.WAV")).frame, nullptr);
}

TEST_F(MemoryFilePreloaderTest, AMonoFileAtAnotherRateIsResampledAndPlays) {
    const std::string audio = Audio(60'000);
    Files().AddFile("/Base/a.wav", Riff(Chunk("fmt ", Format(1, 1, 44100, 16, 2)) + Chunk("data", audio)));
    EXPECT_FALSE(Create("a.wav")->IsOpen()) << "from disk it is skipped";
    MemoryFilePreloader preloader(1'000'000);
    log_.Take();
    EXPECT_TRUE(preloader.Load("/Base/a.wav"));
    ResampleModel::Samples samples(30'000);
    std::memcpy(samples.data(), audio.data(), audio.size());
    const auto expected = ResampleModel::To8k(samples, 44100);
    EXPECT_EQ(preloader.Bytes(), expected.size() * 2);
    EXPECT_EQ(log_.Take(), (Lines{ViewLine("Warn", "Unsupported WAV format: 1/1/44100/16"),
                                  ViewLine("Info", "File has been resampled /base/a.wav"),
                                  CacheLine("Trace", "/base/a.wav preloaded, " + std::to_string(expected.size() * 2) +
                                                         " bytes, locked")}));
    const auto reader = Create("a.wav");
    std::vector<i16> played;
    for (Pulled pulled = Pull(*reader); pulled.result; pulled = Pull(*reader)) {
        for (const i16 sample : pulled.Samples(1000)) played.push_back(sample);
    }
    ASSERT_GE(played.size(), expected.size());
    played.resize(expected.size());
    EXPECT_EQ(played, expected);
}

TEST_F(MemoryFilePreloaderTest, WhatDoesNotFitIsToldAndPlaysFromDiskAndSmallerFilesStillFit) {
    Files().AddFile("/Base/a.raw", Audio(6000));
    Files().AddFile("/Base/b.raw", Audio(5000));
    Files().AddFile("/Base/c.raw", Audio(4000));
    MemoryFilePreloader preloader(10'000);
    EXPECT_TRUE(preloader.Load("a.raw"));
    log_.Take();
    EXPECT_FALSE(preloader.Load("b.raw"));
    EXPECT_EQ(log_.Take(), Lines{CacheLine("Warn",
                                           "/base/b.raw is not preloaded and plays from disk: 5000 bytes do not fit, "
                                           "4000 of 10000 are left")});
    EXPECT_TRUE(preloader.Load("c.raw")) << "to the last byte";
    EXPECT_EQ(preloader.Bytes(), 10'000u);
    EXPECT_EQ(preloader.Files(), 2u);
    EXPECT_EQ(Cached("b.raw"), nullptr);
    EXPECT_NE(Pull(*Create("b.raw")).frame, nullptr);
}

TEST_F(MemoryFilePreloaderTest, ALargeFileIsNotEvenReadWhenItDoesNotFit) {
    Files().AddFile("/Base/a.raw", "x");
    Files().Truncate("/Base/a.raw", 50'000'000);
    MemoryFilePreloader preloader(1'000'000);
    EXPECT_FALSE(preloader.Load("a.raw"));
    EXPECT_EQ(Files().Counters().bytesRead, 0u);
}

TEST_F(MemoryFilePreloaderTest, WhatNeitherRoadTakesIsToldAndLeftToTheDisk) {
    Files().AddFile("/Base/a.wav", Riff(Chunk("fmt ", Format(1, 2, 8000, 16, 4)) + Chunk("data", Audio(900))));
    Files().AddFile("/Base/empty.raw", "");
    Files().AddFile("/Base/a.mp3", Audio(900));
    MemoryFilePreloader preloader(1'000'000);
    EXPECT_FALSE(preloader.Load("a.wav"));
    EXPECT_EQ(log_.Take(),
              (Lines{ViewLine("Warn", "Unsupported WAV format: 1/2/8000/16"),
                     ViewLine("Warn", "Unsupported WAV format: 1/2/8000/16"),
                     CacheLine("Warn", "/base/a.wav cannot be preloaded, it plays from disk if it plays")}));
    EXPECT_FALSE(preloader.Load("missing.wav"));
    EXPECT_EQ(log_.Take(), Lines{CacheLine("Warn", "/base/missing.wav cannot be preloaded, error: 2")});
    EXPECT_FALSE(preloader.Load("empty.raw"));
    EXPECT_EQ(log_.Take(), Lines{CacheLine("Warn", "/base/empty.raw cannot be preloaded, error: 0")});
    EXPECT_FALSE(preloader.Load("a.mp3"));
    EXPECT_EQ(log_.Take(), Lines{CacheLine("Warn", "/base/a.mp3 is not preloaded: only .wav and .raw files are")});
    EXPECT_EQ(preloader.Files(), 0u);
    EXPECT_EQ(preloader.Bytes(), 0u);
}

TEST_F(MemoryFilePreloaderTest, AFileIsLoadedOnceHoweverOftenItIsNamed) {
    Files().AddFile("/Base/a.raw", Audio(6000));
    MemoryFilePreloader preloader(10'000);
    EXPECT_TRUE(preloader.Load("a.raw"));
    EXPECT_TRUE(preloader.Load("/base/A.RAW"));
    EXPECT_EQ(preloader.Files(), 1u);
    EXPECT_EQ(preloader.Bytes(), 6000u);
}

// On disk both names play the file that the lower-cased name finds; so they do from memory.
TEST_F(MemoryFilePreloaderTest, OfTwoFilesThatDifferInCaseAloneTheOneThatPlaysFromDiskIsLoaded) {
    Files().AddFile("/Base/A.raw", Audio(6000, 1));
    Files().AddFile("/Base/a.raw", Audio(6000, 2));
    const std::string fromDisk(reinterpret_cast<const char*>(Pull(*Create("A.raw")).frame), 2000);
    MemoryFilePreloader preloader(100'000);
    EXPECT_TRUE(preloader.Load("A.raw"));
    EXPECT_TRUE(preloader.Load("a.raw"));
    EXPECT_EQ(preloader.Files(), 1u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(Pull(*Create("A.raw")).frame), 2000), fromDisk);
    EXPECT_EQ(fromDisk, Audio(6000, 2).substr(0, 2000));
}

TEST_F(MemoryFilePreloaderTest, AFileThatCannotBeLockedIsPreloadedAllTheSame) {
    Files().AddFile("/Base/a.raw", Audio(6000));
    Platform::Sim::Memory().SetLockLimit(0);
    MemoryFilePreloader preloader(100'000);
    EXPECT_TRUE(preloader.Load("a.raw"));
    EXPECT_EQ(log_.Take(), Lines{CacheLine("Trace", "/base/a.raw preloaded, 6000 bytes")});
    EXPECT_EQ(preloader.Locked(), 0u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(Pull(*Create("a.raw")).frame), 2000),
              Audio(6000).substr(0, 2000));
}

}  // namespace
}  // namespace Orv
