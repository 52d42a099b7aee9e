// The sample loops of the stream set. Pure: they touch their arguments only.
//
// Samples are signed 16-bit little-endian at any address. Every result is exact to the bit: gains are 32-bit floats
// that change by one rounded addition a sample, a float becomes a sample by truncation to a 32-bit integer whose low 16
// bits count.
#pragma once

#include "Platform/Types.h"

namespace Orv {

// The level of the main list, sample by sample: full level alone, one eighth under the overlay list. A full way from 0
// takes 10000 samples, 1.25 s; a way may turn back anywhere.
struct MainGain {
    static constexpr i32 Full = 10000;
    static constexpr i32 Ducked = 1250;

    i32 rampCounter = 0;  // 0 to Full, in units of 1/10000; moves by one a sample towards the target
    float gain = 0.0F;    // follows by 0.0001 a sample, and is exactly 1.0 or 0.125 on arrival
};

// Main list alone: out = trunc(main * gain), with the counter on its way to Full; at Full the samples as they are.
void FadeMain(MainGain& state, const u8* main, u8* out, u32 samples);

// Under the overlay list: out = trunc(main * gain) + overlay with the counter on its way to Ducked; at Ducked
// (main >> 3) + overlay, rounded towards minus infinity. The sum wraps at 16 bits.
void DuckAndMix(MainGain& state, const u8* main, const u8* overlay, u8* out, u32 samples);

}  // namespace Orv
