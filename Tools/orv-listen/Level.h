// How loud a stretch of sound is, and the bar that shows it.
#pragma once

#include <string>

#include "Platform/Types.h"

namespace Orv {

// Collects samples and tells peak and mean level. Levels are in dB below full scale (0 is full scale), silence is
// SilenceDb. One thread.
class LevelMeter {
public:
    static constexpr double SilenceDb = -96.0;

    void Add(i16 sample);
    void Clear();
    u64 Count() const { return count_; }
    double PeakDb() const;
    double RmsDb() const;

private:
    u64 count_ = 0;
    i32 peak_ = 0;
    double squares_ = 0.0;
};

// A bar of `width` characters from -60 dB (empty) to 0 dB (full), with a mark at the peak.
std::string LevelBar(double rmsDb, double peakDb, u32 width);

}  // namespace Orv
