#include "ServiceProcess/DataDirectory.h"

#include <iostream>

#include "Platform/Path.h"

namespace Orv {

std::string GetDataDirectory() {
    return Platform::ProgramDataFolder() + "\\Orv";
}

bool EnterDataDirectory() {
    const std::string path = GetDataDirectory();
    Platform::SystemError error = 0;
    if (Platform::SetWorkingDirectory(path, error)) return true;
    std::cerr << "Failed to set current dir to " << path << ", error: " << error << std::endl;
    return false;
}

}  // namespace Orv
