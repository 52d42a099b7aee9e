#include "AudioFeeder/VolumeControl.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Orv {

namespace {

constexpr i32 kFullScale = 32767;
constexpr double kPeakDecay = 0.99;
constexpr float kRiseDivisor = 20.0F;
constexpr i32 kReportThreshold = 10;  // percentage points
// Samples that are scaled at once where none is a new peak: of loops of a fixed size the compiler makes vector code.
constexpr u32 kRun = 40;

struct Run {
    i16 samples[kRun];
};

// Truncated towards zero by way of 32 bits, then cut to 16.
i16 Scaled(i16 sample, float gain) noexcept {
    return static_cast<i16>(static_cast<i32>(static_cast<float>(sample) * gain));
}

// Whether a magnitude may be above `peak`; the lowest sample, which has none, counts as if it were.
bool MayHaveNewPeak(const Run& run, i16 peak) noexcept {
    i16 highest = 0;
    i16 lowest = 0;
    for (const i16 sample : run.samples) {
        highest = std::max(highest, sample);
        lowest = std::min(lowest, sample);
    }
    return highest > peak || -lowest > peak;
}

i16 GainPercent(float gain) noexcept {
    return static_cast<i16>(static_cast<i32>(static_cast<double>(gain) * 100.0));
}

}  // namespace

i16 LevelFromPercent(i32 percent) noexcept {
    return static_cast<i16>(std::clamp(percent, 0, 100) * kFullScale / 100);
}

i32 PercentFromLevel(i16 level) noexcept {
    return static_cast<i32>(std::floor(static_cast<double>(static_cast<float>(level)) / 32767.0 * 100.0 + 0.5));
}

std::string DescribeLevelSetting(const LevelSetting& setting) {
    return "MaxVolume=" + std::to_string(PercentFromLevel(setting.maxLevel)) + "%, autogain " +
           (setting.autogain ? "enabled" : "disabled");
}

bool VolumeControl::Follow(const LevelSetting& setting) noexcept {
    if (setting == inUse_) return false;
    Reset();
    inUse_ = setting;
    return true;
}

void VolumeControl::Process(void* samples, u32 count) noexcept {
    if (!IsOn()) return;
    if (inUse_.autogain) peak_ = static_cast<i16>(static_cast<double>(peak_) * kPeakDecay);
    Scale(static_cast<u8*>(samples), count);
    Raise();
}

void VolumeControl::Scale(u8* bytes, u32 count) noexcept {
    for (; count >= kRun; count -= kRun, bytes += sizeof(Run)) {
        Run run;
        std::memcpy(&run, bytes, sizeof run);
        if (MayHaveNewPeak(run, peak_)) {
            ScaleEach(bytes, kRun);
            continue;
        }
        const float gain = gain_;
        for (i16& sample : run.samples) sample = Scaled(sample, gain);
        std::memcpy(bytes, &run, sizeof run);
    }
    ScaleEach(bytes, count);
}

void VolumeControl::ScaleEach(u8* bytes, u32 count) noexcept {
    const float limit = inUse_.maxLevel;
    for (u32 index = 0; index < count; ++index, bytes += sizeof(i16)) {
        i16 sample;
        std::memcpy(&sample, bytes, sizeof sample);
        const i16 magnitude = static_cast<i16>(sample < 0 ? -sample : sample);
        if (magnitude > peak_) {
            peak_ = magnitude;
            const float level = static_cast<float>(magnitude) * gain_;
            if (level > limit) gain_ = limit / level * gain_;
        }
        sample = Scaled(sample, gain_);
        std::memcpy(bytes, &sample, sizeof sample);
    }
}

void VolumeControl::Raise() noexcept {
    const float level = static_cast<float>(peak_) * gain_;
    const float limit = inUse_.maxLevel;
    if (limit > level && inUse_.autogain && peak_ >= 1) {
        gain_ = ((limit - level) / kRiseDivisor + level) / level * gain_;
    }
}

bool VolumeControl::TakeReport(i16& percent) noexcept {
    percent = GainPercent(gain_);
    const i32 difference = percent - GainPercent(lastReportedGain_);
    if (difference <= kReportThreshold && difference >= -kReportThreshold) return false;
    lastReportedGain_ = gain_;
    return true;
}

void VolumeControl::OnEndOfFile() noexcept {
    if (!inUse_.autogain) Reset();
}

void VolumeControl::Reset() noexcept {
    gain_ = 1.0F;
    peak_ = 0;
}

}  // namespace Orv
