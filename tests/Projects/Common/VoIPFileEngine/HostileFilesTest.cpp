// Headers that promise more than the file has, on the whole road from a name to frames: a stream of such a file plays
// the bytes that are there and ends, or is none at all.
#include <gtest/gtest.h>

#include <memory>

#include "Platform/sim/Simulation.h"
#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"
#include "tests/Projects/Common/VoIPFileEngine/SoundFiles.h"

namespace Orv {
namespace {

using TestData::AdpcmFormat;
using TestData::Audio;
using TestData::Chunk;
using TestData::Le32;
using TestData::PcmFormat;
using TestData::Riff;

constexpr u32 kFrameBytes = 2000;
constexpr u32 kHugeLengths[] = {0x7FFFFFFF, 0x80000000, 0xFFFFFF00, 0xFFFFFFF8, 0xFFFFFFFF};

// All frames of the file one after the other; nothing when it cannot be played.
std::string Play(const std::string& bytes) {
    Platform::Sim::ResetProcessWorld();
    Platform::Sim::Files().AddFile("/a.wav", bytes);
    const auto buffer = std::make_unique<u8[]>(kFrameBytes);
    const MTObjects::THolder<IMMFileStreamReader> reader = CreateStreamReader(1, "/a.wav", buffer.get(), kFrameBytes);
    std::string played;
    ContentEventList events;
    for (const u8* frame = nullptr; reader->GetNextFrame(&frame, events);) {
        EXPECT_NE(frame, nullptr);
        played.append(reinterpret_cast<const char*>(frame), kFrameBytes);
        if (played.size() > 1'000'000) {
            ADD_FAILURE() << "the file does not end";
            break;
        }
    }
    EXPECT_EQ(events.size(), 1u);
    return played;
}

std::string WithZeros(std::string audio, u64 size) {
    audio.resize(size, '\0');
    return audio;
}

TEST(HostileFiles, ADataLengthOfTwoOrFourGibibytesPlaysWhatTheFileHas) {
    const std::string audio = Audio(5001);
    for (const u32 length : kHugeLengths) {
        const std::string file = Riff(Chunk("fmt ", PcmFormat()) + "data" + Le32(length) + audio);
        EXPECT_EQ(Play(file), WithZeros(audio, 6000)) << length;
    }
}

TEST(HostileFiles, ACompressedDataLengthOfFourGibibytesPlaysTheBlocksThatTheFileHas) {
    // A first sample of 256, a step index of 0, and nibbles that change nothing: 505 times 256.
    const std::string block = std::string("\0\x01\0\0", 4) + std::string(252, '\0');
    std::string sound;
    for (int sample = 0; sample < 505; ++sample) sound += std::string("\0\x01", 2);
    for (const u32 length : kHugeLengths) {
        const std::string file = Riff(Chunk("fmt ", AdpcmFormat()) + "data" + Le32(length) + block);
        EXPECT_EQ(Play(file), WithZeros(sound, 2020 / kFrameBytes * kFrameBytes + kFrameBytes)) << length;
    }
}

// Added in 32 bits, each of these would lead to the chunk itself, to the one before it, or to the start of the file.
TEST(HostileFiles, AChunkLengthThatWouldWrapBackIntoTheFileIsNotFollowed) {
    for (const u32 length : {0xFFFFFFF8u, 0xFFFFFFE0u, 0xFFFFFFD4u}) {
        const std::string chunks = Chunk("fmt ", PcmFormat()) + "LIST" + Le32(length) + Chunk("data", Audio(5001));
        EXPECT_EQ(Play(Riff(chunks)), "") << length;
    }
}

TEST(HostileFiles, AFormatLengthOfFourGibibytesOrARiffLengthBeyondTheFileIsRefused) {
    for (const u32 length : kHugeLengths) {
        EXPECT_EQ(Play(Riff("fmt " + Le32(length) + PcmFormat() + Chunk("data", Audio(500)))), "") << length;
        const std::string inside = "WAVE" + Chunk("fmt ", PcmFormat()) + Chunk("data", Audio(500));
        EXPECT_EQ(Play("RIFF" + Le32(length) + inside), "") << length;
    }
}

TEST(HostileFiles, AFileCutAnywhereInItsHeadersPlaysNothingAndCutInItsSoundPlaysTheRest) {
    const std::string audio = Audio(3000);
    const std::string whole = Riff(Chunk("fmt ", PcmFormat()) + Chunk("data", audio));
    for (u64 size = 0; size < whole.size(); size += size < 60 ? 1 : 97) {
        std::string cut = whole.substr(0, size);
        // A true RIFF length, so that the chunks are looked at.
        if (size >= 8) cut.replace(4, 4, Le32(static_cast<u32>(size - 8)));
        const u64 sound = size > 44 ? size - 44 : 0;
        const u64 frames = (sound + kFrameBytes - 1) / kFrameBytes;
        const std::string played = Play(cut);
        EXPECT_EQ(played.substr(0, frames * kFrameBytes), WithZeros(audio.substr(0, sound), frames * kFrameBytes))
            << size;
        EXPECT_EQ(played.substr(frames * kFrameBytes).find_first_not_of('\0'), std::string::npos) << size;
    }
}

}  // namespace
}  // namespace Orv
