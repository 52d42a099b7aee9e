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

}  // namespace

void WriteMarkedFile(const std::string& path) {
    constexpr u32 kSamples = kMarkedFileSeconds * kRate;
    std::string text = "RIFF";
    Append(text, 36 + 2 * kSamples, 4);
    text += "WAVEfmt ";
    Append(text, 16, 4);
    Append(text, 1, 2);
    Append(text, 1, 2);
    Append(text, kRate, 4);
    Append(text, 2 * kRate, 4);
    Append(text, 2, 2);
    Append(text, 16, 2);
    text += "data";
    Append(text, 2 * kSamples, 4);
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
