// Which object a name gives on which road, and what it holds.
#include "Projects/Common/VoIPFileEngine/OpenMemoryFile.h"

#include <gtest/gtest.h>

#include <cstring>

#include "Platform/sim/Simulation.h"
#include "Projects/Common/VoIPFileEngine/PCMBuffer.h"
#include "Projects/Common/VoIPFileEngine/WAVFileView.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"
#include "tests/Projects/Common/VoIPFileEngine/ResampleModel.h"
#include "tests/Projects/Common/VoIPFileEngine/SoundFiles.h"

namespace Orv {
namespace {

using Platform::Sim::Files;
using Platform::Sim::Memory;
using TestData::AdpcmWave;
using TestData::Audio;
using TestData::Chunk;
using TestData::Format;
using TestData::PcmWave;
using TestData::Riff;
using TestData::SameBytes;
using TestData::ViewLine;
using Lines = std::vector<std::string>;

class OpenMemoryFileTest : public testing::Test {
protected:
    OpenMemoryFileTest() { Platform::Sim::ResetProcessWorld(); }
    static std::string All(IMemoryFile& file) {
        std::string bytes(100'000, '?');
        bytes.resize(file.Read(bytes.data(), 0, bytes.size()));
        return bytes;
    }
    TestData::EngineLog log_;
};

std::string Wave44100(const std::string& audio) {
    return Riff(Chunk("fmt ", Format(1, 1, 44100, 16, 2)) + Chunk("data", audio));
}

TEST_F(OpenMemoryFileTest, OnTheViewRoadANameThatEndsInWavInAnyCaseIsParsedAndAnyOtherIsHandedOverWhole) {
    const std::string wave = PcmWave(Audio(1000));
    for (const char* path : {"/s/a.wav", "/s/B.WAV", "x.Wav"}) {
        Files().AddFile(path, wave);
        const auto file = OpenMemoryFile(path, true, false);
        EXPECT_NE(dynamic_cast<WAVFileView*>(file.get()), nullptr) << path;
        EXPECT_EQ(file->offset, 44u);
        EXPECT_EQ(file->size, 1000u);
    }
    for (const char* path : {"/s/a.raw", "/s/a.wave", "/s/awav"}) {
        Files().AddFile(path, wave);
        const auto file = OpenMemoryFile(path, true, false);
        EXPECT_EQ(dynamic_cast<WAVFileView*>(file.get()), nullptr) << path;
        EXPECT_EQ(All(*file), wave);
    }
}

TEST_F(OpenMemoryFileTest, APathOfFourCharactersIsAPlainViewOnTheViewRoadAndAWavOnTheOther) {
    const std::string audio = Audio(1000);
    Files().AddFile(".wav", PcmWave(audio));
    EXPECT_EQ(All(*OpenMemoryFile(".wav", true, true)), PcmWave(audio));
    EXPECT_EQ(All(*OpenMemoryFile(".wav", false, true)), audio);
}

TEST_F(OpenMemoryFileTest, AViewIsPrefetchedAndLockedAsAskedFor) {
    Files().AddFile("/s/a.wav", PcmWave(Audio(10'000)));
    Files().AddFile("/s/a.raw", Audio(10'000));
    for (const char* path : {"/s/a.wav", "/s/a.raw"}) {
        {
            const auto file = OpenMemoryFile(path, true, true);
            EXPECT_TRUE(file->locked);
            EXPECT_EQ(Memory().LockedBytes(), 12'288u) << "all of the file";
        }
        EXPECT_EQ(Memory().LockedBytes(), 0u);
        const auto file = OpenMemoryFile(path, true, false);
        EXPECT_FALSE(file->locked);
        EXPECT_NE(file->data, nullptr);
    }
}

TEST_F(OpenMemoryFileTest, ABufferHoldsTheAudioAloneAndAllOfItCanBeReached) {
    const std::string audio = Audio(1000);
    Files().AddFile("/s/a.wav", PcmWave(audio));
    const auto file = OpenMemoryFile("/s/a.wav", false, false);
    EXPECT_NE(dynamic_cast<PCMBuffer*>(file.get()), nullptr);
    EXPECT_TRUE(file->IsValid());
    EXPECT_EQ(file->name, "/s/a.wav");
    EXPECT_EQ(file->offset, 0u);
    EXPECT_EQ(file->size, 1000u);
    EXPECT_FALSE(file->locked);
    EXPECT_FALSE(file->adpcm);
    EXPECT_EQ(All(*file), audio);
    Files().AddFile("/s/b.wav", AdpcmWave(audio));
    EXPECT_TRUE(OpenMemoryFile("/s/b.wav", false, false)->adpcm);
}

TEST_F(OpenMemoryFileTest, ABufferIsLockedIfTheSystemAllowsItAndGivesTheLockBack) {
    Files().AddFile("/s/a.wav", PcmWave(Audio(5000)));
    {
        const auto file = OpenMemoryFile("/s/a.wav", false, true);
        EXPECT_TRUE(file->locked);
        EXPECT_EQ(Memory().LockedBytes(), 8192u);
    }
    EXPECT_EQ(Memory().LockedBytes(), 0u);
    Memory().SetLockLimit(4096);
    const auto file = OpenMemoryFile("/s/a.wav", false, true);
    EXPECT_FALSE(file->locked);
    EXPECT_EQ(All(*file), Audio(5000));
    EXPECT_EQ(log_.Take(), Lines{});
}

TEST_F(OpenMemoryFileTest, AMonoFileAtAnotherRateIsRefusedByTheViewAndResampledByTheBuffer) {
    const std::string audio = Audio(20'000);
    Files().AddFile("/s/a.wav", Wave44100(audio));
    EXPECT_FALSE(OpenMemoryFile("/s/a.wav", true, true)->IsValid());
    EXPECT_EQ(Memory().Locks(), 0u) << "a view that was refused holds nothing";
    EXPECT_EQ(log_.Take(), Lines{ViewLine("Warn", "Unsupported WAV format: 1/1/44100/16")});

    ResampleModel::Samples samples(10'000);
    std::memcpy(samples.data(), audio.data(), audio.size());
    const auto expected = ResampleModel::To8k(samples, 44100);
    const auto file = OpenMemoryFile("/s/a.wav", false, true);
    EXPECT_TRUE(SameBytes(All(*file), {reinterpret_cast<const char*>(expected.data()), expected.size() * 2}));
    EXPECT_EQ(log_.Take(), Lines{ViewLine("Info", "File has been resampled /s/a.wav")});
}

TEST_F(OpenMemoryFileTest, WhatCannotBeUsedGivesAnObjectThatIsNotValidOnBothRoads) {
    for (const bool view : {true, false}) {
        const auto missing = OpenMemoryFile("/s/none.wav", view, true);
        ASSERT_NE(missing, nullptr);
        EXPECT_FALSE(missing->IsValid());
        EXPECT_EQ(missing->data, nullptr);
        EXPECT_EQ(missing->size, 0u);
        EXPECT_EQ(All(*missing), "");
        EXPECT_EQ(log_.Take(), Lines{ViewLine("Error", "Failed to open file /s/none.wav, error: 2")});
    }
    Files().AddFile("/s/short.wav", std::string(30, 'x'));
    for (const bool view : {true, false}) {
        EXPECT_FALSE(OpenMemoryFile("/s/short.wav", view, true)->IsValid());
        EXPECT_EQ(log_.Take(), Lines{});
    }
    EXPECT_EQ(Memory().Locks(), 0u);
}

}  // namespace
}  // namespace Orv
