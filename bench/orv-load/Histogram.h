// Counts of times, in steps of 0.1 ms up to 20 s.
#pragma once

#include <algorithm>
#include <vector>

#include "bench/orv-load/Common.h"

namespace OrvLoad {

class Histogram {
public:
    void Add(i64 nanoseconds) {
        const i64 bin = std::clamp<i64>(nanoseconds / kStep, 0, kBins - 1);
        ++bins_[static_cast<std::size_t>(bin)];
        ++count_;
        max_ = std::max(max_, nanoseconds);
    }
    u64 Count() const { return count_; }
    i64 Max() const { return max_; }
    // The time that `share` (0 to 1) of the values do not pass, at the upper end of its step; 0 when empty.
    i64 Quantile(double share) const {
        if (count_ == 0) return 0;
        const auto wanted = std::max<u64>(1, static_cast<u64>(share * static_cast<double>(count_) + 0.999999));
        u64 seen = 0;
        for (std::size_t bin = 0; bin < bins_.size(); ++bin) {
            seen += bins_[bin];
            if (seen >= wanted) return std::min(max_, (static_cast<i64>(bin) + 1) * kStep);
        }
        return max_;
    }
    void Clear() { *this = Histogram(); }

private:
    static constexpr i64 kStep = 100 * kMicrosecond;
    static constexpr i64 kBins = 200'000;
    std::vector<u32> bins_ = std::vector<u32>(kBins);
    u64 count_ = 0;
    i64 max_ = 0;
};

}  // namespace OrvLoad
