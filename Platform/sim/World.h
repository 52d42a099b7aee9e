// The parts of one simulated world.
#pragma once

#include "Platform/sim/SimClock.h"
#include "Platform/sim/SimFailures.h"
#include "Platform/sim/SimFiles.h"
#include "Platform/sim/SimLocalServers.h"
#include "Platform/sim/SimMemory.h"
#include "Platform/sim/SimPipes.h"
#include "Platform/sim/SimRandom.h"
#include "Platform/sim/SimService.h"

namespace Platform::Sim {

struct World {
    explicit World(u64 seed) : random(seed) {}

    SimClock clock;
    SimRandom random;
    SimFailures failures;
    SimFiles files;
    SimLocalServers localServers;
    SimMemory memory;
    SimPipes pipes;
    SimService service;
};

// The living Simulation's world, otherwise the process's own.
World& CurrentWorld() noexcept;

}  // namespace Platform::Sim
