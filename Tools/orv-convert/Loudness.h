// How loud a piece is, and by how much it is to be changed.
#pragma once

#include <optional>
#include <vector>

#include "Platform/Types.h"

namespace Orv {

struct Loudness {
    // Integrated loudness by EBU R 128, in LUFS; none for silence and for less than 0.4 s.
    std::optional<double> lufs;
    // The highest point of the curve through the samples, 1.0 is full scale: what a converter would make of them.
    double truePeak = 0.0;
};

// One channel at 8000 Hz. Throws std::bad_alloc.
Loudness MeasureLoudness(const std::vector<float>& samples);

// No true peak gets above this by a change of level: 1 dB below full scale.
inline constexpr double kPeakCeiling = 0.891251;

struct LevelChange {
    double factor = 1.0;
    bool heldByPeak = false;  // less than asked for, since a peak would have been cut
};

// What brings a piece to `target` LUFS. Without a target the level stays, and falls only as far as it takes that no
// sample is cut off. A piece without a loudness stays as well.
LevelChange ChangeFor(const Loudness& loudness, std::optional<double> target);

}  // namespace Orv
