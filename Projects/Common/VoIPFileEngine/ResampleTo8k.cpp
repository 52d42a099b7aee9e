#include "Projects/Common/VoIPFileEngine/ResampleTo8k.h"

#include <limits>

namespace Orv {
namespace {

constexpr u32 kTargetRate = 8000;
constexpr u32 kMostSteps = 9999;
constexpr double kLowPassSeconds = 3.978873577297384e-05;   // 1 / (2 pi 4000)
constexpr double kHighPassSeconds = 0.0007957747154594767;  // 1 / (2 pi 200)

// 8000 / rate in lowest terms, up / down. Both 0 when there is none. The product wraps at 32 bits, so that for absurd
// rates it may be 0 or small.
struct Ratio {
    u32 up = 0;
    u32 down = 0;
};

Ratio RatioOf(u32 rate) {
    for (u32 k = 1; k <= kMostSteps; ++k) {
        const u32 product = k * rate;
        if (product % kTargetRate == 0) return {k, product / kTargetRate};
    }
    return {};
}

// Toward zero. What 32 bits cannot hold is the smallest value, as the processor gives it.
template <typename Real>
i32 Truncate(Real value) {
    constexpr Real bound = 2147483648.0;
    return value > -bound && value < bound ? static_cast<i32>(value) : std::numeric_limits<i32>::min();
}
template <typename Real>
i16 TruncateTo16(Real value) {
    return static_cast<i16>(Truncate(value));
}

// y[i] = x[i] + a (x[i+1] - x[i]), from the input on both sides. The last sample stays 0, and so does one more behind
// it, which the interpolation reads.
std::vector<i16> LowPass(const i16* x, u32 count, double dt) {
    const double a = dt / (dt + kLowPassSeconds);
    std::vector<i16> y(static_cast<u64>(count) + 1);
    for (u32 i = 0; i + 1 < count; ++i) y[i] = TruncateTo16((x[i + 1] - x[i]) * a + x[i]);
    return y;
}

// In place; only the feedback is scaled by b, not the difference.
void HighPass(std::vector<i16>& y, u32 count, double dt) {
    const double b = kHighPassSeconds / (dt + kHighPassSeconds);
    i16 previous = y[0];
    for (u32 i = 1; i < count; ++i) {
        const i16 current = y[i];
        y[i] = TruncateTo16((y[i - 1] * b + current) - previous);
        previous = current;
    }
}

// Positions are counted in parts of an input sample, `ratio.up` to one.
std::vector<i16> Interpolate(const std::vector<i16>& y, u32 count, const Ratio& ratio) {
    std::vector<i16> output;
    output.reserve(count);
    output.push_back(y[0]);
    const float parts = static_cast<float>(ratio.up);
    u64 target = ratio.down;
    u64 position = ratio.up;
    for (u64 i = 1; i <= count; ++i) {
        if (target <= position) {
            const float slope = static_cast<float>(y[i] - y[i - 1]) / parts;
            output.push_back(static_cast<i16>(y[i] - TruncateTo16(slope * static_cast<float>(position - target))));
            target += ratio.down;
        }
        position += ratio.up;
    }
    return output;
}

}  // namespace

std::vector<i16> ResampleTo8k(const i16* samples, u32 count, u32 rate) {
    const Ratio ratio = RatioOf(rate);
    if (ratio.down == 0 || count == 0) return {};
    const double dt = 1.0 / rate;
    std::vector<i16> filtered = LowPass(samples, count, dt);
    HighPass(filtered, count, dt);
    return Interpolate(filtered, count, ratio);
}

}  // namespace Orv
