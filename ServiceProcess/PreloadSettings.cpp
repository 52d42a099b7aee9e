#include "ServiceProcess/PreloadSettings.h"

namespace Orv {
namespace {

constexpr char kBlanks[] = " \t";

std::string Trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace

PreloadSettings ReadPreloadSettings(CommonSettings& settings) {
    PreloadSettings preload;
    for (const std::string& value : settings.GetValue("[General].PreloadFiles").values) {
        const std::string name = Trimmed(value);
        if (!name.empty()) preload.names.push_back(name);
    }
    const SettingsValue& limit = settings.GetValue("[General].PreloadMegabytes");
    if (!limit.Exists()) return preload;
    const i64 megabytes = limit.AsInteger();
    preload.megabytesAreValid = megabytes >= 1 && megabytes <= PreloadSettings::MostMegabytes;
    if (preload.megabytesAreValid) preload.megabytes = static_cast<u32>(megabytes);
    return preload;
}

}  // namespace Orv
