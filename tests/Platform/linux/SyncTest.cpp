#include "Platform/Sync.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/Thread.h"

namespace Platform {
namespace {

// Goal: one thread at a time. Method: four threads raise a plain counter, which loses counts without a lock and is
// reported by the thread sanitizer.
template <typename M>
void ExpectExclusion() {
    constexpr int kRounds = 20000;
    M mutex;
    int counter = 0;
    std::vector<Thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back("counts", [&] {
            for (int round = 0; round < kRounds; ++round) {
                LockGuard<M> guard(mutex);
                ++counter;
            }
        });
    }
    for (Thread& thread : threads) thread.Join();
    EXPECT_EQ(counter, 4 * kRounds);
}

TEST(SyncTest, AMutexLetsOneThreadInAtATime) {
    ExpectExclusion<Mutex>();
}
TEST(SyncTest, ARecursiveMutexLetsOneThreadInAtATime) {
    ExpectExclusion<RecursiveMutex>();
}

template <typename M>
bool FreeForAnotherThread(M& mutex) ORV_NO_THREAD_SAFETY_ANALYSIS {
    bool free = false;
    Thread thread("tries", [&]() ORV_NO_THREAD_SAFETY_ANALYSIS {
        free = mutex.TryLock();
        if (free) mutex.Unlock();
    });
    thread.Join();
    return free;
}

TEST(SyncTest, TryLockTellsWhetherAMutexIsFree) {
    Mutex mutex;
    EXPECT_TRUE(FreeForAnotherThread(mutex));
    LockGuard<Mutex> guard(mutex);
    EXPECT_FALSE(FreeForAnotherThread(mutex));
}

TEST(SyncTest, ARecursiveMutexIsFreeAfterAsManyUnlocksAsLocks) {
    RecursiveMutex mutex;
    {
        LockGuard<RecursiveMutex> outer(mutex);
        [&]() ORV_NO_THREAD_SAFETY_ANALYSIS {
            EXPECT_TRUE(mutex.TryLock());
            EXPECT_FALSE(FreeForAnotherThread(mutex));
            mutex.Unlock();
        }();
        EXPECT_FALSE(FreeForAnotherThread(mutex));
    }
    EXPECT_TRUE(FreeForAnotherThread(mutex));
}

TEST(SyncTest, AConditionVariableWakesItsWaiters) {
    Mutex mutex;
    CondVar changed;
    int value = 0;
    int seen = 0;
    Thread thread("waits", [&] {
        LockGuard<Mutex> guard(mutex);
        while (value == 0) changed.Wait(mutex);
        seen = value;
        value = 2;
        changed.NotifyAll();
    });
    {
        LockGuard<Mutex> guard(mutex);
        value = 1;
        changed.NotifyOne();
        while (value != 2) {
            ASSERT_TRUE(changed.WaitFor(mutex, 10000));
        }
    }
    thread.Join();
    EXPECT_EQ(seen, 1);
}

TEST(SyncTest, ATimedWaitEndsAfterItsTime) {
    Mutex mutex;
    CondVar never;
    LockGuard<Mutex> guard(mutex);
    const u64 before = SteadyMilliseconds();
    while (never.WaitFor(mutex, 30)) {
    }
    EXPECT_GE(SteadyMilliseconds() - before, 29u);
}

TEST(EventTest, AnEventThatNobodySetsIsWaitedForToTheEnd) {
    Event event;
    const u64 before = SteadyNanoseconds();
    EXPECT_FALSE(event.WaitFor(30));
    EXPECT_GE(SteadyNanoseconds() - before, 30'000'000u);
    EXPECT_FALSE(event.WaitFor(0));
}

TEST(EventTest, ASetEventEndsTheWaitAndStaysSet) {
    Event event;
    bool woken = false;
    Thread thread("waits", [&] { woken = event.WaitFor(60000); });
    event.Set();
    thread.Join();
    EXPECT_TRUE(woken);
    EXPECT_TRUE(event.WaitFor(0));
    event.Reset();
    EXPECT_FALSE(event.WaitFor(0));
}

TEST(EventTest, AllWaitersAreWoken) {
    Event event;
    std::atomic<int> woken{0};
    std::vector<Thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back("waits", [&] {
            if (event.WaitFor(60000)) woken.fetch_add(1, std::memory_order_relaxed);
        });
    }
    event.Set();
    for (Thread& thread : threads) thread.Join();
    EXPECT_EQ(woken.load(std::memory_order_relaxed), 4);
}

}  // namespace
}  // namespace Platform
