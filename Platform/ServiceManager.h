// Orders to the system's service manager, for tools that set services up.
#pragma once

#include <string>
#include <vector>

#include "Platform/Types.h"

namespace Platform {

enum class UnitOutcome : u8 {
    Done,
    NoManager,  // none runs on this machine
    Failed,     // it could not do it; `reason` tells
};

// Starts services by the names of their units; one that runs stays as it is. Blocks until they are up or have failed.
UnitOutcome StartUnits(const std::vector<std::string>& units, std::string& reason);

}  // namespace Platform
