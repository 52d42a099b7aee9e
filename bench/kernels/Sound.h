// Sound for the benchmarks: noise that is the same in each run.
#pragma once

#include <vector>

#include "Platform/Types.h"

namespace OrvBench {

inline constexpr u32 kBlockSamples = 1000;

// `peak` is the largest magnitude.
inline std::vector<i16> Noise(u32 samples, i32 peak, u32 seed = 1) {
    std::vector<i16> noise(samples);
    for (i16& sample : noise) {
        seed = seed * 1664525 + 1013904223;
        sample = static_cast<i16>(static_cast<i32>(seed >> 16) % (2 * peak + 1) - peak);
    }
    return noise;
}

inline const u8* Bytes(const std::vector<i16>& samples) {
    return reinterpret_cast<const u8*>(samples.data());
}
inline u8* Bytes(std::vector<i16>& samples) {
    return reinterpret_cast<u8*>(samples.data());
}

}  // namespace OrvBench
