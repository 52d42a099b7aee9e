// A limiter with optional automatic gain: a floating-point gain on 16-bit samples, with no look-ahead and no delay.
#pragma once

#include <string>

#include "Platform/Types.h"

namespace Orv {

// The level limit, 0 to 32767 with 0 for no control at all, and whether a quiet feed is raised towards it. The two
// always count as a pair. Aligned as a word, so that an atomic of it takes no lock with any compiler.
struct alignas(4) LevelSetting {
    i16 maxLevel = 0;
    bool autogain = false;
    bool operator==(const LevelSetting&) const = default;
};

// percent, clamped to 0 to 100, * 32767 / 100 in integers: 100 gives 32767, 50 gives 16383, 1 gives 327.
i16 LevelFromPercent(i32 percent) noexcept;
// The way back, rounded: 16383 gives 50.
i32 PercentFromLevel(i16 level) noexcept;
// "MaxVolume=50%, autogain enabled", as the log tells a setting.
std::string DescribeLevelSetting(const LevelSetting& setting);

// One channel's control. Belongs to the channel's pump thread.
//
// For each sample s, all in 32-bit float:
//   a = |s|;  a > peak:  peak = a, and if a * gain > maxLevel:  gain = maxLevel / (a * gain) * gain
//   s = trunc(s * gain)
// and after the block, with autogain, for level = peak * gain below maxLevel:
//   gain = ((maxLevel - level) / 20 + level) / level * gain
// so that the output closes one twentieth of its distance to the limit with each block.
class VolumeControl {
public:
    explicit VolumeControl(const LevelSetting& setting) noexcept : inUse_(setting) {}

    // Takes up a setting. True when it differs from the one in use; gain and peak then start anew.
    bool Follow(const LevelSetting& setting) noexcept;
    const LevelSetting& InUse() const noexcept { return inUse_; }
    // False while every sample passes unchanged.
    bool IsOn() const noexcept { return inUse_.maxLevel > 0; }

    // Runs one block through the control, in place; does nothing while the control is off. `samples` may lie at any
    // address. No sample above -32768 leaves with a magnitude above the limit. -32768 itself has no magnitude in 16
    // bits: it is never a peak, and with a gain above 1 its product wraps around.
    void Process(void* samples, u32 count) noexcept;
    // True when the gain has moved by more than 10 percentage points since it was last told; `percent` is the gain now.
    bool TakeReport(i16& percent) noexcept;

    // A file of the main list has ended. Without autogain each file starts unscaled.
    void OnEndOfFile() noexcept;

    float Gain() const noexcept { return gain_; }
    i16 Peak() const noexcept { return peak_; }

private:
    void Scale(u8* bytes, u32 count) noexcept;
    void ScaleEach(u8* bytes, u32 count) noexcept;
    void Raise() noexcept;
    void Reset() noexcept;

    float gain_ = 1.0F;
    i16 peak_ = 0;  // largest magnitude seen, before the gain
    LevelSetting inUse_;
    float lastReportedGain_ = 1.0F;
};

}  // namespace Orv
