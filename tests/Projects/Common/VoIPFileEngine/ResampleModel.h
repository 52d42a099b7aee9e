// What audio at a higher rate sounds like at 8000 Hz, written down from the rules, the slow and obvious way.
#pragma once

#include <cmath>
#include <cstdint>
#include <numeric>
#include <vector>

namespace ResampleModel {

using Samples = std::vector<std::int16_t>;

// 16 bits of a whole number, whatever its size.
inline std::int16_t Wrap(double whole) {
    return static_cast<std::int16_t>(static_cast<std::int64_t>(std::trunc(whole)) & 0xFFFF);
}

inline Samples LowPass(const Samples& x, double rate) {
    const double dt = 1.0 / rate;
    const double a = dt / (dt + 3.978873577297384e-05);
    Samples y(x.size() + 1, 0);
    for (std::size_t i = 0; i + 1 < x.size(); ++i) y[i] = Wrap((double(x[i + 1]) - double(x[i])) * a + double(x[i]));
    return y;
}

inline Samples HighPass(const Samples& low, double rate) {
    const double dt = 1.0 / rate;
    const double b = 0.0007957747154594767 / (dt + 0.0007957747154594767);
    Samples y = low;  // the last one stands for the position behind the samples
    for (std::size_t i = 1; i + 1 < low.size(); ++i) {
        y[i] = Wrap((double(y[i - 1]) * b + double(low[i])) - double(low[i - 1]));
    }
    return y;
}

// Output n lies at n * rate / 8000 input samples: between input i - 1 and i.
inline Samples To8k(const Samples& x, unsigned rate) {
    const std::int64_t divisor = std::gcd(8000u, rate);
    const std::int64_t k = 8000 / divisor;
    const std::int64_t q = rate / divisor;
    const Samples y = HighPass(LowPass(x, rate), rate);
    Samples output{y[0]};
    for (std::int64_t n = 1;; ++n) {
        const std::int64_t i = (n * q + k - 1) / k;
        if (i > static_cast<std::int64_t>(x.size())) return output;
        const float slope = static_cast<float>(int(y[i]) - int(y[i - 1])) / static_cast<float>(k);
        const float back = slope * static_cast<float>(i * k - n * q);
        output.push_back(static_cast<std::int16_t>((int(y[i]) - int(Wrap(back))) & 0xFFFF));
    }
}

}  // namespace ResampleModel
