// Which sound files the service is to hold in memory, as the settings file has it.
//
//   [General]
//   PreloadFiles = "Playlist/hold" "/srv/prompts/closed.wav"   ; each file or folder in quotes of its own
//   PreloadMegabytes = 64
#pragma once

#include <string>
#include <vector>

#include "ServiceProcess/CommonSettings.h"

namespace Orv {

struct PreloadSettings {
    static constexpr u32 DefaultMegabytes = 64;
    static constexpr u32 MostMegabytes = 1'048'576;

    std::vector<std::string> names;    // files and folders; none: nothing is preloaded
    u32 megabytes = DefaultMegabytes;  // of 1048576 bytes, 1 to MostMegabytes
    bool megabytesAreValid = true;     // false: the file has a value that cannot be used, and the default holds
};

// What the file says, absent keys by their defaults. A name is trimmed; an empty one is none.
PreloadSettings ReadPreloadSettings(CommonSettings& settings);

}  // namespace Orv
