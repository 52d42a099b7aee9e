// A random day of an exchange: its feeds, files and announcements, and the threads that listen, change and break
// things.
#pragma once

#include <string>
#include <vector>

#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"
#include "tests/sim/ConfigSide.h"
#include "tests/sim/Rng.h"

namespace OrvSim {

struct ScenarioOptions {
    u32 feeds = 5;
    u64 seconds = 300;
};

class Scenario {
public:
    Scenario(u64 seed, const ScenarioOptions& options, Platform::Sim::Simulation& sim, ModelWorld& world,
             Checker& checker, ConfigSide& config);

    // The world as the service finds it at its start. Before the run.
    void Prepare();
    // Plays until the time is over, or something is found wrong; leaves everything calm. On a simulated thread.
    void Play();
    // The pipes of the live sources are wanted from now on. The paths.
    std::vector<std::string> BeginSources();

private:
    // --- ScenarioWorld.cpp
    std::string MakeSound(bool wav);
    std::string MakeCompressed(u64 bytes);
    std::string NewPath(const std::string& folder);
    Row MakeFeed(i32 id);
    Row MakeAnnouncement(i32 id);
    std::string AnyFile();
    Row Parameter(i32 id, const char* name, const std::string& value) const;
    std::string AnySource();
    void SettleDown();

    // --- ScenarioSources.cpp
    void ServeSource(Rng rng, LiveSource& source);
    bool MeetService(Rng& rng, LiveSource& source, Platform::IPipeInstance& instance);
    bool SendSound(Rng& rng, LiveSource& source, Platform::IPipeInstance& instance);
    void RefuseConnects(Rng& rng, LiveSource& source);
    bool BreakRead(Rng& rng, LiveSource& source, Platform::IPipeInstance& instance);
    void BeginSourceStep(const LiveSource& source);
    void SleepAsSource(Rng& rng, u64 low, u64 high);

    // --- ScenarioThreads.cpp
    void Clients(Rng rng);
    void Listen(Rng& rng, Platform::IPipeClient& client);
    void ChangeThings(Rng rng);
    void ChangeOne(Rng& rng);
    void ChangeFeed(Rng& rng);
    std::string AnyCase(Rng& rng, std::string name) const;
    std::string OtherPipeName(Rng& rng, i32 id);
    bool Clashes(const std::string& pipe);
    bool SourcesMayStart() const;
    void ChangeAnnouncement(Rng& rng);
    void ChangeParameter(Rng& rng);
    std::string AnyLevel(Rng& rng) const;
    void ChangeMany(Rng& rng);
    void BreakDisk(Rng rng);
    void TurnClock();
    void BreakOne(Rng& rng, const std::string& path);
    void CheckTables(const std::string& when);
    // Sleeps about so long, to a moment at which nothing of the service happens by its own clock; in a racing world to
    // one at which much of it may.
    void SleepOdd(Rng& rng, u64 low, u64 high);
    bool Over() const { return over_ || world_.Failed(); }

    Rng rng_;
    Rng clockRng_;  // of its own: who draws from it changes nothing else
    const ScenarioOptions options_;
    Platform::Sim::Simulation& sim_;
    ModelWorld& world_;
    Checker& checker_;
    ConfigSide& config_;
    std::vector<std::string> folders_;
    std::vector<std::string> defaults_;
    u32 nextFile_ = 0;
    i32 nextId_ = 1000;
    u32 slowMilliseconds_ = 0;
    bool linkUp_ = true;
    bool alone_ = true;  // the change that is made: none follows at once, which might take its row away
    bool over_ = false;
};

constexpr char kRoot[] = "/data/Data/Ivr/Prompts";

}  // namespace OrvSim
