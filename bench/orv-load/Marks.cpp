#include "bench/orv-load/Marks.h"

#include <cmath>
#include <cstring>
#include <numbers>

namespace OrvLoad {
namespace {

constexpr u32 kRate = 8000;
constexpr double kHighTone = 1000;
constexpr double kLowTone = 250;
constexpr double kPeak = 12000;
// Sign changes in one block that tell one tone from the other: 250 of the high one, 62 of the low one.
constexpr u32 kTurns = 150;

void Append(std::string& text, u32 value, u32 bytes) {
    for (u32 i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i) & 0xff);
}

std::string WaveHeader(u32 samples) {
    std::string text = "RIFF";
    Append(text, 36 + 2 * samples, 4);
    text += "WAVEfmt ";
    Append(text, 16, 4);
    Append(text, 1, 2);
    Append(text, 1, 2);
    Append(text, kRate, 4);
    Append(text, 2 * kRate, 4);
    Append(text, 2, 2);
    Append(text, 16, 2);
    text += "data";
    Append(text, 2 * samples, 4);
    return text;
}

// Two rounds of the count, so that a block can begin anywhere in the first.
const std::vector<u16>& Count() {
    static const std::vector<u16> count = [] {
        std::vector<u16> samples(2 * 65536);
        for (u32 i = 0; i < samples.size(); ++i) samples[i] = static_cast<u16>(i);
        return samples;
    }();
    return count;
}

}  // namespace

void WriteCountedFile(const std::string& path) {
    constexpr u32 kSamples = kCountedFileSeconds * kRate;
    std::string text = WaveHeader(kSamples);
    for (u32 i = 0; i < kSamples; ++i) Append(text, i & 0xffff, 2);
    WriteText(path, text);
}

void CountedCheck::Take(u32 client, const u8* data) {
    i32& next = next_[client];
    u16 first = 0;
    std::memcpy(&first, data, sizeof first);
    const bool whole = std::memcmp(data, Count().data() + first, kBlockBytes) == 0;
    if (next == kUnknown) {
        if (!whole) return;
        ++settled_;
    } else if (whole && first == next) {
        ++continued_;
    } else {
        ++broken_;
    }
    next = static_cast<u16>(first + kBlockSamples);
}

void WriteMarkedFile(const std::string& path) {
    constexpr u32 kSamples = kMarkedFileSeconds * kRate;
    std::string text = WaveHeader(kSamples);
    for (u32 i = 0; i < kSamples; ++i) {
        const double tone = i < kMarkSeconds * kRate ? kHighTone : kLowTone;
        // Off zero, so that no sample of the tone is one.
        const double phase = 2 * std::numbers::pi * (tone * i / kRate + 0.01);
        Append(text, static_cast<u16>(static_cast<i16>(kPeak * std::sin(phase))), 2);
    }
    WriteText(path, text);
}

bool IsMark(const u8* block) {
    i16 samples[kBlockSamples];
    std::memcpy(samples, block, sizeof samples);
    u32 turns = 0;
    for (u32 i = 1; i < kBlockSamples; ++i) turns += (samples[i] < 0) != (samples[i - 1] < 0) ? 1 : 0;
    return turns > kTurns;
}

}  // namespace OrvLoad
