// Whether changes of the configuration reach the service.
#pragma once

#include "Platform/Types.h"

namespace Orv {

enum class ConfigurationLink : u8 {
    Waiting,  // not connected yet; tried each ten seconds
    Up,
    Lost,  // until the service is restarted; the channels play on
};

struct ConfigurationState {
    ConfigurationLink link = ConfigurationLink::Waiting;
    u64 since = 0;  // steady milliseconds
};

// Both from any thread, without a lock. The host's Run() alone sets it.
void SetConfigurationLink(ConfigurationLink link);
ConfigurationState GetConfigurationState();

}  // namespace Orv
