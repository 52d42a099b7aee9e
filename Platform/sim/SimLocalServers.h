// The sockets on which processes of a simulated world answer questions. Inside Platform/sim only.
#pragma once

#include <map>
#include <string>

#include "Platform/LocalServer.h"

namespace Platform::Sim {

// Who asks is answered on his own simulated thread, so a world has no thread and no bad clients for this.
struct SimLocalServers {
    std::map<std::string, const LocalAnswer*> byPath;
};

}  // namespace Platform::Sim
