#include "Tools/orv-listen/SteadyPace.h"

#include <algorithm>

#include "Tools/orv-listen/Samples.h"

namespace Orv {

void SteadyPace::Delivered(u64 bytes) {
    balance_ = std::min(balance_ + static_cast<i64>(bytes), AheadBytes);
}

u64 SteadyPace::TakeMissing(u64 nowMilliseconds) {
    if (nowMilliseconds > last_) {
        balance_ -= static_cast<i64>((nowMilliseconds - last_) * kBytesPerMillisecond);
        last_ = nowMilliseconds;
    }
    if (balance_ >= -SlackBytes) return 0;
    const i64 missing = std::min(-SlackBytes - balance_, LongestGap);
    balance_ = -SlackBytes;
    return static_cast<u64>(missing) & ~u64{1};
}

}  // namespace Orv
