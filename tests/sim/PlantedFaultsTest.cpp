// Goal: the simulation finds what is wrong. Method: faults are planted into copies of the service's own sources, each
// behind a switch, see plant.py; with its switch on, each must be found within fifty seeds. With all switches off the
// same copies are right, so that it is the fault that is found.
#include <gtest/gtest.h>

#include "tests/sim/PlantedFault.h"
#include "tests/sim/SimRun.h"

namespace {

constexpr u64 kSeeds = 50;

OrvSim::RunOptions Options(u64 seed) {
    OrvSim::RunOptions options;
    options.seed = seed;
    options.seconds = 120;
    return options;
}

void ExpectFound(int fault) {
    OrvSim::plantedFault = fault;
    for (u64 seed = 1; seed <= kSeeds; ++seed) {
        const OrvSim::RunResult result = OrvSim::Run(Options(seed));
        if (result.good) continue;
        std::printf("found by seed %llu, after %llu ms: %s\n", static_cast<unsigned long long>(seed),
                    static_cast<unsigned long long>(result.failedAtMilliseconds), result.failure.c_str());
        return;
    }
    FAIL() << "not found in " << kSeeds << " seeds";
}

TEST(PlantedFaultsTest, TheCopiesWithoutTheirFaultsAreRight) {
    for (u64 seed = 1; seed <= 5; ++seed) {
        const OrvSim::RunResult result = OrvSim::Run(Options(seed));
        EXPECT_TRUE(result.good) << result.failure;
    }
}

#define FAULT(number, name)                  \
    TEST(PlantedFaultsTest, name##IsFound) { \
        ExpectFound(number);                 \
    }
#include "Faults.inc"
#undef FAULT

}  // namespace
