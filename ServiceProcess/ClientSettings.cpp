#include "ServiceProcess/ClientSettings.h"

namespace Orv {

ClientSettings ReadClientSettings(CommonSettings& settings) {
    ClientSettings clients;
    const SettingsValue& stall = settings.GetValue("[General].ClientStallSeconds");
    if (!stall.Exists()) return clients;
    const i64 seconds = stall.AsInteger();
    clients.stallSecondsAreValid = seconds >= 1 && seconds <= ClientSettings::MostStallSeconds;
    if (clients.stallSecondsAreValid) clients.stallSeconds = static_cast<u32>(seconds);
    return clients;
}

}  // namespace Orv
