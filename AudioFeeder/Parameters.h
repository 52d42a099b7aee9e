// The parameters that the feeder looks for, and how their texts are read.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "Platform/Types.h"

namespace Orv {

namespace Parameters {
inline constexpr char LoggingLevel[] = "SYSTEMLOGGINGLEVEL";
inline constexpr char DefaultAudioFile[] = "DEFAULTAUDIOFILE";
inline constexpr char MaxVolume[] = "AUDIO_PROVIDER_MAX_VOLUME";
inline constexpr char EnableAutogain[] = "AUDIO_PROVIDER_ENABLE_AUTOGAIN";
inline constexpr char PromptPath[] = "IVRPROMPTPATH";
}  // namespace Parameters

// As atoi reads it: a text that is no number counts as 0. A number out of range counts as the nearest one in it.
inline i32 NumberFromText(const char* text) {
    const long long number = std::strtoll(text, nullptr, 10);
    return static_cast<i32>(
        std::clamp<long long>(number, std::numeric_limits<i32>::min(), std::numeric_limits<i32>::max()));
}

// A switch is on when its text is exactly "1".
inline bool SwitchFromText(const char* text) {
    return std::strcmp(text, "1") == 0;
}

}  // namespace Orv
