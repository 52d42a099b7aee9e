#include "Tools/orv-convert/Loudness.h"

#include <ebur128.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>

#include "Tools/orv-convert/Resampler.h"

namespace Orv {
namespace {

struct Destroy {
    void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
};

double ToFactor(double decibels) {
    return std::pow(10.0, decibels / 20.0);
}

}  // namespace

Loudness MeasureLoudness(const std::vector<float>& samples) {
    const std::unique_ptr<ebur128_state, Destroy> state(
        ebur128_init(1, kFeedRate, EBUR128_MODE_I | EBUR128_MODE_TRUE_PEAK));
    if (state == nullptr) throw std::bad_alloc();
    Loudness loudness;
    // In pieces, for its memory.
    constexpr u64 kPiece = 4096;
    for (u64 i = 0; i < samples.size(); i += kPiece) {
        const u64 count = std::min(kPiece, samples.size() - i);
        if (ebur128_add_frames_float(state.get(), samples.data() + i, count) != EBUR128_SUCCESS) throw std::bad_alloc();
    }
    // The curve runs on for a moment behind the last sample.
    const std::vector<float> tail(32, 0.0F);
    if (ebur128_add_frames_float(state.get(), tail.data(), tail.size()) != EBUR128_SUCCESS) throw std::bad_alloc();
    double value = 0.0;
    if (ebur128_loudness_global(state.get(), &value) == EBUR128_SUCCESS && std::isfinite(value)) loudness.lufs = value;
    ebur128_true_peak(state.get(), 0, &loudness.truePeak);
    return loudness;
}

LevelChange ChangeFor(const Loudness& loudness, std::optional<double> target) {
    if (!target || !loudness.lufs) {
        const bool cut = loudness.truePeak > 1.0;
        return {cut ? kPeakCeiling / loudness.truePeak : 1.0, cut};
    }
    const double wanted = ToFactor(*target - *loudness.lufs);
    if (loudness.truePeak * wanted <= kPeakCeiling) return {wanted, false};
    return {kPeakCeiling / loudness.truePeak, true};
}

}  // namespace Orv
