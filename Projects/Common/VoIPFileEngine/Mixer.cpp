#include "Projects/Common/VoIPFileEngine/Mixer.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

namespace Orv {
namespace {

static_assert(std::endian::native == std::endian::little, "samples are read as they lie in memory");

constexpr float kStep = 0.0001F;
constexpr u32 kSampleBytes = 2;
// Samples that are worked on at once, in blocks of a fixed size: of such loops the compiler makes vector code.
constexpr u32 kBlock = 32;

struct Samples {
    i16 at[kBlock];
};

// Both take the last block of a run, which may be short; memcpy, because an address may be odd.
inline void Load(Samples& block, const u8* from, u32 count) {
    if (count == kBlock) {
        std::memcpy(block.at, from, sizeof block.at);
    } else {
        block = {};
        std::memcpy(block.at, from, count * kSampleBytes);
    }
}

inline void Store(u8* to, const Samples& block, u32 count) {
    std::memcpy(to, block.at, count == kBlock ? sizeof block.at : count * kSampleBytes);
}

inline i16 Sum(i32 a, i32 b) {
    return static_cast<i16>(a + b);
}

inline i16 Scaled(i16 sample, float gain) {
    return static_cast<i16>(static_cast<i32>(static_cast<float>(sample) * gain));
}

// The gains of the next samples on the way to a target, from additions in their order. What lies behind `count` is not
// used.
inline void NextGains(MainGain& state, i32 target, float targetGain, float* gains, u32 count) {
    const bool rising = state.rampCounter < target;
    const float step = rising ? kStep : -kStep;
    float gain = state.gain;
    for (u32 i = 0; i < count; ++i) {
        gain += step;
        gains[i] = gain;
    }
    state.rampCounter += rising ? static_cast<i32>(count) : -static_cast<i32>(count);
    if (state.rampCounter == target) gain = gains[count - 1] = targetGain;
    state.gain = gain;
}

// Calls `piece` with a position and a count for each block of `samples`.
template <typename Piece>
inline void ForEachBlock(u32 samples, Piece piece) {
    for (u32 at = 0; at < samples; at += kBlock) piece(at, std::min(kBlock, samples - at));
}

u32 SamplesToTarget(const MainGain& state, i32 target, u32 samples) {
    return std::min(samples, static_cast<u32>(std::abs(target - state.rampCounter)));
}

}  // namespace

void FadeMain(MainGain& state, const u8* main, u8* out, u32 samples) {
    const u32 ramp = SamplesToTarget(state, MainGain::Full, samples);
    ForEachBlock(ramp, [&](u32 at, u32 count) {
        float gains[kBlock] = {};
        Samples block;
        NextGains(state, MainGain::Full, 1.0F, gains, count);
        Load(block, main + at * kSampleBytes, count);
        for (u32 i = 0; i < kBlock; ++i) block.at[i] = Scaled(block.at[i], gains[i]);
        Store(out + at * kSampleBytes, block, count);
    });
    std::memmove(out + ramp * kSampleBytes, main + ramp * kSampleBytes, (samples - ramp) * kSampleBytes);
}

void DuckAndMix(MainGain& state, const u8* main, const u8* overlay, u8* out, u32 samples) {
    const u32 ramp = SamplesToTarget(state, MainGain::Ducked, samples);
    ForEachBlock(ramp, [&](u32 at, u32 count) {
        float gains[kBlock] = {};
        Samples block;
        Samples over;
        NextGains(state, MainGain::Ducked, 0.125F, gains, count);
        Load(block, main + at * kSampleBytes, count);
        Load(over, overlay + at * kSampleBytes, count);
        for (u32 i = 0; i < kBlock; ++i) block.at[i] = Sum(Scaled(block.at[i], gains[i]), over.at[i]);
        Store(out + at * kSampleBytes, block, count);
    });
    main += ramp * kSampleBytes;
    overlay += ramp * kSampleBytes;
    out += ramp * kSampleBytes;
    ForEachBlock(samples - ramp, [&](u32 at, u32 count) {
        Samples block;
        Samples over;
        Load(block, main + at * kSampleBytes, count);
        Load(over, overlay + at * kSampleBytes, count);
        for (u32 i = 0; i < kBlock; ++i) block.at[i] = Sum(block.at[i] >> 3, over.at[i]);
        Store(out + at * kSampleBytes, block, count);
    });
}

}  // namespace Orv
