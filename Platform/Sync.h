// Mutexes, a condition variable and an event, so that every lock and every wait of the system can be run by a
// simulated scheduler. Two libraries implement this header: Platform/linux on the system's own primitives and
// Platform/sim on a deterministic scheduler; a program links exactly one of them.
#pragma once

#include "Platform/Annotations.h"
#include "Platform/Types.h"

namespace Platform {

// A plain mutex. Any thread. Lock() blocks until the mutex is free; locking it twice on one thread is a bug.
class ORV_CAPABILITY("mutex") Mutex {
public:
    Mutex() noexcept;
    ~Mutex();
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void Lock() ORV_ACQUIRE();
    bool TryLock() ORV_TRY_ACQUIRE(true);
    void Unlock() ORV_RELEASE();

private:
    friend class CondVar;
    // The implementation's own object lives here, so that a mutex never allocates.
    alignas(8) unsigned char storage_[48];
};

// A mutex that its owner may lock again; it is free when Unlock() has been called as often as Lock().
class ORV_CAPABILITY("mutex") RecursiveMutex {
public:
    RecursiveMutex() noexcept;
    ~RecursiveMutex();
    RecursiveMutex(const RecursiveMutex&) = delete;
    RecursiveMutex& operator=(const RecursiveMutex&) = delete;

    void Lock() ORV_ACQUIRE();
    bool TryLock() ORV_TRY_ACQUIRE(true);
    void Unlock() ORV_RELEASE();

private:
    alignas(8) unsigned char storage_[48];
};

// Holds a mutex for a scope.
template <typename M>
class ORV_SCOPED_CAPABILITY LockGuard {
public:
    explicit LockGuard(M& mutex) ORV_ACQUIRE(mutex) : mutex_(mutex) { mutex_.Lock(); }
    ~LockGuard() ORV_RELEASE() { mutex_.Unlock(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    M& mutex_;
};

// Waits may end without a reason, so every wait stands in a loop that tests its condition.
class CondVar {
public:
    CondVar() noexcept;
    ~CondVar();
    CondVar(const CondVar&) = delete;
    CondVar& operator=(const CondVar&) = delete;

    // Releases the mutex, waits for a notification, takes the mutex again. No time limit.
    void Wait(Mutex& mutex) ORV_REQUIRES(mutex);
    // The same for at most `milliseconds` of the steady clock. False when the time has passed.
    bool WaitFor(Mutex& mutex, u32 milliseconds) ORV_REQUIRES(mutex);
    void NotifyOne() noexcept;
    void NotifyAll() noexcept;

private:
    alignas(8) unsigned char storage_[48];
};

// A flag that can be slept on. Any thread may set it; it stays set until Reset(). Everything done before Set() is seen
// by whoever finds it set.
class Event {
public:
    Event() noexcept;
    ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    void Set();
    void Reset();
    // Sleeps for the whole time, or until the event is set. True when it is set.
    bool WaitFor(u32 milliseconds);

private:
    alignas(8) unsigned char storage_[112];
};

}  // namespace Platform
