#include "tests/sim/ModelVolume.h"

#include <algorithm>
#include <cmath>

namespace OrvSim {

namespace {

// Cut to 16 bits, as a store does.
i16 Cut(float value) {
    return static_cast<i16>(static_cast<u16>(static_cast<u32>(static_cast<i32>(value))));
}

i32 Percent(float gain) {
    return Cut(static_cast<float>(static_cast<i32>(static_cast<double>(gain) * 100.0)));
}

}  // namespace

i32 LevelOf(i32 percent) {
    if (percent < 0) percent = 0;
    if (percent > 100) percent = 100;
    return percent * 32767 / 100;
}

std::string Describe(const Level& level) {
    const double percent = std::floor(static_cast<double>(level.limit) / 32767.0 * 100.0 + 0.5);
    return "MaxVolume=" + std::to_string(static_cast<i32>(percent)) + "%, autogain " +
           (level.autogain ? "enabled" : "disabled");
}

bool VolumeModel::Follow(Level level) {
    if (level == level_) return false;
    level_ = level;
    Reset();
    return true;
}

void VolumeModel::Apply(i16* samples, u32 count) {
    if (level_.limit <= 0) return;
    const float limit = static_cast<float>(level_.limit);
    if (level_.autogain) peak_ = static_cast<i32>(static_cast<double>(peak_) * 0.99);
    for (u32 i = 0; i < count; ++i) {
        const i32 sample = samples[i];
        const i32 magnitude = sample < 0 ? -sample : sample;
        if (magnitude > peak_ && magnitude != 32768) {
            peak_ = magnitude;
            const float wanted = static_cast<float>(magnitude) * gain_;
            if (wanted > limit) gain_ = (limit / wanted) * gain_;
        }
        samples[i] = Cut(static_cast<float>(sample) * gain_);
    }
    const float level = static_cast<float>(peak_) * gain_;
    if (!level_.autogain || peak_ < 1 || !(limit > level)) return;
    const float raised = (limit - level) / 20.0F + level;
    gain_ = (raised / level) * gain_;
}

bool VolumeModel::Report(i32& percent) {
    if (level_.limit <= 0) return false;
    percent = Percent(gain_);
    const i32 difference = percent - Percent(reported_);
    if (difference >= -10 && difference <= 10) return false;
    reported_ = gain_;
    return true;
}

void VolumeModel::EndOfFile() {
    if (!level_.autogain) Reset();
}

}  // namespace OrvSim
