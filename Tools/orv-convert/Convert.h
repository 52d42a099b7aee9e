// From what people have to what a feed plays.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Tools/orv-convert/Loudness.h"
#include "Tools/orv-convert/SoundFile.h"

namespace Orv {

struct ConvertLimits {
    double longestSeconds = 7200.0;
};

struct Conversion {
    std::string format;  // of the source, "FLAC"
    u32 rate = 0;
    u32 channels = 0;
    std::vector<i16> samples;  // 8000 Hz, one channel
    Loudness before;           // of the sound at 8000 Hz
    LevelChange change;
    std::vector<std::string> notes;  // what a person should know, a clause each
};

// Told now and then with the share that is done, 0 to 1.
using ProgressFunction = std::function<void(double)>;

// Throws Refusal. Without a target the level stays as it is.
Conversion Convert(ISoundFile& file, std::optional<double> targetLufs, const ConvertLimits& limits,
                   const ProgressFunction& progress);

// A WAV file of such samples, as bytes.
std::string WavBytes(const std::vector<i16>& samples);

}  // namespace Orv
