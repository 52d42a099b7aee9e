// Goal: what is in the pipe's format plays to the sample, and what is not is refused with what it is. Method: headers
// written by hand, in memory.
#include "Tools/orv-publish/WavSource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/sim/Simulation.h"
#include "tests/Tools/orv-publish/Fakes.h"

namespace Orv {
namespace {

using PublishTest::Messages;
using PublishTest::Same;
using PublishTest::Sound;
using testing::HasSubstr;

std::string Number(u32 value, u32 bytes) {
    std::string text;
    for (u32 i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i) & 0xFF);
    return text;
}

std::string Format(u32 tag, u32 channels, u32 rate, u32 bits) {
    return Number(tag, 2) + Number(channels, 2) + Number(rate, 4) + Number(rate * channels * bits / 8, 4) +
           Number(channels * bits / 8, 2) + Number(bits, 2);
}

std::string Chunk(const std::string& name, const std::string& content) {
    return name + Number(static_cast<u32>(content.size()), 4) + content + std::string(content.size() % 2, '\0');
}

std::string Wav(const std::string& chunks) {
    return "RIFF" + Number(static_cast<u32>(4 + chunks.size()), 4) + "WAVE" + chunks;
}

const std::string kRight = Chunk("fmt ", Format(1, 1, 8000, 16));

class WavSourceTest : public testing::Test {
protected:
    // What the file plays, at most `limit` bytes; nothing when it is refused.
    std::string Play(const std::string& file, bool loop = false, std::size_t limit = 1'000'000) {
        sim_.Files().AddFile("/m/a.wav", file);
        const auto source = OpenWavSource("/m/a.wav", loop, [this](const std::string& text) { told_.push_back(text); });
        if (source == nullptr) return "";
        std::string all;
        u8 bytes[250];
        u64 taken = 0;
        while (all.size() < limit && source->Read(bytes, sizeof bytes, taken) == ISource::Outcome::Data) {
            all.append(reinterpret_cast<const char*>(bytes), taken);
        }
        result_ = source->Result();
        return all;
    }
    std::string Refusal(const std::string& file) {
        told_.clear();
        EXPECT_EQ(Play(file), "");
        EXPECT_EQ(told_.size(), 1u);
        return told_.empty() ? "" : told_[0];
    }

    Platform::Sim::Simulation sim_;
    Messages told_;
    i32 result_ = -1;
};

TEST_F(WavSourceTest, TheSoundPlaysOnceAndItsEndIsTold) {
    const std::string sound = Sound(16000);
    EXPECT_TRUE(Same(Play(Wav(kRight + Chunk("data", sound))), sound));
    EXPECT_EQ(told_, (Messages{"the file has ended after 1.000 s of sound."}));
    EXPECT_EQ(result_, 0);
}

TEST_F(WavSourceTest, ALoopPlaysTheSoundAgainWithoutASeam) {
    const std::string sound = Sound(1002);
    const std::string heard = Play(Wav(kRight + Chunk("data", sound)), true, 3 * 1002);
    EXPECT_TRUE(Same(heard.substr(0, 3 * 1002), sound + sound + sound));
    EXPECT_TRUE(told_.empty());
}

TEST_F(WavSourceTest, OtherChunksArePassedOverTheOddOnesWithTheirFillByte) {
    const std::string sound = Sound(500);
    EXPECT_EQ(Play(Wav(Chunk("LIST", "abc") + kRight + Chunk("fact", "1234") + Chunk("data", sound) +
                       Chunk("LIST", "behind the sound"))),
              sound);
}

TEST_F(WavSourceTest, AnExtensibleFormatThatHoldsPcmIsTaken) {
    const std::string format = Format(0xFFFE, 1, 8000, 16) + Number(22, 2) + Number(16, 2) + Number(4, 4) +
                               Number(1, 2) +
                               std::string("\x00\x00\x00\x00\x10\x00\x80\x00\x00\xAA\x00\x38\x9B\x71", 14);
    const std::string sound = Sound(500);
    EXPECT_TRUE(Same(Play(Wav(Chunk("fmt ", format) + Chunk("data", sound))), sound));
}

TEST_F(WavSourceTest, ALengthThatIsUnknownOrTooLongEndsWithTheFileAndAnOddByteIsDropped) {
    const std::string sound = Sound(501);
    EXPECT_TRUE(Same(Play(Wav(kRight + "data" + Number(0xFFFFFFFF, 4) + sound)), sound.substr(0, 500)));
    EXPECT_TRUE(Same(Play(Wav(kRight + "data" + Number(0x80000000, 4) + sound)), sound.substr(0, 500)));
}

TEST_F(WavSourceTest, OtherFormatsAreRefusedWithWhatTheyAreAndTheCommandThatConvertsThem) {
    const auto refusal = [this](u32 tag, u32 channels, u32 rate, u32 bits) {
        return Refusal(Wav(Chunk("fmt ", Format(tag, channels, rate, bits)) + Chunk("data", Sound(100))));
    };
    EXPECT_EQ(
        refusal(1, 2, 44100, 16),
        "'/m/a.wav' is 44100 Hz, 2 channels, 16-bit PCM, but a pipe carries 8000 Hz, mono, 16-bit PCM. This makes "
        "such a file of it:\n  ffmpeg -i '/m/a.wav' -ar 8000 -ac 1 -c:a pcm_s16le 'a-8000.wav'");
    EXPECT_THAT(refusal(1, 1, 16000, 16), HasSubstr("is 16000 Hz, mono, 16-bit PCM,"));
    EXPECT_THAT(refusal(1, 1, 8000, 8), HasSubstr("is 8000 Hz, mono, 8-bit PCM,"));
    EXPECT_THAT(refusal(17, 1, 8000, 4), HasSubstr("is 8000 Hz, mono, 4-bit of format 17,"));
    EXPECT_THAT(refusal(3, 1, 8000, 32), HasSubstr("is 8000 Hz, mono, 32-bit of format 3,"));
}

TEST_F(WavSourceTest, WhatIsNoWavFileOrHoldsNoSoundIsRefused) {
    EXPECT_THAT(Refusal("ID3 and so on, no sound of ours"), HasSubstr("is no WAV file,"));
    EXPECT_THAT(Refusal(""), HasSubstr("is no WAV file,"));
    EXPECT_THAT(Refusal(Wav("")), HasSubstr("is a WAV file that holds no sound,"));
    EXPECT_THAT(Refusal(Wav(kRight)), HasSubstr("is a WAV file that holds no sound,"));
    EXPECT_THAT(Refusal(Wav(kRight + Chunk("data", ""))), HasSubstr("is a WAV file that holds no sound,"));
    EXPECT_THAT(Refusal(Wav(Chunk("data", Sound(10)))), HasSubstr("without a format before its sound,"));
    EXPECT_THAT(Refusal(Wav(Chunk("fmt ", "short"))), HasSubstr("without a whole format,"));
    EXPECT_THAT(Refusal(Wav(kRight + "LIST" + Number(0xFFFFFFFF, 4))), HasSubstr("holds no sound,"));
}

TEST_F(WavSourceTest, AMissingFileIsTold) {
    EXPECT_EQ(OpenWavSource("/m/none.wav", false, [this](const std::string& text) { told_.push_back(text); }), nullptr);
    EXPECT_EQ(told_,
              (Messages{"cannot read '/m/none.wav': No such file or directory. Name a WAV file that you may read."}));
}

}  // namespace
}  // namespace Orv
