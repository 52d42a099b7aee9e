#include "Tools/PipeFolder.h"

#include <vector>

#include "Platform/NamedPipe.h"
#include "Platform/Path.h"
#include "ServiceProcess/CommonSettings.h"
#include "Tools/SettingsFile.h"

namespace Orv {
namespace {

enum class SettingsFile : u8 { Whole, CutShort, NotOpened };

SettingsFile TakeFolderOf(const std::string& settingsFile) {
    CommonSettings settings;
    if (!settings.Load(settingsFile.c_str())) return SettingsFile::NotOpened;
    if (!settings.whole) return SettingsFile::CutShort;
    const std::string folder = settings.GetValue("[General].PipePath").AsString();
    if (!folder.empty()) Platform::SetPipeFolder(folder);
    return SettingsFile::Whole;
}

}  // namespace

bool ChoosePipeFolder(const std::string& folder, const std::string& configFile, std::string& error) {
    if (!folder.empty()) {
        Platform::SetPipeFolder(folder);
        return true;
    }
    std::vector<std::string> files = {"/etc/orv/OrvPhoneSystem.ini",
                                      Platform::ProgramDataFolder() + "/Orv/Bin/OrvPhoneSystem.ini"};
    if (!configFile.empty()) files = {configFile};
    for (const std::string& file : files) {
        switch (TakeFolderOf(file)) {
            case SettingsFile::Whole:
                return true;
            case SettingsFile::CutShort:
                error = "the settings file " + file + CutShortText;
                return false;
            case SettingsFile::NotOpened:
                break;
        }
    }
    if (configFile.empty()) return true;  // the usual ones hold a password, so that not everybody may read them
    error = "the settings file " + configFile + " cannot be opened; check its name and its rights";
    return false;
}

}  // namespace Orv
