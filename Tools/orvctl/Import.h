// orvctl import: sound files of any kind into the folder from which the service plays.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Tools/orvctl/Commands.h"

namespace Orv {

// What callers hear next to each other should be alike; this leaves most music room for its peaks.
inline constexpr double ImportTargetLufs = -23.0;

struct ImportOptions {
    std::vector<std::string> files;
    std::string feed;
    std::string announcement;
    std::string prompts;  // in place of the root that settings and parameters tell
    double lufs = ImportTargetLufs;
    bool keepLoudness = false;
    bool replace = false;
    u32 memoryLimit = 1024;  // megabytes
    u32 timeLimit = 300;     // seconds of processor time for a file
};

// Throws ToolError, with FileRefused when at least one file was refused; the others are in place then. A stop signal
// counts as a refusal of what is not done yet; one that comes before the first file ends the process, with FileRefused
// once the password is known.
void ImportFiles(const CommandContext& context, const ImportOptions& options);

}  // namespace Orv
