#include "Platform/Sync.h"

#include <new>
#include <stdexcept>
#include <utility>

#include "Platform/Thread.h"
#include "Platform/sim/Scheduler.h"
#include "Platform/sim/StayInLock.h"

namespace Platform {

namespace {

using Sim::ActiveScheduler;
using Sim::CurrentFiber;
using Sim::Fiber;
using Sim::FiberQueue;
using Sim::Scheduler;

struct MutexState {
    Fiber* owner = nullptr;
    FiberQueue waiters;
    u32 depth = 0;
};

struct CondVarState {
    FiberQueue waiters;
};

// A use of a lock that is a bug of its user.
void Misuse(const char* what) {
    if (Scheduler* scheduler = ActiveScheduler()) scheduler->Fail(what);
    throw std::logic_error(what);
}

template <typename State>
State& StateIn(unsigned char* storage) noexcept {
    return *std::launder(reinterpret_cast<State*>(storage));
}

void SetOwner(MutexState& mutex, Fiber& owner) noexcept {
    mutex.owner = &owner;
    ++owner.locksHeld;
}

// What a destructor finds in use is a bug; what an abandoned run has left is not.
void CheckUnused(const MutexState& mutex) {
    if (ActiveScheduler() != nullptr && mutex.owner != nullptr) Misuse("a mutex is destroyed while it is held");
}

void Acquire(MutexState& mutex) {
    Scheduler* scheduler = ActiveScheduler();
    if (scheduler != nullptr) scheduler->MaybePreempt();
    Fiber& self = CurrentFiber();
    while (mutex.owner != nullptr) {
        if (scheduler == nullptr) Misuse("a mutex is held, and without a simulation nobody frees it");
        scheduler->Block(&mutex.waiters, Sim::kNever, {"a mutex held by", mutex.owner->id});
        // It may have been handed over.
        if (mutex.owner == &self) return;
    }
    SetOwner(mutex, self);
}

// For a mutex that the caller does not hold.
void Take(MutexState& mutex) {
    Acquire(mutex);
    const u32 stay = std::exchange(CurrentFiber().stayMilliseconds, 0);
    if (stay != 0) SleepMilliseconds(stay);
}

bool TryTake(MutexState& mutex) {
    if (mutex.owner != nullptr) Sim::SchedulingPoint();
    if (mutex.owner != nullptr) return false;
    SetOwner(mutex, CurrentFiber());
    return true;
}

// Frees the mutex and wakes the first who waits for it. True when there was one.
bool Release(MutexState& mutex) {
    --mutex.owner->locksHeld;
    mutex.owner = nullptr;
    Scheduler* scheduler = ActiveScheduler();
    if (scheduler == nullptr || mutex.waiters.Empty()) return false;
    Fiber& next = *mutex.waiters.first;
    scheduler->Wake(next);
    // In turn, nobody may pass the one who waits; otherwise who comes first takes it, as on a real system.
    if (!scheduler->Seeded()) SetOwner(mutex, next);
    return true;
}

bool WaitUntil(FiberQueue& waiters, MutexState& mutex, u64 end) {
    Scheduler* scheduler = ActiveScheduler();
    bool woken = true;
    if (mutex.owner != &CurrentFiber()) Misuse("a wait with a mutex that the thread does not hold");
    if (scheduler == nullptr) {
        return Sim::BlockOrThrow(waiters, end, {"a condition variable"});
    }
    const bool spurious = scheduler->DrawSpuriousWake();
    Release(mutex);
    if (spurious)
        scheduler->Yield();
    else
        woken = scheduler->Block(&waiters, end, {"a condition variable"});
    Take(mutex);
    return woken;
}

}  // namespace

static_assert(sizeof(MutexState) <= sizeof(Mutex) && sizeof(CondVarState) <= sizeof(CondVar));

Mutex::Mutex() noexcept {
    new (storage_) MutexState;
}
Mutex::~Mutex() {
    CheckUnused(StateIn<MutexState>(storage_));
}

void Mutex::Lock() {
    auto& state = StateIn<MutexState>(storage_);
    if (state.owner == &CurrentFiber()) Misuse("a thread locks a mutex that it holds");
    Take(state);
}

bool Mutex::TryLock() {
    return TryTake(StateIn<MutexState>(storage_));
}

void Mutex::Unlock() {
    auto& state = StateIn<MutexState>(storage_);
    if (state.owner != &CurrentFiber()) Misuse("a thread unlocks a mutex that it does not hold");
    if (Release(state)) Sim::SchedulingPoint();
}

RecursiveMutex::RecursiveMutex() noexcept {
    new (storage_) MutexState;
}
RecursiveMutex::~RecursiveMutex() {
    CheckUnused(StateIn<MutexState>(storage_));
}

void RecursiveMutex::Lock() {
    auto& state = StateIn<MutexState>(storage_);
    if (state.owner != &CurrentFiber()) Take(state);
    ++state.depth;
}

bool RecursiveMutex::TryLock() {
    auto& state = StateIn<MutexState>(storage_);
    if (state.owner != &CurrentFiber() && !TryTake(state)) return false;
    ++state.depth;
    return true;
}

void RecursiveMutex::Unlock() {
    auto& state = StateIn<MutexState>(storage_);
    if (state.owner != &CurrentFiber()) Misuse("a thread unlocks a recursive mutex that it does not hold");
    if (--state.depth == 0 && Release(state)) Sim::SchedulingPoint();
}

CondVar::CondVar() noexcept {
    new (storage_) CondVarState;
}
CondVar::~CondVar() {
    const auto& state = StateIn<CondVarState>(storage_);
    if (ActiveScheduler() != nullptr && !state.waiters.Empty())
        Misuse("a condition variable is destroyed while a thread waits");
}

void CondVar::Wait(Mutex& mutex) {
    WaitUntil(StateIn<CondVarState>(storage_).waiters, StateIn<MutexState>(mutex.storage_), Sim::kNever);
}

bool CondVar::WaitFor(Mutex& mutex, u32 milliseconds) {
    const u64 end = Sim::Clock().SteadyNanoseconds() + milliseconds * Sim::kNanosecondsPerMillisecond;
    return WaitUntil(StateIn<CondVarState>(storage_).waiters, StateIn<MutexState>(mutex.storage_), end);
}

void CondVar::NotifyOne() noexcept {
    auto& waiters = StateIn<CondVarState>(storage_).waiters;
    Scheduler* scheduler = ActiveScheduler();
    if (scheduler != nullptr && !waiters.Empty()) scheduler->Wake(*waiters.first);
}

void CondVar::NotifyAll() noexcept {
    Sim::WakeAllIn(StateIn<CondVarState>(storage_).waiters);
}

void Sim::StayInNextLock(u32 milliseconds) noexcept {
    CurrentFiber().stayMilliseconds = milliseconds;
}

}  // namespace Platform
