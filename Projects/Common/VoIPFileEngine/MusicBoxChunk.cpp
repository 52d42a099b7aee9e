#include "Projects/Common/VoIPFileEngine/MusicBoxChunk.h"

#include <algorithm>
#include <cstring>

namespace Orv {
namespace {

// Shifts of a sample's width and more are all the same.
i16 Shifted(i16 sample, i32 shift) {
    if (shift >= 0) return static_cast<i16>(static_cast<i32>(sample) << std::min(shift, 16));
    return static_cast<i16>(sample >> -std::max(shift, -16));
}

}  // namespace

u64 RealChunk::GetSamples(const i16** samples, u64 position, u64 count) {
    if (position >= Size) {
        *samples = nullptr;
        return 0;
    }
    *samples = samples_ + position;
    return std::min(Size - position, count);
}

u64 RealChunk::Append(const u8* samples, u64 count) {
    const u64 taken = std::min(count, static_cast<u64>(samples_ + Size - writeCursor_));
    std::memcpy(writeCursor_, samples, taken * sizeof(i16));
    if (shift_ != 0) {
        for (u64 i = 0; i < taken; ++i) writeCursor_[i] = Shifted(writeCursor_[i], shift_);
    }
    writeCursor_ += taken;
    return taken;
}

}  // namespace Orv
