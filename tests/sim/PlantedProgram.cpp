// Plants the fault whose number the environment names into the program that is linked with the copies.
#include <cstdlib>

#include "tests/sim/PlantedFault.h"

namespace {

[[maybe_unused]] const bool planted = [] {
    const char* number = std::getenv("ORV_PLANTED");
    if (number != nullptr) OrvSim::plantedFault = std::atoi(number);
    return true;
}();

}  // namespace
