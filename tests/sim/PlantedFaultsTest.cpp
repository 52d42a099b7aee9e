// Goal: the simulation finds what is wrong. Method: faults are planted into copies of the service's own sources, each
// behind a switch, see plant.py; with its switch on, each must be found within fifty seeds. With all switches off the
// same copies are right, so that it is the fault that is found. Some are looked for in racing worlds as well, in which
// less is judged. What the program prints of one is what its own last line plays again.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "tests/sim/PlantedFault.h"
#include "tests/sim/SimRun.h"
#include "tests/support/Process.h"

namespace {

constexpr u64 kSeeds = 50;

enum Fault : int {
#define FAULT(number, name) name = number,
#define RACING_FAULT(number, name)
#include "Faults.inc"
#undef FAULT
#undef RACING_FAULT
};

OrvSim::RunOptions Options(u64 seed, bool racing) {
    OrvSim::RunOptions options;
    options.seed = seed;
    options.seconds = 120;
    options.racing = racing;
    return options;
}

void ExpectFound(int fault, bool racing) {
    OrvSim::plantedFault = fault;
    OrvSim::plantedCount = 0;
    for (u64 seed = 1; seed <= kSeeds; ++seed) {
        const OrvSim::RunResult result = OrvSim::Run(Options(seed, racing));
        if (result.good) continue;
        std::printf("found by seed %llu, after %llu ms: %s\n", static_cast<unsigned long long>(seed),
                    static_cast<unsigned long long>(result.failedAtMilliseconds), result.failure.c_str());
        return;
    }
    FAIL() << "not found in " << kSeeds << " seeds";
}

TEST(PlantedFaultsTest, TheCopiesWithoutTheirFaultsAreRight) {
    for (u64 seed = 1; seed <= 5; ++seed) {
        for (const bool racing : {false, true}) {
            const OrvSim::RunResult result = OrvSim::Run(Options(seed, racing));
            EXPECT_TRUE(result.good) << result.failure;
        }
    }
}

#define FAULT(number, name)                  \
    TEST(PlantedFaultsTest, name##IsFound) { \
        ExpectFound(number, false);          \
    }
#define RACING_FAULT(number, name)                           \
    TEST(PlantedFaultsTest, name##IsFoundWhileThreadsRace) { \
        ExpectFound(number, true);                           \
    }
#include "Faults.inc"
#undef FAULT
#undef RACING_FAULT

// --- the program, with the same copies
// ---------------------------------------------------------------------------------

struct Output {
    int exitCode;
    std::vector<std::string> lines;
};

Output RunProgram(int fault, const std::string& arguments) {
    const OrvTest::TempFolder folder;
    const std::string file = folder / "out";
    const std::string command =
        "ORV_PLANTED=" + std::to_string(fault) + " " + ORV_PLANTED_PROGRAM + " " + arguments + " > " + file;
    const int status = std::system(command.c_str());
    Output output{WIFEXITED(status) ? WEXITSTATUS(status) : -1, {}};
    std::istringstream text(OrvTest::ReadFileText(file));
    for (std::string line; std::getline(text, line);) output.lines.push_back(line);
    return output;
}

// Looks for the fault from the first seed on, and then types what is printed, twice.
void ExpectPrintedAndReplayed(int fault, const std::string& racing) {
    const std::string options = " --feeds 4 --seconds 100 --racing " + racing;
    const Output found = RunProgram(fault, "--seed 1 --seeds " + std::to_string(kSeeds) + options);
    ASSERT_EQ(found.exitCode, 1);
    ASSERT_EQ(found.lines.size(), 2U);
    unsigned long long seed = 0;
    unsigned long long milliseconds = 0;
    ASSERT_EQ(std::sscanf(found.lines[0].c_str(), "seed %llu is wrong at %llu ms: ", &seed, &milliseconds), 2);
    const std::string again = "--seed " + std::to_string(seed) + options;
    ASSERT_EQ(found.lines[1], "Again: orv-sim " + again);
    std::printf("%s\n", found.lines[0].c_str());

    const Output first = RunProgram(fault, again);
    const Output second = RunProgram(fault, again);
    ASSERT_EQ(first.exitCode, 1);
    ASSERT_EQ(first.lines.size(), 3U);
    EXPECT_TRUE(first.lines[0].starts_with("seed " + std::to_string(seed) + ": hash ")) << first.lines[0];
    EXPECT_EQ(first.lines[1], found.lines[0]) << "the same failure at the same millisecond";
    EXPECT_EQ(first.lines[2], found.lines[1]);
    EXPECT_EQ(second.lines, first.lines) << "the hash too";
    EXPECT_EQ(RunProgram(0, again).exitCode, 0) << "it was the fault";
}

TEST(PlantedFaultsTest, AFailingSeedIsPrintedAndReplays) {
    ExpectPrintedAndReplayed(ALateReadEndsItsFile, "no");
}

TEST(PlantedFaultsTest, AFailingSeedWhoseThreadsRaceIsPrintedAndReplays) {
    ExpectPrintedAndReplayed(AnOldChannelIsNotShutDown, "yes");
}

}  // namespace
