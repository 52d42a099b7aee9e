#include "Projects/Common/VoIPFileEngine/ContentName.h"

#include <gtest/gtest.h>

#include "Platform/sim/Simulation.h"

namespace Orv {
namespace {

TEST(ContentName, AGapHasAtLeastThreeCharactersBetweenNumberSigns) {
    EXPECT_TRUE(IsGapName("#5#"));
    EXPECT_TRUE(IsGapName("###"));
    EXPECT_TRUE(IsGapName("##5#"));
    EXPECT_TRUE(IsGapName("#a.wav#"));
    EXPECT_FALSE(IsGapName("##"));
    EXPECT_FALSE(IsGapName("#"));
    EXPECT_FALSE(IsGapName("#5"));
    EXPECT_FALSE(IsGapName("5##"));
}

TEST(ContentName, ALinkBeginsWithItsSchemeWhateverItsCase) {
    EXPECT_TRUE(IsLinkName("http:"));
    EXPECT_TRUE(IsLinkName("HTTP://host/a.wav"));
    EXPECT_TRUE(IsLinkName("mMs:x"));
    EXPECT_FALSE(IsLinkName("https://host"));
    EXPECT_FALSE(IsLinkName("a http: b"));
    EXPECT_FALSE(IsLinkName("htt"));
    EXPECT_FALSE(IsLinkName("mms"));
    EXPECT_FALSE(IsLinkName(""));
}

TEST(ContentName, APipePathTakesAnyHostAndTheExactWordPipe) {
    EXPECT_TRUE(IsPipePath("\\\\.\\pipe\\"));
    EXPECT_TRUE(IsPipePath("\\\\.\\pipe\\radio"));
    EXPECT_TRUE(IsPipePath("\\\\some.host\\pipe\\radio"));
    EXPECT_TRUE(IsPipePath("\\\\\\pipe\\x"));  // an empty host
    EXPECT_FALSE(IsPipePath("\\\\\\pipe\\"));  // eight characters
    EXPECT_FALSE(IsPipePath("\\\\.\\PIPE\\radio"));
    EXPECT_FALSE(IsPipePath("\\\\.\\pipes\\radio"));
    EXPECT_FALSE(IsPipePath("\\\\.\\pip\\radio1"));
    EXPECT_FALSE(IsPipePath("\\\\.\\x\\pipe\\radio"));
    EXPECT_FALSE(IsPipePath("\\.\\pipe\\radio"));
    EXPECT_FALSE(IsPipePath("//./pipe/radio"));
    EXPECT_FALSE(IsPipePath("\\\\hostname"));
    EXPECT_FALSE(IsPipePath("\\\\.\\piperadio"));
}

TEST(ContentName, AMusicBoxNameEndsInAColon) {
    EXPECT_TRUE(IsMusicBoxName("defaultset:"));
    EXPECT_TRUE(IsMusicBoxName("C:"));
    EXPECT_TRUE(IsMusicBoxName(":"));
    EXPECT_FALSE(IsMusicBoxName("C:\\a"));
    EXPECT_FALSE(IsMusicBoxName(""));
}

TEST(ContentName, SoundFilesAndPipeFilesAreToldByTheirEndingsWhateverTheirCase) {
    EXPECT_TRUE(IsSoundFileName("a.wav"));
    EXPECT_TRUE(IsSoundFileName("a.WaV"));
    EXPECT_TRUE(IsSoundFileName("a.RAW"));
    EXPECT_FALSE(IsSoundFileName(".wav"));
    EXPECT_FALSE(IsSoundFileName("a.wav "));
    EXPECT_FALSE(IsSoundFileName("a.mp3"));
    EXPECT_FALSE(IsSoundFileName("wav"));
    EXPECT_TRUE(IsPipeFileName("a.PiPe"));
    EXPECT_FALSE(IsPipeFileName(".pipe"));
    EXPECT_FALSE(IsPipeFileName("a.pip"));
}

TEST(ContentName, WhatEndsInWavIsAWaveFileWhateverItsCaseAndBeItTheEndingAlone) {
    EXPECT_TRUE(EndsInWav("a.wav"));
    EXPECT_TRUE(EndsInWav("/s/B.WaV"));
    EXPECT_TRUE(EndsInWav(".WAV"));
    EXPECT_FALSE(EndsInWav("wav"));
    EXPECT_FALSE(EndsInWav("awav"));
    EXPECT_FALSE(EndsInWav("a.wave"));
    EXPECT_FALSE(EndsInWav("a.raw"));
    EXPECT_FALSE(EndsInWav(""));
}

TEST(ContentName, APipeFileStandsForTheLocalPipeOfItsBaseName) {
    EXPECT_EQ(LocalPipePath("/data/music/jingle.pipe"), "\\\\.\\pipe\\jingle");
    EXPECT_EQ(LocalPipePath("c:\\music\\jingle.pipe"), "\\\\.\\pipe\\jingle");
    EXPECT_EQ(LocalPipePath("jingle.pipe"), "\\\\.\\pipe\\jingle");
    EXPECT_EQ(LocalPipePath("/data/.pipe"), "\\\\.\\pipe\\");
    EXPECT_EQ(LocalPipePath("/data/a.pipe.pipe"), "\\\\.\\pipe\\a.pipe");
    // The last backslash counts before any slash.
    EXPECT_EQ(LocalPipePath("c:\\music/jingle.pipe"), "\\\\.\\pipe\\music/jingle");
}

class NormalisedName : public testing::Test {
protected:
    NormalisedName() {
        Platform::Sim::ResetProcessWorld();
        Platform::Sim::Files().AddFolder("/Base");
        Platform::Sim::Files().SetWorkingDirectory("/Base");
    }
    ~NormalisedName() override { Platform::Sim::ResetProcessWorld(); }
};

TEST_F(NormalisedName, IsAbsoluteAndInLowerCase) {
    EXPECT_EQ(NormaliseFileName("Music\\Jingle.WAV"), "/base/music/jingle.wav");
    EXPECT_EQ(NormaliseFileName("/Data/../A.raw"), "/a.raw");
    EXPECT_EQ(NormaliseFileName("\xC3\x84.WAV"), "/base/\xC3\x84.wav");  // A to Z only
}

TEST_F(NormalisedName, OfAPipeFileInAFolderIsThatOfThePipeInLowerCase) {
    const std::string name = NormaliseFileName("Music\\Jingle.PIPE");
    ASSERT_TRUE(IsPipeFileName(name));
    EXPECT_EQ(LocalPipePath(name), "\\\\.\\pipe\\jingle");
}

TEST_F(NormalisedName, IsTheCallersNameWhenThePathIsLongerThan2047Bytes) {
    const std::string fits = "/" + std::string(2042, 'A') + ".wav";
    const std::string tooLong = "/" + std::string(2043, 'A') + ".wav";
    ASSERT_EQ(fits.size(), 2047u);
    EXPECT_EQ(NormaliseFileName(fits), "/" + std::string(2042, 'a') + ".wav");
    EXPECT_EQ(NormaliseFileName(tooLong), tooLong);
}

}  // namespace
}  // namespace Orv
