#include "Tools/orv-publish/Pacer.h"

namespace Orv {

u64 Pacer::Due(u64 now) {
    constexpr u64 kNanosecondsPerMillisecond = 1'000'000;
    const u64 passed = (now - start_) * (BytesPerSecond / 1000) / kNanosecondsPerMillisecond;
    const u64 earned = HeadStartBytes + (passed & ~u64{1});
    if (earned > spent_ + CatchUpBytes) spent_ = earned - CatchUpBytes;
    return earned - spent_;
}

}  // namespace Orv
