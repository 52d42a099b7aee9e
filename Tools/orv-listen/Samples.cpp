#include "Tools/orv-listen/Samples.h"

#include <algorithm>

namespace Orv {

const std::vector<u8>& SampleAligner::Add(const u8* bytes, u64 count) {
    whole_.clear();
    if (haveHalf_) whole_.push_back(half_);
    whole_.insert(whole_.end(), bytes, bytes + count);
    haveHalf_ = whole_.size() % 2 != 0;
    if (haveHalf_) {
        half_ = whole_.back();
        whole_.pop_back();
    }
    return whole_;
}

u8 EncodeUlaw(i16 sample) {
    // Magnitudes of 14 bits are coded; the bias of 33 makes each segment twice as wide as the one before it.
    constexpr i32 kBias = 33 << 2;
    constexpr i32 kClip = 32767 - kBias;
    const u32 sign = sample < 0 ? 0x80u : 0u;
    const i32 magnitude = std::min(sample < 0 ? -static_cast<i32>(sample) : static_cast<i32>(sample), kClip) + kBias;
    u32 segment = 7;
    for (i32 mask = 0x4000; (magnitude & mask) == 0 && segment > 0; mask >>= 1) --segment;
    const u32 step = static_cast<u32>(magnitude >> (segment + 3)) & 0x0Fu;
    return static_cast<u8>(~(sign | segment << 4 | step));
}

void AppendUlaw(const u8* samples, u64 count, std::vector<u8>& out) {
    for (u64 i = 0; i + 1 < count; i += 2) {
        out.push_back(EncodeUlaw(static_cast<i16>(static_cast<u16>(samples[i] | samples[i + 1] << 8))));
    }
}

}  // namespace Orv
