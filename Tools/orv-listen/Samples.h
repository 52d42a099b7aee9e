// The sound as bytes: whole samples of it, and the telephone's own code. Pure.
#pragma once

#include <vector>

#include "Platform/Types.h"

namespace Orv {

inline constexpr u64 kBytesPerSecond = 16000;  // of 16-bit samples
inline constexpr u64 kBytesPerMillisecond = kBytesPerSecond / 1000;

// Cuts a stream of bytes into whole 16-bit samples: a byte without its partner waits for it.
class SampleAligner {
public:
    // What is whole now; the pointer in the result is valid until the next call.
    const std::vector<u8>& Add(const u8* bytes, u64 count);
    // A stream that ended in the middle of a sample is followed by one that begins with a whole one.
    void Restart() { haveHalf_ = false; }

private:
    std::vector<u8> whole_;
    u8 half_ = 0;
    bool haveHalf_ = false;
};

// One sample by the mu-law of G.711; 0 becomes 0xFF.
u8 EncodeUlaw(i16 sample);
// Appends `count` bytes (even) of samples as mu-law bytes.
void AppendUlaw(const u8* samples, u64 count, std::vector<u8>& out);

}  // namespace Orv
