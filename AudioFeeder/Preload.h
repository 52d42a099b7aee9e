// Holding sound files in memory from the start on, when the settings file asks for it.
#pragma once

#include <string>

#include "ServiceProcess/PreloadSettings.h"

namespace Orv {

// What PreloadFiles() will load. The service's thread, before the connection.
void SetPreload(PreloadSettings settings);
// Whether there is anything to load.
bool PreloadWanted();

// Empties the file engine's cache and loads the files anew, in the order of the settings, those of one folder by name;
// a folder gives what a playlist would find in it. A name that is not absolute is looked for in the working directory,
// as the relative names of rows are, and under `root`, the root of the prompts; both are loaded if both are there.
// Waits for the disk.
//
// To be called when the root of the parameters is known and nothing has been opened yet: between the logging level and
// the default audio file. So the first channel finds every file.
void PreloadFiles(const std::string& root);

}  // namespace Orv
