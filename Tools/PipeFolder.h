// Where a tool finds the pipes of the service on this machine.
#pragma once

#include <string>

namespace Orv {

// For the command line's help.
inline constexpr char PipeFolderHelp[] = "Folder of the feeds' pipes (default: as the service's settings file says)";
inline constexpr char PipeConfigHelp[] = "Settings file of the service, whose PipePath is that folder";

// Sets this process's pipe folder: `folder` when it is not empty, otherwise the PipePath of `configFile`, and without
// that one of the first of the service's usual settings files that can be read. A file without a PipePath, and no file
// at all, leave the folder that the service takes by itself. False, with what to do in `error`, when `configFile` is
// named and cannot be opened, and when the file that counts cannot be read to its end. Before the first pipe; waits for
// the disk.
bool ChoosePipeFolder(const std::string& folder, const std::string& configFile, std::string& error);

}  // namespace Orv
