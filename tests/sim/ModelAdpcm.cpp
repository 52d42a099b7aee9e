#include "tests/sim/ModelAdpcm.h"

#include <algorithm>
#include <iterator>

namespace OrvSim {

namespace {

constexpr i64 kLastStep = 88;

// The standard's 89 steps, ten in a line.
constexpr i64 kSteps[] = {7,     8,     9,     10,    11,    12,    13,    14,    16,    17,     //
                          19,    21,    23,    25,    28,    31,    34,    37,    41,    45,     //
                          50,    55,    60,    66,    73,    80,    88,    97,    107,   118,    //
                          130,   143,   157,   173,   190,   209,   230,   253,   279,   307,    //
                          337,   371,   408,   449,   494,   544,   598,   658,   724,   796,    //
                          876,   963,   1060,  1166,  1282,  1411,  1552,  1707,  1878,  2066,   //
                          2272,  2499,  2749,  3024,  3327,  3660,  4026,  4428,  4871,  5358,   //
                          5894,  6484,  7132,  7845,  8630,  9493,  10442, 11487, 12635, 13899,  //
                          15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};
static_assert(std::size(kSteps) == kLastStep + 1);

// The bit `number` of a nibble as 0 or 1.
i64 Bit(u8 nibble, int number) {
    return (nibble >> number) & 1;
}

}  // namespace

std::vector<i16> DecodeAdpcm(const u8* block, u64 bytes) {
    std::vector<i16> samples(1 + 2 * (bytes - kAdpcmHeader), 0);
    i64 index = block[2];
    if (index > kLastStep) return samples;
    i64 sample = static_cast<i16>(block[0] + 256 * block[1]);
    samples[0] = static_cast<i16>(sample);
    for (std::size_t at = 1; at < samples.size(); ++at) {
        const u8 pair = block[kAdpcmHeader + (at - 1) / 2];
        const u8 nibble = at % 2 != 0 ? pair % 16 : pair / 16;
        const i64 step = kSteps[index];
        const i64 distance =
            step / 8 + Bit(nibble, 2) * step + Bit(nibble, 1) * (step / 2) + Bit(nibble, 0) * (step / 4);
        sample = std::clamp<i64>(Bit(nibble, 3) != 0 ? sample - distance : sample + distance, -32768, 32767);
        samples[at] = static_cast<i16>(sample);
        // The upper half of the magnitudes widens the step, the lower one narrows it.
        index = std::clamp<i64>(index + (Bit(nibble, 2) != 0 ? 2 * (nibble % 4 + 1) : -1), 0, kLastStep);
    }
    return samples;
}

}  // namespace OrvSim
