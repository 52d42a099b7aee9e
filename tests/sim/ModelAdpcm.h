// Compressed sound, written from the rules of its blocks: one at a time, each sample by the definition.
#pragma once

#include <vector>

#include "Platform/Types.h"

namespace OrvSim {

// A compressed block, and the least of one that counts.
constexpr u32 kAdpcmBlock = 256;
constexpr u32 kAdpcmHeader = 4;

// The samples of a block of `bytes` bytes, kAdpcmHeader at least: the first one stands in the header, then two for each
// byte. A block that begins with a step that is none is as long, and silent.
std::vector<i16> DecodeAdpcm(const u8* block, u64 bytes);

}  // namespace OrvSim
