// Turns 4-bit IMA ADPCM, in the 256-byte blocks of a WAVE file, into 16-bit samples.
//
// A block: the first sample (signed 16 bits, little-endian), the step index (0 to 88), a reserved byte, then up to 252
// bytes with two nibbles each, the low one first. A whole block gives 1 + 504 = 505 samples; the last one of a stream
// may be shorter. Each block sets the decoder's whole state anew.
#pragma once

#include <array>
#include <functional>
#include <vector>

#include "Platform/Types.h"

namespace Orv {

// Belongs to one reader and to the thread that drives it.
class ADPCMDecoder {
public:
    static constexpr u32 BlockBytes = 256;
    static constexpr u32 BlockHeaderBytes = 4;
    static constexpr u32 BlockSamples = 1 + (BlockBytes - BlockHeaderBytes) * 2;

    // Points `*block` at the next bytes of the compressed stream, at most `bytes` of them and at any address, and
    // returns how many there are, 0 at the end. They are read before the next call.
    using Source = std::function<u64(const u8** block, u64 bytes)>;

    // `frameBytes` bounds the frames that Decode() is asked for.
    ADPCMDecoder(Source source, u32 frameBytes);
    // The source is bound to the owner.
    ADPCMDecoder(const ADPCMDecoder&) = delete;
    ADPCMDecoder& operator=(const ADPCMDecoder&) = delete;

    // One frame of `samples` samples, at most half of `frameBytes`. `*frame` is valid until the next call: a pointer
    // into the decoded block when the frame lies whole in it, else into the decoder's scratch. Returns the real
    // samples; what is missing is zeros. 0 and a null `*frame` at the end of the stream. A block with a bad step index
    // plays as zeros. Never allocates.
    u64 Decode(const u8** frame, u32 samples);

private:
    // Fetches and decodes the next block. False when the source gave less than a block header.
    bool NextBlock();
    i16 DecodeNibble(u8 nibble);

    std::array<i16, BlockSamples> pcm_{};
    u32 readIndex_ = BlockSamples;    // the next sample of pcm_ to hand out
    u32 sampleCount_ = BlockSamples;  // valid samples in pcm_; both equal: nothing left
    i16 predictor_ = 0;
    u8 stepIndex_ = 0;
    Source source_;
    std::vector<u8> scratch_;  // frames that do not lie whole in one block
};

}  // namespace Orv
