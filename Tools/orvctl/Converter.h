// Runs orv-convert for one file.
#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Types.h"

namespace Orv {

struct ConvertSettings {
    std::string program;         // the path of orv-convert
    std::optional<double> lufs;  // none: the level stays
    u32 megabytes = 1024;
    u32 seconds = 300;
    u32 spareSeconds = 60;  // beyond its processor time: what a disk may take
};

struct Converted {
    std::string refusal;  // empty: the output is there, whole
    std::string format;
    u32 rate = 0;
    u32 channels = 0;
    double seconds = 0.0;
    std::optional<double> lufs;  // of the source
    double factor = 1.0;
    std::vector<std::string> notes;
};

// Blocks until the process has ended, or `stop` is set, which ends it. `progress` is told the share done, 0 to 1.
Converted ConvertFile(const std::string& input, const std::string& output, const ConvertSettings& settings,
                      const std::function<void(double)>& progress, const std::atomic<bool>& stop);

// Where orv-convert lies: beside this program, or where the package has it. Throws ToolError when it is in neither.
std::string FindConverter();

}  // namespace Orv
