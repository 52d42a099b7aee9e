#include "Projects/Common/VoIPFileEngine/ADPCMDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "tests/Projects/Common/VoIPFileEngine/AdpcmSample.h"

namespace Orv {
namespace {

using Samples = std::vector<i16>;

// Hands out a run of bytes block by block, as a reader does, from an odd address.
class Compressed {
public:
    explicit Compressed(const std::vector<u8>& bytes) : bytes_(1, 0xEE) {
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    }
    ADPCMDecoder::Source Source() {
        return [this](const u8** block, u64 bytes) {
            asked.push_back(bytes);
            const u64 count = std::min<u64>(bytes, bytes_.size() - position_);
            *block = bytes_.data() + position_;
            position_ += count;
            return count;
        };
    }
    std::vector<u64> asked;

private:
    std::vector<u8> bytes_;
    u64 position_ = 1;
};

// One block: header and `nibbleBytes` bytes that are all `fill`.
std::vector<u8> Block(i16 first, u8 index, u32 nibbleBytes = 252, u8 fill = 0) {
    std::vector<u8> block = {static_cast<u8>(first), static_cast<u8>(static_cast<u16>(first) >> 8), index, 0};
    block.resize(4 + nibbleBytes, fill);
    return block;
}
std::vector<u8> operator+(std::vector<u8> left, const std::vector<u8>& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Samples SamplesAt(const u8* frame, u64 count) {
    Samples samples(count);
    std::memcpy(samples.data(), frame, count * sizeof(i16));
    return samples;
}

// The first `count` samples of a stream.
Samples Decoded(const std::vector<u8>& bytes, u32 count) {
    Compressed compressed(bytes);
    ADPCMDecoder decoder(compressed.Source(), count * 2);
    const u8* frame = nullptr;
    const u64 got = decoder.Decode(&frame, count);
    return frame == nullptr ? Samples{} : SamplesAt(frame, got);
}

TEST(ADPCMDecoder, DecodesAsAnIndependentDecoderDoesThroughTheWholeStepTable) {
    const std::vector<u8> bytes(TestData::AdpcmBlocks.begin(), TestData::AdpcmBlocks.end());
    EXPECT_EQ(Decoded(bytes, 1010), Samples(TestData::AdpcmSamples.begin(), TestData::AdpcmSamples.end()));
}

TEST(ADPCMDecoder, ReadsTheLowNibbleOfEachByteFirst) {
    // Step 7: the nibble 4 adds 7 + 0 and moves the index to 2, step 9: the nibble 0 adds 9 / 8.
    EXPECT_EQ(Decoded(Block(100, 0, 1, 0x04), 3), (Samples{100, 107, 108}));
    EXPECT_EQ(Decoded(Block(100, 0, 1, 0x40), 3), (Samples{100, 100, 107}));
}

TEST(ADPCMDecoder, IgnoresTheReservedByteOfTheHeader) {
    std::vector<u8> block = Block(100, 0, 1, 0x04);
    block[3] = 0xFF;
    EXPECT_EQ(Decoded(block, 3), (Samples{100, 107, 108}));
}

TEST(ADPCMDecoder, ReadsANegativeFirstSample) {
    EXPECT_EQ(Decoded(Block(-32768, 0, 0), 1), (Samples{-32768}));
    EXPECT_EQ(Decoded(Block(-2, 0, 0), 1), (Samples{-2}));
}

TEST(ADPCMDecoder, NibblesEightAndZeroAtStepSevenChangeNothing) {
    EXPECT_EQ(Decoded(Block(-5, 0, 2, 0x08), 5), (Samples{-5, -5, -5, -5, -5}));
    EXPECT_EQ(Decoded(Block(-5, 0, 2, 0x80), 5), (Samples{-5, -5, -5, -5, -5}));
}

TEST(ADPCMDecoder, ARunOfLargePositiveNibblesStopsAtTheClampAndTheIndexAtEightyEight) {
    // The nibble 7 adds step/8 + step + step/2 + step/4 and moves the index by 8: steps 7, 16, 34, 73, 157, 337, 724,
    // 1552, 3327, 7132, 15289, then 32767 for ever.
    std::vector<u8> block = Block(0, 0, 8, 0x77);
    // Then down again: the nibble F takes 4095 + 32767 + 16383 + 8191 at index 88, so the index never went beyond; the
    // nibble 8 takes step/8 of 32767, then of 29794.
    block.push_back(0xFF);
    block.push_back(0x88);
    const Samples expected = {0,     11,    41,    104,   240,   533,   1164,   2521,   5431,   11667, 25039,
                              32767, 32767, 32767, 32767, 32767, 32767, -28669, -32768, -32768, -32768};
    EXPECT_EQ(Decoded(block, 21), expected);

    std::vector<u8> falling = Block(32767, 88, 1, 0x88);
    EXPECT_EQ(Decoded(falling, 3), (Samples{32767, 28672, 24948}));
}

TEST(ADPCMDecoder, EveryBlockHeaderSetsTheStateAnew) {
    const auto bytes = Block(0, 0, 252, 0x77) + Block(100, 0, 252, 0x00);
    const Samples samples = Decoded(bytes, 1010);
    ASSERT_EQ(samples.size(), 1010u);
    EXPECT_EQ(samples[504], 32767);
    EXPECT_EQ(Samples(samples.begin() + 505, samples.end()), Samples(505, 100));
}

TEST(ADPCMDecoder, OneWholeBlockGivesFiveHundredAndFiveSamplesAndZerosBehindThem) {
    Compressed compressed(Block(321, 0));
    ADPCMDecoder decoder(compressed.Source(), 2000);
    const u8* frame = nullptr;
    EXPECT_EQ(decoder.Decode(&frame, 1000), 505u);
    ASSERT_NE(frame, nullptr);
    Samples expected(505, 321);
    expected.resize(1000, 0);
    EXPECT_EQ(SamplesAt(frame, 1000), expected);
    EXPECT_EQ(decoder.Decode(&frame, 1000), 0u);
    EXPECT_EQ(frame, nullptr);
}

TEST(ADPCMDecoder, AsksForWholeBlocksAndOnlyWhenTheLastOneIsUsedUp) {
    Compressed compressed(Block(1, 0) + Block(2, 0));
    ADPCMDecoder decoder(compressed.Source(), 1010);
    const u8* frame = nullptr;
    EXPECT_TRUE(compressed.asked.empty());
    EXPECT_EQ(decoder.Decode(&frame, 505), 505u);
    EXPECT_EQ(compressed.asked, (std::vector<u64>{256}));
    EXPECT_EQ(decoder.Decode(&frame, 1), 1u);
    EXPECT_EQ(compressed.asked, (std::vector<u64>{256, 256}));
}

TEST(ADPCMDecoder, ALastBlockOfFourBytesYieldsItsHeadersSampleAlone) {
    const auto samples = Decoded(Block(7, 0) + Block(-9, 3, 0), 1000);
    ASSERT_EQ(samples.size(), 506u);
    EXPECT_EQ(samples[504], 7);
    EXPECT_EQ(samples[505], -9);
}

TEST(ADPCMDecoder, ALastBlockOfThreeBytesEndsTheStream) {
    const auto samples = Decoded(Block(7, 0) + std::vector<u8>{9, 0, 0}, 1000);
    EXPECT_EQ(samples.size(), 505u);
}

TEST(ADPCMDecoder, AShortLastBlockYieldsTwoSamplesForEachByteBehindItsHeader) {
    EXPECT_EQ(Decoded(Block(50, 0, 3, 0x00), 1000), Samples(7, 50));
}

TEST(ADPCMDecoder, ABlockWithStepIndexEightyNinePlaysAsZerosAndTheNextOnePlays) {
    const Samples samples = Decoded(Block(1000, 89, 252, 0x77) + Block(55, 88, 0), 506);
    Samples expected(505, 0);
    expected.push_back(55);
    EXPECT_EQ(samples, expected);
    EXPECT_EQ(Decoded(Block(1000, 255, 252, 0x77), 505), Samples(505, 0));
    EXPECT_EQ(Decoded(Block(1000, 88, 0), 1), Samples(1, 1000));
}

TEST(ADPCMDecoder, AShortBadBlockPlaysAsZerosOfItsOwnLength) {
    EXPECT_EQ(Decoded(Block(1000, 89, 10, 0x77), 1000), Samples(21, 0));
}

TEST(ADPCMDecoder, FramesOfEightySamplesAreHandedOutByPointerExceptAcrossABlockBoundary) {
    // 505 = 6 * 80 + 25: the seventh frame takes 25 samples of the first block and 55 of the second. Frames that lie in
    // one block follow one another in memory; the one across comes from somewhere else.
    Compressed compressed(Block(11, 0) + Block(22, 0));
    ADPCMDecoder decoder(compressed.Source(), 160);
    const u8* frame = nullptr;
    ASSERT_EQ(decoder.Decode(&frame, 80), 80u);
    const u8* const first = frame;
    for (u32 i = 1; i < 6; ++i) {
        ASSERT_EQ(decoder.Decode(&frame, 80), 80u);
        EXPECT_EQ(frame, first + i * 160);
    }
    ASSERT_EQ(decoder.Decode(&frame, 80), 80u);
    EXPECT_TRUE(frame < first || frame >= first + 1010);
    Samples across(25, 11);
    across.resize(80, 22);
    EXPECT_EQ(SamplesAt(frame, 80), across);
    ASSERT_EQ(decoder.Decode(&frame, 80), 80u);
    EXPECT_EQ(frame, first + 55 * 2);
    EXPECT_EQ(SamplesAt(frame, 80), Samples(80, 22));
}

}  // namespace
}  // namespace Orv
