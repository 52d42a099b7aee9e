#include "Platform/ServiceManager.h"

namespace Platform {

// A simulated machine has none.
UnitOutcome StartUnits(const std::vector<std::string>&, std::string&) {
    return UnitOutcome::NoManager;
}

}  // namespace Platform
