#include "Projects/Common/VoIPFileEngine/ADPCMDecoder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace Orv {
namespace {

// Decoded samples are handed out as bytes.
static_assert(std::endian::native == std::endian::little);

constexpr std::array<i32, 89> kSteps = {
    7,    8,     9,     10,    11,    12,    13,    14,    16,    17,    19,    21,    23,    25,   28,
    31,   34,    37,    41,    45,    50,    55,    60,    66,    73,    80,    88,    97,    107,  118,
    130,  143,   157,   173,   190,   209,   230,   253,   279,   307,   337,   371,   408,   449,  494,
    544,  598,   658,   724,   796,   876,   963,   1060,  1166,  1282,  1411,  1552,  1707,  1878, 2066,
    2272, 2499,  2749,  3024,  3327,  3660,  4026,  4428,  4871,  5358,  5894,  6484,  7132,  7845, 8630,
    9493, 10442, 11487, 12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};
constexpr std::array<i32, 8> kIndexAdjustments = {-1, -1, -1, -1, 2, 4, 6, 8};

}  // namespace

ADPCMDecoder::ADPCMDecoder(Source source, u32 frameBytes) : source_(std::move(source)), scratch_(frameBytes) {}

u64 ADPCMDecoder::Decode(const u8** frame, u32 samples) {
    *frame = nullptr;
    u32 got = 0;
    u32 left = samples;
    for (;;) {
        if (readIndex_ != sampleCount_) {
            const u32 count = std::min(sampleCount_ - readIndex_, left);
            const u8* decoded = reinterpret_cast<const u8*>(pcm_.data() + readIndex_);
            if (got == 0 && count == left) {
                *frame = decoded;
            } else {
                std::memcpy(scratch_.data() + got * sizeof(i16), decoded, count * sizeof(i16));
                *frame = scratch_.data();
            }
            readIndex_ += count;
            got += count;
            left -= count;
        }
        if (left == 0 || !NextBlock()) break;
    }
    if (left != 0) std::memset(scratch_.data() + got * sizeof(i16), 0, left * sizeof(i16));
    return got;
}

bool ADPCMDecoder::NextBlock() {
    const u8* block = nullptr;
    const u64 bytes = source_(&block, BlockBytes);
    if (bytes < BlockHeaderBytes) return false;

    readIndex_ = 0;
    predictor_ = static_cast<i16>(static_cast<u16>(block[0] | block[1] << 8));
    stepIndex_ = block[2];
    const u32 nibbles = static_cast<u32>(bytes - BlockHeaderBytes) * 2;
    sampleCount_ = nibbles + 1;
    if (stepIndex_ >= kSteps.size()) {
        pcm_.fill(0);
        return true;
    }
    pcm_[0] = predictor_;
    for (u32 i = 0; i < nibbles; i += 2) {
        const u8 pair = block[BlockHeaderBytes + i / 2];
        pcm_[i + 1] = DecodeNibble(pair & 0x0F);
        pcm_[i + 2] = DecodeNibble(pair >> 4);
    }
    return true;
}

// The step is the one from before the nibble moves the index.
i16 ADPCMDecoder::DecodeNibble(u8 nibble) {
    const i32 step = kSteps[stepIndex_];
    stepIndex_ = static_cast<u8>(std::clamp<i32>(stepIndex_ + kIndexAdjustments[nibble & 7], 0, kSteps.size() - 1));
    i32 delta = step >> 3;
    if (nibble & 4) delta += step;
    if (nibble & 2) delta += step >> 1;
    if (nibble & 1) delta += step >> 2;
    const i32 moved = (nibble & 8) ? predictor_ - delta : predictor_ + delta;
    predictor_ = static_cast<i16>(std::clamp(moved, -32768, 32767));
    return predictor_;
}

}  // namespace Orv
