// Audio of a higher rate, brought down to 8000 Hz.
#pragma once

#include <vector>

#include "Platform/Types.h"

namespace Orv {

// `count` samples at `rate` Hz, above 8000, through a low-pass at 4000 Hz and a high-pass at 200 Hz, then interpolated
// linearly. Nothing is clipped: what passes 16 bits wraps. Empty when 8000 / rate is no fraction whose upper part lies
// below 10000, or `count` is 0. Pure.
std::vector<i16> ResampleTo8k(const i16* samples, u32 count, u32 rate);

}  // namespace Orv
