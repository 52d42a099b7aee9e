// How the service treats the clients of its feeds, as the settings file has it.
//
//   [General]
//   ClientStallSeconds = 30
//
// Of several values the first one counts. An empty one is invalid, as is one that does not begin with a number.
#pragma once

#include "ServiceProcess/CommonSettings.h"

namespace Orv {

struct ClientSettings {
    static constexpr u32 MostStallSeconds = 86'400;

    u32 stallSeconds = 0;              // for how long a client may take nothing, 1 to MostStallSeconds; 0: without end
    bool stallSecondsAreValid = true;  // false: the file has a value that cannot be used, and there is no end
};

ClientSettings ReadClientSettings(CommonSettings& settings);

}  // namespace Orv
