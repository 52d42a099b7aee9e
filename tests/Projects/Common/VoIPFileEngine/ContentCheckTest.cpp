// Goal: a file is called unplayable exactly when the reader refuses it, and for the right reason.
#include "Projects/Common/VoIPFileEngine/ContentCheck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/sim/Simulation.h"
#include "Projects/Common/VoIPFileEngine/WAVFileView.h"
#include "tests/Projects/Common/VoIPFileEngine/SoundFiles.h"

namespace Orv {
namespace {

using Platform::Sim::Files;
using ::testing::HasSubstr;

class ContentCheckTest : public testing::Test {
protected:
    ContentCheckTest() { Platform::Sim::ResetProcessWorld(); }

    static std::string Number(u64 number, u32 bytes) {
        std::string text;
        for (u32 i = 0; i < bytes; ++i) text.push_back(static_cast<char>(number >> 8 * i));
        return text;
    }
    // A WAV file with a hundred bytes of sound.
    static std::string Wave(u16 tag, u16 channels, u32 rate, u16 align, u16 bits, u32 dataLength = 100) {
        const std::string body =
            Number(tag, 2) + Number(channels, 2) + Number(rate, 4) + Number(0, 4) + Number(align, 2) + Number(bits, 2);
        const std::string rest =
            "WAVEfmt " + Number(16, 4) + body + "data" + Number(dataLength, 4) + std::string(100, 'x');
        return "RIFF" + Number(rest.size(), 4) + rest;
    }
    // What is said of a file of these bytes; it must be nothing just when the reader takes the file.
    static std::string WhyNot(const std::string& bytes) {
        Files().AddFile("/a.wav", bytes);
        const std::string why = WhyFileNotPlayable("/a.wav");
        EXPECT_EQ(why.empty(), WAVFileView("/a.wav", false, false).IsValid()) << why;
        return why;
    }
};

TEST_F(ContentCheckTest, WhatThePlayersTakeIsInOrder) {
    EXPECT_EQ(WhyNot(Wave(1, 1, 8000, 2, 16)), "");
    EXPECT_EQ(WhyNot(Wave(17, 1, 8000, 256, 4)), "");
    EXPECT_EQ(WhyNot(Wave(1, 1, 8000, 2, 16, 0)), "") << "a length that was never filled in";
    EXPECT_EQ(WhyNot(Wave(1, 1, 8000, 2, 16, 0xFFFFFFFF)), "");
}

TEST_F(ContentCheckTest, EachFaultOfAWaveFileHasItsReason) {
    EXPECT_EQ(WhyNot(Wave(1, 1, 44100, 2, 16)), "its rate is 44100 Hz; only 8000 Hz is played");
    EXPECT_EQ(WhyNot(Wave(1, 2, 8000, 4, 16)), "it is stereo; only mono is played");
    EXPECT_EQ(WhyNot(Wave(1, 2, 44100, 4, 16)),
              "it is stereo; only mono is played, its rate is 44100 Hz; only 8000 Hz is played");
    EXPECT_EQ(WhyNot(Wave(1, 6, 8000, 12, 16)), "it has 6 channels; only mono is played");
    EXPECT_EQ(WhyNot(Wave(1, 1, 8000, 1, 8)), "its samples have 8 bits; only 16 are played");
    EXPECT_THAT(WhyNot(Wave(6, 1, 8000, 1, 8)), HasSubstr("its coding is number 6"));
    EXPECT_THAT(WhyNot(Wave(17, 1, 8000, 512, 4)), HasSubstr("blocks are not of 256 bytes"));
    EXPECT_EQ(WhyNot("short"), "it is too short for a WAV file with sound");
    EXPECT_EQ(WhyNot(std::string(200, 'a')), "it is no WAV file, whatever its name says");
    EXPECT_THAT(WhyNot(Wave(1, 1, 8000, 2, 16).substr(0, 60)), HasSubstr("cut off"));
    std::string noFormat = Wave(1, 1, 8000, 2, 16);
    noFormat.replace(12, 4, "junk");
    EXPECT_EQ(WhyNot(noFormat), "it does not say what its sound is like");
    std::string noData = Wave(1, 1, 8000, 2, 16);
    noData.replace(36, 4, "junk");
    EXPECT_EQ(WhyNot(noData), "there is no sound in it");
}

TEST_F(ContentCheckTest, EveryCutAndEveryChangedHeaderByteIsJudgedAsTheReaderDoes) {
    const std::string whole = Wave(1, 1, 8000, 2, 16);
    for (u64 length = 0; length < whole.size(); ++length) WhyNot(whole.substr(0, length));
    for (u64 place = 0; place < 44; ++place) {
        for (const char byte : {'\0', '\1', '\x11', '\x7f', '\xff'}) {
            std::string changed = whole;
            changed[place] = byte;
            WhyNot(changed);
        }
    }
}

TEST_F(ContentCheckTest, AFileThatCannotBeOpenedIsToldWithTheSystemsWords) {
    EXPECT_EQ(WhyFileNotPlayable("/absent.wav"), "it cannot be opened: No such file or directory");
    Files().AddFile("/secret.wav", Wave(1, 1, 8000, 2, 16));
    Files().MakeUnreadable("/secret.wav");
    EXPECT_EQ(WhyFileNotPlayable("/secret.wav"), "it cannot be opened: Permission denied");
    Files().AddFile("/empty.raw", std::string());
    EXPECT_EQ(WhyFileNotPlayable("/empty.raw"), "there is no sound in it");
    Files().AddFile("/full.raw", std::string("xx"));
    EXPECT_EQ(WhyFileNotPlayable("/full.raw"), "");
}

TEST_F(ContentCheckTest, NamesThatAreNoFilesAreJudgedByTheirKind) {
    for (const char* name : {"#5#", "##1#", "defaultset:", "\\\\.\\pipe\\radio", "radio.pipe"}) {
        EXPECT_EQ(WhyNotPlayable(name), "") << name;
    }
    EXPECT_EQ(WhyNotPlayable(""), "no file is named");
    EXPECT_EQ(WhyNotPlayable("http://x/a.wav"), "http: and mms: links are not played");
    EXPECT_EQ(WhyNotPlayable("/a.mp3"), "its name ends neither in .wav nor in .raw nor in .pipe");
    EXPECT_EQ(WhyNotPlayable("/none.wav"), "it cannot be opened: No such file or directory");
}

TEST_F(ContentCheckTest, AFileOfEmptyChunksEndsTheSearch) {
    std::string chunks;
    for (int i = 0; i < 20'000; ++i) chunks += "junk" + Number(0, 4);
    const std::string bytes = "RIFF" + Number(chunks.size() + 4, 4) + "WAVE" + chunks;
    EXPECT_EQ(WhyNot(bytes), "it does not say what its sound is like");
}

}  // namespace
}  // namespace Orv
