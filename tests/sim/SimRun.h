// One simulated run of the whole service, from its start to its end.
#pragma once

#include <string>

#include "tests/sim/ModelWorld.h"

namespace OrvSim {

struct RunOptions {
    u64 seed = 1;
    u32 feeds = 5;
    u64 seconds = 300;
    bool keepLog = false;
    // Whether everything may happen at the same moments, threads may be interrupted anywhere, and the model judges only
    // what holds whatever their order: time, sizes, equal sound for all clients, lives of feeds, changes and tables.
    bool racing = false;
};

// The options of a seed: one in four is racing.
RunOptions OptionsOf(u64 seed);

struct RunResult {
    bool good = false;
    // The simulation itself has come to a stop (a deadlock, an exception); no further run in this process.
    bool broken = false;
    std::string failure;
    u64 failedAtMilliseconds = 0;  // since the start
    u64 hash = 0;                  // over every byte of log and pipes, and over who ran when
    u64 simulatedMilliseconds = 0;
    Counts counts;
    std::string log;
};

RunResult Run(const RunOptions& options);

// What to type to see a run again.
std::string Replay(const RunOptions& options);

}  // namespace OrvSim
