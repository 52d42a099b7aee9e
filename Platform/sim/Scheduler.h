// Who runs, who waits, and when time goes on.
#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Platform/Types.h"
#include "Platform/sim/Fiber.h"
#include "Platform/sim/Simulation.h"
#include "Platform/sim/TimerHeap.h"

namespace Platform::Sim {

constexpr u64 kNanosecondsPerMillisecond = 1'000'000;

class Scheduler {
public:
    Scheduler(u64 seed, const Options& options, SimClock& clock);
    ~Scheduler();
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

    void Run(std::function<void()> main);
    bool Running() const noexcept { return running_; }

    // All of these are for simulated threads.
    std::shared_ptr<Fiber> Start(const char* name, std::function<void()> body);
    void Join(Fiber& fiber);
    // A scheduling point at which the caller stays ready. `steps`: what it counts towards an endless loop.
    void Yield(u64 steps = 1);
    // Puts the caller into the queue (none: only time can wake it) until it is woken or the steady clock has reached
    // `end`. False for the latter.
    bool Block(FiberQueue* queue, u64 end, WaitReason reason);
    void Wake(Fiber& fiber) noexcept;
    void WakeAll(FiberQueue& queue) noexcept;
    // Ends the run: Run() throws std::runtime_error with `what` and the list of threads. Does not return.
    [[noreturn]] void Fail(const std::string& what);

    bool Seeded() const noexcept { return options_.order == Order::Seeded; }
    void MaybePreempt() {
        if (options_.preemptOneIn != 0 && Seeded() && engine_() % options_.preemptOneIn == 0) Yield();
    }
    bool DrawSpuriousWake() {
        return options_.spuriousOneIn != 0 && Seeded() && engine_() % options_.spuriousOneIn == 0;
    }
    // Called at each reading of the clock: a loop that waits for time without sleeping lets the others run.
    void ClockRead() noexcept;

    void FailThreadStarts(u32 count, u32 after) noexcept;
    void SetTimeHook(std::function<void(u64)> hook) { timeHook_ = std::move(hook); }
    std::vector<std::string> ThreadNames() const;
    std::string Describe() const;
    u64 Started() const noexcept { return started_; }
    u64 Switches() const noexcept { return switches_; }
    u64 Trace() const noexcept { return trace_; }

private:
    static void Entry() noexcept;
    std::shared_ptr<Fiber> Make(const char* name, std::function<void()> body);
    [[noreturn]] void End() noexcept;
    void Leave() noexcept;
    void ChangeTo(Fiber& next, bool forEver) noexcept;
    // The next fiber to run; the caller of Run() when all have ended or the run has failed.
    Fiber& PickNext() noexcept;
    bool AdvanceTime() noexcept;
    void CountSteps(u64 steps);
    std::string DescribeOne(const Fiber& fiber) const;
    void MakeReady(Fiber& fiber) noexcept;
    void WakeDue() noexcept;
    void Abandon() noexcept;
    void CollectEnded();

    const Options options_;
    SimClock& clock_;
    std::mt19937_64 engine_;
    Fiber outside_;
    bool running_ = false;
    bool mainEnded_ = false;
    u64 graceEnd_ = kNever;
    // All that have not ended, oldest first.
    std::vector<std::shared_ptr<Fiber>> alive_;
    // Ended and still on their stacks.
    std::vector<std::shared_ptr<Fiber>> ended_;
    std::vector<FiberStack> freeStacks_;
    FiberQueue ready_;
    u64 readyCount_ = 0;
    TimerHeap timers_;
    u64 nextId_ = 1;
    u64 started_ = 0;
    u64 switches_ = 0;
    u64 trace_ = 14'695'981'039'346'656'037u;
    u64 steps_ = 0;
    u32 clockReads_ = 0;
    u32 startsBeforeFailure_ = 0;
    u32 startFailures_ = 0;
    std::function<void(u64)> timeHook_;
    std::string failure_;
    std::exception_ptr exception_;
    ExceptionState* threadExceptions_ = nullptr;
};

// The scheduler of the run under way; null outside of Run().
Scheduler* ActiveScheduler() noexcept;
// The running fiber; outside of Run() one that stands for the thread itself.
Fiber& CurrentFiber() noexcept;

// For code that works with and without a run. A scheduling point, if there is a run.
void SchedulingPoint();
// Blocks, or throws std::logic_error without a run, where nobody could end the wait.
bool BlockOrThrow(FiberQueue& queue, u64 end, WaitReason reason);
void WakeAllIn(FiberQueue& queue) noexcept;
// Waits until `end` of the steady clock.
void SleepUntil(u64 end);

}  // namespace Platform::Sim
