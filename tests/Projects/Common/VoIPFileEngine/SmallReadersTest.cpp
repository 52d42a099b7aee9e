#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Projects/Common/VoIPFileEngine/EmptyStream.h"
#include "Projects/Common/VoIPFileEngine/FakeStream.h"
#include "Projects/Common/VoIPFileEngine/MMTextStreamReader.h"
#include "tests/Projects/Common/VoIPFileEngine/ReaderFakes.h"

namespace Orv {
namespace {

using TestData::AllZero;
using TestData::Finished;
using TestData::Pull;
using TestData::Pulled;

void ExpectBaseReadSamples(IMMFileStreamReader& reader) {
    const u8 somewhere = 0;
    const u8* frame = &somewhere;
    EXPECT_EQ(reader.ReadSamples(&frame), 0u);
    EXPECT_EQ(frame, nullptr);
}

void ExpectFinished(const Pulled& pulled, u32 id) {
    EXPECT_EQ(pulled.frame, nullptr);
    EXPECT_FALSE(pulled.result);
    EXPECT_EQ(pulled.events, Finished({id}));
}

// Pulls until the end, 1000 frames at most; the number of frames before it.
u32 CountFrames(EmptyStream& gap) {
    u32 frames = 0;
    while (frames < 1000 && Pull(gap).result) ++frames;
    return frames;
}

TEST(FakeStream, IsFinishedFromTheStart) {
    FakeStream stream(77);
    ExpectFinished(Pull(stream), 77);
    ExpectFinished(Pull(stream), 77);
}

TEST(FakeStream, AnswersAsNothingWould) {
    FakeStream stream;
    u8 buffer[160];
    EXPECT_FALSE(stream.Open("a.wav", buffer, 160));
    stream.Rewind();
    stream.Close();
    EXPECT_EQ(stream.GetName(), "");
    EXPECT_FALSE(stream.IsOpen());
    EXPECT_FALSE(stream.IsFile());
    EXPECT_EQ(stream.GetContentId(), 0u);
    ExpectBaseReadSamples(stream);
}

TEST(MMTextStreamReader, IsFinishedFromTheStartAndIsNamedText) {
    MMTextStreamReader stream(5);
    EXPECT_FALSE(stream.Open("good morning", nullptr, 160));
    ExpectFinished(Pull(stream), 5);
    stream.Rewind();
    stream.Close();
    EXPECT_EQ(stream.GetName(), "text");
    EXPECT_FALSE(stream.IsOpen());
    EXPECT_FALSE(stream.IsFile());
    EXPECT_EQ(stream.GetContentId(), 5u);
    ExpectBaseReadSamples(stream);
}

TEST(EmptyStream, FiveSecondsAreFortyNullFramesAndFortyAgainAfterRewind) {
    EmptyStream gap(9);
    u8 buffer[2000];
    ASSERT_TRUE(gap.Open("#5#", buffer, 2000));
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 40; ++i) {
            const Pulled pulled = Pull(gap);
            EXPECT_EQ(pulled.frame, nullptr);
            EXPECT_TRUE(pulled.result);
            EXPECT_TRUE(pulled.events.empty());
        }
        ExpectFinished(Pull(gap), 9);
        ExpectFinished(Pull(gap), 9);
        gap.Rewind();
    }
}

TEST(EmptyStream, RealSilenceIsTheSameBlockOfZerosForAllStreams) {
    EmptyStream gap(9);
    EmptyStream other(10);
    u8 buffer[2000];
    std::memset(buffer, 0x55, sizeof buffer);
    ASSERT_TRUE(gap.Open("##5#", buffer, 2000));
    ASSERT_TRUE(other.Open("##1#", buffer, 160));
    const u8* block = Pull(other).frame;
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(AllZero(block, 2048));
    for (int i = 0; i < 40; ++i) {
        const Pulled pulled = Pull(gap);
        EXPECT_EQ(pulled.frame, block);
        EXPECT_TRUE(pulled.result);
        EXPECT_TRUE(pulled.events.empty());
    }
    ExpectFinished(Pull(gap), 9);
    EXPECT_EQ(buffer[0], 0x55);
}

TEST(EmptyStream, RealSilenceOfFramesAbove2048BytesIsWrittenToTheCallersBuffer) {
    EmptyStream gap;
    std::vector<u8> buffer(2049, 0x55);
    ASSERT_TRUE(gap.Open("##1#", buffer.data(), 2049));
    EXPECT_EQ(Pull(gap).frame, buffer.data());
    EXPECT_TRUE(AllZero(buffer.data(), 2049));

    EmptyStream largest;
    ASSERT_TRUE(largest.Open("##1#", buffer.data(), 2048));
    EXPECT_NE(Pull(largest).frame, buffer.data());
}

TEST(EmptyStream, ARestShorterThanAFrameCostsAWholeFrame) {
    u8 buffer[2000];
    EmptyStream eight;
    ASSERT_TRUE(eight.Open("#1#", buffer, 2000));
    EXPECT_EQ(CountFrames(eight), 8u);
    EmptyStream rest;
    ASSERT_TRUE(rest.Open("#1#", buffer, 1999));
    EXPECT_EQ(CountFrames(rest), 9u);
    EmptyStream ticks;
    ASSERT_TRUE(ticks.Open("#1#", buffer, 160));
    EXPECT_EQ(CountFrames(ticks), 100u);
}

TEST(EmptyStream, GapsWithoutAPositiveNumberEndAtOnce) {
    u8 buffer[2000];
    for (const char* name : {"###", "#0#", "##0#", "#-5#", "##-5#", "#abc#", "##", "#"}) {
        EmptyStream gap(3);
        EXPECT_TRUE(gap.Open(name, buffer, 2000)) << name;
        ExpectFinished(Pull(gap), 3);
    }
}

TEST(EmptyStream, TheNumberStopsAtTheFirstOtherCharacter) {
    u8 buffer[2000];
    for (const char* name : {"#2x9#", "# 2#", "#+2#", "##2#"}) {
        EmptyStream gap;
        EXPECT_TRUE(gap.Open(name, buffer, 2000)) << name;
        EXPECT_EQ(CountFrames(gap), 16u) << name;
    }
}

TEST(EmptyStream, BytesThatDoNotFitIn31BitsWrap) {
    u8 buffer[2000];
    // 134218 s are 2147488000 bytes, more than 31 bits hold; 268436 s are 8704 bytes modulo 2^32.
    EmptyStream negative;
    ASSERT_TRUE(negative.Open("#134218#", buffer, 2000));
    EXPECT_EQ(CountFrames(negative), 0u);
    EmptyStream wrapped;
    ASSERT_TRUE(wrapped.Open("#268436#", buffer, 2000));
    EXPECT_EQ(CountFrames(wrapped), 5u);
    EmptyStream huge;
    EXPECT_TRUE(huge.Open("#99999999999999999999999#", buffer, 2000));
}

TEST(EmptyStream, OtherNamesAreRefusedAndStoreNothing) {
    u8 buffer[2000];
    EmptyStream gap(4);
    ASSERT_TRUE(gap.Open("#1#", buffer, 2000));
    for (const char* name : {static_cast<const char*>(nullptr), "", "5", "#5", "5#", "a#5#", "#5#a"}) {
        EXPECT_FALSE(gap.Open(name, buffer, 1000));
    }
    EXPECT_EQ(CountFrames(gap), 8u);
}

TEST(EmptyStream, AnswersAsAReaderThatIsAlwaysOpen) {
    EmptyStream gap(4);
    EXPECT_TRUE(gap.IsOpen());
    EXPECT_FALSE(gap.IsFile());
    EXPECT_EQ(gap.GetName(), "");
    EXPECT_EQ(gap.GetContentId(), 4u);
    ExpectBaseReadSamples(gap);
    u8 buffer[2000];
    ASSERT_TRUE(gap.Open("#1#", buffer, 2000));
    gap.Close();
    EXPECT_TRUE(gap.IsOpen());
    EXPECT_EQ(CountFrames(gap), 8u);
}

}  // namespace
}  // namespace Orv
