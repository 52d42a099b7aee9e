// What a content name means, by its text alone. Pure functions; none looks at the disk.
#pragma once

#include <string>
#include <string_view>

#include "Platform/Types.h"

namespace Orv {

// What stands in front of the name of each pipe of this machine.
inline constexpr std::string_view LocalPipes = "\\\\.\\pipe\\";

// "#5#", "##5#": a gap. At least three characters, so that "##" is none.
bool IsGapName(const std::string& name);
// Begins with "http:" or "mms:", whatever its case.
bool IsLinkName(const std::string& name);
// "\\host\pipe\...": two backslashes, any host, and the exact word "pipe" between the next two.
bool IsPipePath(const std::string& name);
// Ends in a colon.
bool IsMusicBoxName(const std::string& name);
// Has something before its ".wav" or ".raw", whatever its case.
bool IsSoundFileName(const std::string& name);
// Ends in ".wav", whatever its case, and be it nothing else: what is read as a WAV file.
bool EndsInWav(const std::string& path);
// Has something before its ".pipe", whatever its case.
bool IsPipeFileName(const std::string& name);

// The local pipe that a name ending in ".pipe" stands for: "\\.\pipe\radio" for "/any/where/radio.pipe".
std::string LocalPipePath(const std::string& pipeFileName);

// The longest normalised name, in bytes.
inline constexpr u32 MaxNormalisedName = 2047;
// The absolute, lower-cased path of a file name; the name itself when it has none or it is too long.
std::string NormaliseFileName(const std::string& name);

}  // namespace Orv
