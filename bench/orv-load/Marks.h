// A music file that tells where it is: its first seconds are a high tone, the rest a low one. A level limit, a ramp or
// a gain leaves the tone as it is.
#pragma once

#include <string>

#include "bench/orv-load/Common.h"

namespace OrvLoad {

inline constexpr u32 kMarkSeconds = 1;
inline constexpr u32 kMarkedFileSeconds = 300;

void WriteMarkedFile(const std::string& path);
// Whether a block of the stream lies in the high tone.
bool IsMark(const u8* block);

}  // namespace OrvLoad
