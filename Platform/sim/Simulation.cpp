#include "Platform/sim/Simulation.h"

#include <stdexcept>
#include <utility>

#include "Platform/sim/Scheduler.h"
#include "Platform/sim/World.h"

namespace Platform::Sim {

namespace {

constexpr u64 kProcessSeed = 1;
constinit World* simulatedWorld = nullptr;

// Never destroyed, for static objects may close files and read clocks in their destructors.
std::unique_ptr<World>& ProcessWorld() {
    static auto& world = *new std::unique_ptr<World>(new World(kProcessSeed));
    return world;
}

// The scheduler's draws must not follow the random device's.
constexpr u64 kSchedulerSeedBits = 0x9E3779B97F4A7C15;

}  // namespace

struct Simulation::Impl {
    Impl(u64 theSeed, const Options& options)
        : seed(theSeed), world(theSeed), scheduler(theSeed ^ kSchedulerSeedBits, options, world.clock) {}

    const u64 seed;
    World world;
    Scheduler scheduler;
};

Simulation::Simulation(u64 seed, Options options) {
    if (simulatedWorld != nullptr) throw std::logic_error("a Simulation is alive already");
    impl_ = std::make_unique<Impl>(seed, options);
    simulatedWorld = &impl_->world;
}

Simulation::~Simulation() {
    simulatedWorld = nullptr;
}

void Simulation::Run(std::function<void()> main) {
    impl_->scheduler.Run(std::move(main));
}

u64 Simulation::Seed() const noexcept {
    return impl_->seed;
}
u64 Simulation::Now() const noexcept {
    return impl_->world.clock.SteadyNanoseconds();
}
u64 Simulation::Elapsed() const noexcept {
    return Now() - SimClock::SteadyStartNanoseconds;
}

void Simulation::AdvanceTo(u64 nanoseconds) {
    if (!impl_->scheduler.Running()) throw std::logic_error("AdvanceTo() outside of Run()");
    if (nanoseconds > Now()) SleepUntil(nanoseconds);
}

void Simulation::Yield() {
    if (!impl_->scheduler.Running()) throw std::logic_error("Yield() outside of Run()");
    impl_->scheduler.Yield();
}

void Simulation::FailThreadStarts(u32 count, u32 after) noexcept {
    impl_->scheduler.FailThreadStarts(count, after);
}
std::vector<std::string> Simulation::ThreadNames() const {
    return impl_->scheduler.ThreadNames();
}
std::string Simulation::DescribeThreads() const {
    return impl_->scheduler.Describe();
}
u64 Simulation::ThreadsStarted() const noexcept {
    return impl_->scheduler.Started();
}
u64 Simulation::Switches() const noexcept {
    return impl_->scheduler.Switches();
}
u64 Simulation::Trace() const noexcept {
    return impl_->scheduler.Trace();
}

void Simulation::SetTimeHook(std::function<void(u64)> hook) {
    impl_->scheduler.SetTimeHook(std::move(hook));
}

SimFiles& Simulation::Files() noexcept {
    return impl_->world.files;
}
SimMemory& Simulation::Memory() noexcept {
    return impl_->world.memory;
}
SimPipes& Simulation::Pipes() noexcept {
    return impl_->world.pipes;
}
SimService& Simulation::Service() noexcept {
    return impl_->world.service;
}
SimClock& Simulation::Clock() noexcept {
    return impl_->world.clock;
}
SimRandom& Simulation::Random() noexcept {
    return impl_->world.random;
}

World& CurrentWorld() noexcept {
    return simulatedWorld != nullptr ? *simulatedWorld : *ProcessWorld();
}

SimFiles& Files() noexcept {
    return CurrentWorld().files;
}
SimMemory& Memory() noexcept {
    return CurrentWorld().memory;
}
SimPipes& Pipes() noexcept {
    return CurrentWorld().pipes;
}
SimService& Service() noexcept {
    return CurrentWorld().service;
}
SimClock& Clock() noexcept {
    return CurrentWorld().clock;
}
SimRandom& Random() noexcept {
    return CurrentWorld().random;
}

void ResetProcessWorld() {
    if (simulatedWorld != nullptr) throw std::logic_error("a Simulation is alive");
    ProcessWorld() = std::make_unique<World>(kProcessSeed);
}

}  // namespace Platform::Sim
