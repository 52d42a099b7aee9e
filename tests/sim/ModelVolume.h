// The limiter with its automatic gain, sample by sample.
#pragma once

#include <string>

#include "Platform/Types.h"

namespace OrvSim {

struct Level {
    i32 limit = 0;  // 0: off
    bool autogain = false;
    bool operator==(const Level&) const = default;
};

// The level of a percentage.
i32 LevelOf(i32 percent);
// "MaxVolume=<percent>%, autogain enabled|disabled".
std::string Describe(const Level& level);

class VolumeModel {
public:
    explicit VolumeModel(Level level) : level_(level) {}
    const Level& InUse() const { return level_; }
    // Takes up a level; whether it is another one.
    bool Follow(Level level);
    void Apply(i16* samples, u32 count);
    // Whether the gain has moved far enough to be told, and the percentage to tell.
    bool Report(i32& percent);
    void EndOfFile();

private:
    void Reset() {
        gain_ = 1.0F;
        peak_ = 0;
    }

    Level level_;
    float gain_ = 1.0F;
    i32 peak_ = 0;
    float reported_ = 1.0F;
};

}  // namespace OrvSim
