// Runs code that was written against the headers of Platform/ on simulated threads and simulated time: one step at a
// time, the same at every run with the same seed. Each simulated thread is a fiber of the one thread that calls Run().
//
//     Platform::Sim::Simulation sim(seed);
//     sim.Files().AddFile("/data/Playlist/x/a.wav", bytes);
//     sim.Run([] {
//         Platform::Thread worker("worker", [] { Platform::SleepMilliseconds(250); });
//         worker.Join();
//     });                                  // has taken 250 simulated milliseconds and no real ones
//
// Without a Simulation the platform still works for plain unit tests and for static objects, on one thread: locks are
// taken at once, the clock moves only by sleeps and timed waits, files and pipes live in a world of the process. What
// could never end then (an endless wait, a pipe that is full) throws std::logic_error, a thread start
// std::system_error.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Types.h"
#include "Platform/sim/SimClock.h"
#include "Platform/sim/SimFiles.h"
#include "Platform/sim/SimMemory.h"
#include "Platform/sim/SimPipes.h"
#include "Platform/sim/SimRandom.h"
#include "Platform/sim/SimService.h"

namespace Platform::Sim {

// Who runs next at a scheduling point: a contended lock, the unlock of one, a wait, a sleep, the start, join and end of
// a thread, each file and pipe operation.
enum class Order : u8 {
    RoundRobin,  // who has been ready longest
    Seeded,      // anyone who is ready, drawn by the seed
};

struct Options {
    Order order = Order::RoundRobin;
    // Order::Seeded only: one in so many uncontended Lock()s is a scheduling point too. 0: none.
    u32 preemptOneIn = 0;
    // Order::Seeded only: one in so many waits on a condition variable ends without a reason. 0: none.
    u32 spuriousOneIn = 0;
    // Stack of each simulated thread. 0: 256 KiB, and 1 MiB under a sanitizer.
    u64 stackBytes = 0;
    // Simulated time that the other threads have for their end once `main` has returned.
    u64 graceMilliseconds = 600'000;
    // Scheduling points without any progress of time after which the run is taken for an endless loop.
    u64 stepsWithoutTime = 20'000'000;
};

// One simulation with a world (files, pipes, service manager, clocks, seeds) of its own; one at a time in a process.
// The members may be used before, during and after Run(), by the thread that owns the object and by its fibers.
class Simulation {
public:
    explicit Simulation(u64 seed = 1, Options options = {});
    ~Simulation();
    Simulation(const Simulation&) = delete;
    Simulation& operator=(const Simulation&) = delete;

    // Runs `main` as the first simulated thread ("main") and returns when it and every other simulated thread have
    // ended. May be called again; time goes on where it stood. Throws
    // - std::runtime_error with a list of the threads and what each waits for: when no thread can run and none waits
    //   for time (a deadlock), when threads outlive `main` by more than the grace, or when time stands still;
    // - what leaves `main`. An exception that leaves any other thread ends the process.
    // After a throw the threads still alive are abandoned: they never run again, their stacks and locks stay as they
    // are, and no code that they had entered may be used any more in this process.
    void Run(std::function<void()> main);

    u64 Seed() const noexcept;
    // Simulated steady time in nanoseconds; the value of SteadyNanoseconds().
    u64 Now() const noexcept;
    // Simulated nanoseconds since the construction.
    u64 Elapsed() const noexcept;
    // Sleeps until Now() is at least `nanoseconds`. Simulated threads only.
    void AdvanceTo(u64 nanoseconds);
    // Lets every other thread that is ready run first. Simulated threads only.
    void Yield();

    // The next `count` thread starts after `after` more fail with std::errc::resource_unavailable_try_again.
    void FailThreadStarts(u32 count, u32 after = 0) noexcept;
    // Names of the simulated threads that have not ended, oldest first; "main" is the first of a run.
    std::vector<std::string> ThreadNames() const;
    // One line for each of them: id, name, what it waits for.
    std::string DescribeThreads() const;
    // Threads started so far, each "main" included.
    u64 ThreadsStarted() const noexcept;

    // Changes of the running thread so far.
    u64 Switches() const noexcept;
    // A hash over who ran when: two runs with equal values made the same steps at the same times.
    u64 Trace() const noexcept;
    // Called each time before the clock goes forward, when every thread is blocked. Gets the time that comes next. Must
    // not block, lock or touch files and pipes. An exception from it leaves Run().
    void SetTimeHook(std::function<void(u64 nextNanoseconds)> hook);

    SimFiles& Files() noexcept;
    SimMemory& Memory() noexcept;
    SimPipes& Pipes() noexcept;
    SimService& Service() noexcept;
    SimClock& Clock() noexcept;
    SimRandom& Random() noexcept;
    // A stop signal (SIGTERM) for the process: see SimService::SendStopSignal().
    void SendStopSignal() { Service().SendStopSignal(); }

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

// The parts of the world in use: the living Simulation's, otherwise the process's own.
SimFiles& Files() noexcept;
SimMemory& Memory() noexcept;
SimPipes& Pipes() noexcept;
SimService& Service() noexcept;
SimClock& Clock() noexcept;
SimRandom& Random() noexcept;
// Makes the process's own world as new. Not while a Simulation lives.
void ResetProcessWorld();

}  // namespace Platform::Sim
