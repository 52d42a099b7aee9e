// Goal: the simulated locks and waits keep the contract of Platform/Sync.h, and tell misuse.
#include "Platform/Sync.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"
#include "Platform/sim/StayInLock.h"

namespace {

using Platform::CondVar;
using Platform::Event;
using Platform::LockGuard;
using Platform::Mutex;
using Platform::RecursiveMutex;
using Platform::Thread;
using Platform::Sim::Options;
using Platform::Sim::Order;
using Platform::Sim::Simulation;

// What a program that misuses a lock is told.
std::string FailureOf(std::function<void()> main) {
    Simulation sim;
    try {
        sim.Run(std::move(main));
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

TEST(SyncTest, AThreadThatIsToldToStaysInItsNextLockAndInNoneAfterIt) {
    Simulation sim;
    RecursiveMutex first;
    Mutex second;
    sim.Run([&] {
        Thread holder("holder", [&] {
            Platform::Sim::StayInNextLock(500);
            const LockGuard<RecursiveMutex> outer(first);
            const LockGuard<Mutex> inner(second);
        });
        Platform::SleepMilliseconds(1);
        const bool isFree = second.TryLock();
        EXPECT_TRUE(isFree);
        if (isFree) second.Unlock();
        const u64 begin = Platform::SteadyMilliseconds();
        const LockGuard<RecursiveMutex> guard(first);
        EXPECT_EQ(Platform::SteadyMilliseconds() - begin, 499u);
        holder.Join();
    });
}

TEST(SyncTest, WhoWaitsForAMutexGetsItInTheOrderOfComing) {
    Simulation sim;
    Mutex mutex;
    std::string order;
    sim.Run([&] {
        std::vector<Thread> threads;
        {
            LockGuard<Mutex> guard(mutex);
            for (char name : {'a', 'b', 'c', 'd'}) {
                threads.emplace_back("waiter", [&, name] {
                    LockGuard<Mutex> inner(mutex);
                    order += name;
                    Platform::SleepMilliseconds(1);
                });
            }
            Platform::SleepMilliseconds(10);
            order += '-';
        }
        for (Thread& thread : threads) thread.Join();
    });
    EXPECT_EQ(order, "-abcd");
}

// Two hundred seeds of four threads that lock, count and sleep: nobody may ever be inside with another.
TEST(SyncTest, AMutexIsHeldByOneThreadAtATimeWhateverTheInterleaving) {
    for (u64 seed = 1; seed <= 200; ++seed) {
        Options options;
        options.order = Order::Seeded;
        options.preemptOneIn = 2;
        Simulation sim(seed, options);
        Mutex mutex;
        u32 inside = 0;
        u32 entries = 0;
        sim.Run([&] {
            std::vector<Thread> threads;
            for (u32 i = 0; i < 4; ++i) {
                threads.emplace_back("worker", [&] {
                    for (u32 round = 0; round < 10; ++round) {
                        LockGuard<Mutex> guard(mutex);
                        ++inside;
                        ASSERT_EQ(inside, 1u);
                        sim.Yield();
                        ++entries;
                        --inside;
                    }
                });
            }
            for (Thread& thread : threads) thread.Join();
        });
        ASSERT_EQ(entries, 40u) << "seed " << seed;
    }
}

// A counter that is read and written back without a lock around both loses counts only if threads change in between.
TEST(SyncTest, APreemptionAtAnUncontendedLockFindsALostUpdate) {
    const auto run = [](u32 preemptOneIn) {
        Options options;
        options.order = Order::Seeded;
        options.preemptOneIn = preemptOneIn;
        Simulation sim(7, options);
        Mutex mutex;
        u32 counter = 0;
        sim.Run([&] {
            std::vector<Thread> threads;
            for (u32 i = 0; i < 2; ++i) {
                threads.emplace_back("worker", [&] {
                    for (u32 round = 0; round < 100; ++round) {
                        const u32 before = counter;
                        mutex.Lock();
                        counter = before + 1;
                        mutex.Unlock();
                    }
                });
            }
            for (Thread& thread : threads) thread.Join();
        });
        return counter;
    };
    EXPECT_EQ(run(0), 200u);
    EXPECT_LT(run(3), 200u);
}

TEST(SyncTest, TryLockGivesFalseWhileAnotherHoldsTheMutex) {
    Simulation sim;
    Mutex mutex;
    std::vector<bool> answers;
    sim.Run([&] {
        mutex.Lock();
        Thread thread("trier", [&]() ORV_NO_THREAD_SAFETY_ANALYSIS {
            answers.push_back(mutex.TryLock());
            Platform::SleepMilliseconds(2);
            answers.push_back(mutex.TryLock());
            if (answers.back()) mutex.Unlock();
        });
        Platform::SleepMilliseconds(1);
        mutex.Unlock();
        thread.Join();
    });
    EXPECT_EQ(answers, (std::vector<bool>{false, true}));
}

TEST(SyncTest, ARecursiveMutexIsFreeWhenUnlockedAsOftenAsLocked) {
    Simulation sim;
    RecursiveMutex mutex;
    std::vector<bool> answers;
    const auto other = [&] {
        Thread thread("trier", [&]() ORV_NO_THREAD_SAFETY_ANALYSIS {
            answers.push_back(mutex.TryLock());
            if (answers.back()) mutex.Unlock();
        });
        thread.Join();
    };
    sim.Run([&]() ORV_NO_THREAD_SAFETY_ANALYSIS {
        mutex.Lock();
        mutex.Lock();
        EXPECT_TRUE(mutex.TryLock());
        mutex.Unlock();
        mutex.Unlock();
        other();
        mutex.Unlock();
        other();
    });
    EXPECT_EQ(answers, (std::vector<bool>{false, true}));
}

TEST(SyncTest, NotifyOneWakesTheOneThatWaitsLongestAndNotifyAllTheRest) {
    Simulation sim;
    Mutex mutex;
    CondVar changed;
    std::string order;
    sim.Run([&] {
        std::vector<Thread> threads;
        for (char name : {'a', 'b', 'c'}) {
            threads.emplace_back("waiter", [&, name] {
                LockGuard<Mutex> guard(mutex);
                changed.Wait(mutex);
                order += name;
            });
        }
        Platform::SleepMilliseconds(1);
        changed.NotifyOne();
        Platform::SleepMilliseconds(1);
        order += '-';
        changed.NotifyAll();
        for (Thread& thread : threads) thread.Join();
    });
    EXPECT_EQ(order, "a-bc");
}

TEST(SyncTest, ATimedWaitEndsAtItsTimeOrAtTheNotification) {
    Simulation sim;
    Mutex mutex;
    CondVar changed;
    sim.Run([&] {
        {
            LockGuard<Mutex> guard(mutex);
            EXPECT_FALSE(changed.WaitFor(mutex, 125));
            EXPECT_EQ(sim.Elapsed(), 125'000'000u);
            EXPECT_FALSE(changed.WaitFor(mutex, 0));
            EXPECT_EQ(sim.Elapsed(), 125'000'000u);
        }
        Thread notifier("notifier", [&] {
            Platform::SleepMilliseconds(40);
            LockGuard<Mutex> guard(mutex);
            changed.NotifyAll();
        });
        {
            LockGuard<Mutex> guard(mutex);
            EXPECT_TRUE(changed.WaitFor(mutex, 125));
            EXPECT_EQ(sim.Elapsed(), 165'000'000u);
        }
        notifier.Join();
    });
}

TEST(SyncTest, WaitsWithoutAReasonCanBeOrdered) {
    Options options;
    options.order = Order::Seeded;
    options.spuriousOneIn = 2;
    Simulation sim(3, options);
    Mutex mutex;
    CondVar changed;
    bool ready = false;
    u32 wakings = 0;
    sim.Run([&] {
        for (u32 round = 0; round < 20; ++round) {
            ready = false;
            Thread setter("setter", [&] {
                Platform::SleepMilliseconds(5);
                LockGuard<Mutex> guard(mutex);
                ready = true;
                changed.NotifyAll();
            });
            {
                LockGuard<Mutex> guard(mutex);
                while (!ready) {
                    changed.Wait(mutex);
                    ++wakings;
                }
            }
            setter.Join();
        }
    });
    EXPECT_GT(wakings, 20u);
}

TEST(SyncTest, AnEventSleepsTheWholeTimeOrUntilItIsSetAndStaysSet) {
    Simulation sim;
    Event event;
    sim.Run([&] {
        EXPECT_FALSE(event.WaitFor(100));
        EXPECT_EQ(sim.Elapsed(), 100'000'000u);
        Thread setter("setter", [&] {
            Platform::SleepMilliseconds(30);
            event.Set();
        });
        EXPECT_TRUE(event.WaitFor(100));
        EXPECT_EQ(sim.Elapsed(), 130'000'000u);
        EXPECT_TRUE(event.WaitFor(100));
        EXPECT_EQ(sim.Elapsed(), 130'000'000u);
        event.Reset();
        EXPECT_FALSE(event.WaitFor(1));
        setter.Join();
    });
}

TEST(SyncTest, LockingAMutexTwiceIsReported) {
    static Mutex mutex;
    EXPECT_NE(FailureOf([]() ORV_NO_THREAD_SAFETY_ANALYSIS {
                  mutex.Lock();
                  mutex.Lock();
              }).find("a thread locks a mutex that it holds"),
              std::string::npos);
}

TEST(SyncTest, UnlockingAMutexOfAnotherThreadIsReported) {
    static Mutex mutex;
    EXPECT_NE(FailureOf([]() ORV_NO_THREAD_SAFETY_ANALYSIS {
                  mutex.Unlock();
              }).find("a thread unlocks a mutex that it does not hold"),
              std::string::npos);
}

TEST(SyncTest, WaitingWithoutTheMutexIsReported) {
    static Mutex mutex;
    static CondVar changed;
    EXPECT_NE(FailureOf([]() ORV_NO_THREAD_SAFETY_ANALYSIS {
                  changed.Wait(mutex);
              }).find("a wait with a mutex that the thread does not hold"),
              std::string::npos);
}

TEST(SyncTest, AThreadThatEndsWithAMutexHeldIsReported) {
    static Mutex mutex;
    EXPECT_NE(FailureOf([]() ORV_NO_THREAD_SAFETY_ANALYSIS {
                  Thread thread("forgetful", []() ORV_NO_THREAD_SAFETY_ANALYSIS { mutex.Lock(); });
                  thread.Join();
              }).find("thread \"forgetful\" has ended with a mutex held"),
              std::string::npos);
}

TEST(SyncTest, DestroyingALockThatIsInUseIsReported) {
    EXPECT_NE(FailureOf([]() ORV_NO_THREAD_SAFETY_ANALYSIS {
                  Mutex mutex;
                  mutex.Lock();
              }).find("a mutex is destroyed while it is held"),
              std::string::npos);
    static Mutex mutex;
    EXPECT_NE(FailureOf([] {
                  auto* changed = new CondVar;
                  Thread thread("waiter", [changed] {
                      LockGuard<Mutex> guard(mutex);
                      changed->Wait(mutex);
                  });
                  Platform::SleepMilliseconds(1);
                  delete changed;
                  thread.Join();
              }).find("a condition variable is destroyed while a thread waits"),
              std::string::npos);
}

TEST(SyncTest, WithoutASimulationLocksAreTakenAtOnceAndEndlessWaitsThrow) {
    Mutex mutex;
    RecursiveMutex recursive;
    CondVar changed;
    Event event;
    {
        const auto lockTwice = [&]() ORV_NO_THREAD_SAFETY_ANALYSIS {
            recursive.Lock();
            recursive.Lock();
            recursive.Unlock();
            recursive.Unlock();
        };
        lockTwice();
        LockGuard<Mutex> guard(mutex);
        changed.NotifyOne();
        changed.NotifyAll();
        const u64 before = Platform::SteadyMilliseconds();
        EXPECT_FALSE(changed.WaitFor(mutex, 20));
        EXPECT_FALSE(event.WaitFor(30));
        EXPECT_EQ(Platform::SteadyMilliseconds() - before, 50u);
        EXPECT_THROW(changed.Wait(mutex), std::logic_error);
    }
    event.Set();
    EXPECT_TRUE(event.WaitFor(0));
    const bool free = mutex.TryLock();
    EXPECT_TRUE(free);
    if (free) mutex.Unlock();
}

}  // namespace
