#include "Tools/orv-listen/Level.h"

#include <algorithm>
#include <cmath>

namespace Orv {
namespace {

double ToDb(double magnitude) {
    if (magnitude <= 0.0) return LevelMeter::SilenceDb;
    return std::max(LevelMeter::SilenceDb, 20.0 * std::log10(magnitude / 32768.0));
}

u32 Columns(double db, u32 width) {
    const double share = std::clamp((db + 60.0) / 60.0, 0.0, 1.0);
    return static_cast<u32>(std::lround(share * width));
}

}  // namespace

void LevelMeter::Add(i16 sample) {
    const i32 magnitude = sample < 0 ? -static_cast<i32>(sample) : sample;
    peak_ = std::max(peak_, magnitude);
    squares_ += static_cast<double>(magnitude) * magnitude;
    ++count_;
}

void LevelMeter::Clear() {
    *this = LevelMeter();
}

double LevelMeter::PeakDb() const {
    return ToDb(peak_);
}

double LevelMeter::RmsDb() const {
    return count_ == 0 ? SilenceDb : ToDb(std::sqrt(squares_ / static_cast<double>(count_)));
}

std::string LevelBar(double rmsDb, double peakDb, u32 width) {
    std::string bar(width, ' ');
    const u32 filled = Columns(rmsDb, width);
    std::fill(bar.begin(), bar.begin() + filled, '#');
    const u32 peak = Columns(peakDb, width);
    if (peak > 0 && peak > filled) bar[peak - 1] = '|';
    return bar;
}

}  // namespace Orv
