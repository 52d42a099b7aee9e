#include "Tools/PipeFolder.h"

#include "Platform/NamedPipe.h"
#include "Platform/Path.h"
#include "ServiceProcess/CommonSettings.h"

namespace Orv {
namespace {

// False when the file cannot be read.
bool TakeFolderOf(const std::string& settingsFile) {
    CommonSettings settings;
    if (!settings.Load(settingsFile.c_str())) return false;
    const std::string folder = settings.GetValue("[General].PipePath").AsString();
    if (!folder.empty()) Platform::SetPipeFolder(folder);
    return true;
}

}  // namespace

bool ChoosePipeFolder(const std::string& folder, const std::string& configFile, std::string& error) {
    if (!folder.empty()) {
        Platform::SetPipeFolder(folder);
        return true;
    }
    if (!configFile.empty()) {
        if (TakeFolderOf(configFile)) return true;
        error = "the settings file " + configFile + " cannot be opened; check its name and its rights";
        return false;
    }
    // It holds a password, so that not everybody may read it.
    for (const std::string& usual :
         {std::string("/etc/orv/OrvPhoneSystem.ini"), Platform::ProgramDataFolder() + "/Orv/Bin/OrvPhoneSystem.ini"}) {
        if (TakeFolderOf(usual)) break;
    }
    return true;
}

}  // namespace Orv
