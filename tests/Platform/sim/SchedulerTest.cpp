// Goal: the scheduler runs the same steps at every run, lets time jump instead of pass, and tells what is stuck.
// Method: small programs of a few threads that write down what they do, run one time or several, and compared.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/Sync.h"
#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"

namespace {

using Platform::CondVar;
using Platform::LockGuard;
using Platform::Mutex;
using Platform::Thread;
using Platform::Sim::Options;
using Platform::Sim::Order;
using Platform::Sim::Simulation;

struct Record {
    std::string steps;
    u64 trace = 0;
    u64 elapsed = 0;
};

// Three threads take a lock fifty times each, with and without sleeps; the record tells in which order.
Record RunThreeWorkers(u64 seed, const Options& options) {
    Simulation sim(seed, options);
    Record record;
    Mutex mutex;
    sim.Run([&] {
        std::vector<Thread> threads;
        for (char name : {'a', 'b', 'c'}) {
            threads.emplace_back("worker", [&record, &mutex, name] {
                for (u32 i = 0; i < 50; ++i) {
                    {
                        LockGuard<Mutex> guard(mutex);
                        record.steps += name;
                        if (i % 5 == 0) Platform::SleepMilliseconds(1);
                    }
                    if (i % 7 == 0) Platform::SleepMilliseconds(i);
                }
            });
        }
        for (Thread& thread : threads) thread.Join();
    });
    record.trace = sim.Trace();
    record.elapsed = sim.Elapsed();
    return record;
}

Options Seeded() {
    Options options;
    options.order = Order::Seeded;
    options.preemptOneIn = 3;
    options.spuriousOneIn = 5;
    return options;
}

std::string MessageOf(Simulation& sim, std::function<void()> main) {
    try {
        sim.Run(std::move(main));
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

TEST(SchedulerTest, TheSameSeedGivesTheSameStepsAtTheSameTimes) {
    const Record first = RunThreeWorkers(17, Seeded());
    const Record second = RunThreeWorkers(17, Seeded());
    EXPECT_EQ(first.steps.size(), 150u);
    EXPECT_EQ(first.steps, second.steps);
    EXPECT_EQ(first.trace, second.trace);
    EXPECT_EQ(first.elapsed, second.elapsed);
}

TEST(SchedulerTest, AnotherSeedGivesAnotherOrder) {
    std::vector<std::string> orders;
    for (u64 seed = 1; seed <= 5; ++seed) orders.push_back(RunThreeWorkers(seed, Seeded()).steps);
    for (size_t i = 0; i < orders.size(); ++i) {
        for (size_t j = i + 1; j < orders.size(); ++j) EXPECT_NE(orders[i], orders[j]) << i << " and " << j;
    }
}

TEST(SchedulerTest, TheOrderInTurnDoesNotDependOnTheSeed) {
    EXPECT_EQ(RunThreeWorkers(1, {}).trace, RunThreeWorkers(2, {}).trace);
}

TEST(SchedulerTest, ReadyThreadsRunInTurn) {
    Simulation sim;
    std::string steps;
    sim.Run([&] {
        std::vector<Thread> threads;
        for (char name : {'a', 'b', 'c'}) {
            threads.emplace_back("worker", [&, name] {
                Platform::SleepMilliseconds(10);
                for (int i = 0; i < 3; ++i) {
                    steps += name;
                    sim.Yield();
                }
            });
        }
        for (Thread& thread : threads) thread.Join();
    });
    EXPECT_EQ(steps, "abcabcabc");
}

TEST(SchedulerTest, TimeJumpsToTheEarliestSleeperWhenNobodyCanRun) {
    Simulation sim;
    std::vector<u64> wakings;
    sim.Run([&] {
        std::vector<Thread> threads;
        for (u32 milliseconds : {86'400'000u, 250u, 1000u}) {
            threads.emplace_back("sleeper", [&, milliseconds] {
                Platform::SleepMilliseconds(milliseconds);
                wakings.push_back(sim.Elapsed() / 1'000'000);
            });
        }
        for (Thread& thread : threads) thread.Join();
    });
    EXPECT_EQ(wakings, (std::vector<u64>{250, 1000, 86'400'000}));
    EXPECT_EQ(sim.Elapsed(), 86'400'000'000'000u);
}

TEST(SchedulerTest, SleepersOfTheSameMomentWakeInTheOrderInWhichTheyWentToSleep) {
    Simulation sim;
    std::string order;
    sim.Run([&] {
        std::vector<Thread> threads;
        for (char name = 'a'; name <= 'z'; ++name) {
            threads.emplace_back("sleeper", [&, name] {
                sim.AdvanceTo(Platform::Sim::SimClock::SteadyStartNanoseconds + 5'000'000'000);
                order += name;
            });
        }
        for (Thread& thread : threads) thread.Join();
    });
    EXPECT_EQ(order, "abcdefghijklmnopqrstuvwxyz");
}

// A hundred timers of many lengths, some taken back early by a notification, against a sorted list.
TEST(SchedulerTest, TimersFireInOrderWhateverWasTakenBackMeanwhile) {
    Simulation sim;
    Mutex mutex;
    CondVar early;
    std::vector<u64> wakings;
    u32 notified = 0;
    sim.Run([&] {
        std::vector<Thread> threads;
        for (u32 i = 0; i < 100; ++i) {
            threads.emplace_back("timer", [&, i] {
                const u32 milliseconds = 1000 + (i * 7919) % 997;
                if (i % 3 == 0) {
                    LockGuard<Mutex> guard(mutex);
                    if (early.WaitFor(mutex, milliseconds)) ++notified;
                } else {
                    Platform::SleepMilliseconds(milliseconds);
                    wakings.push_back(sim.Elapsed());
                    EXPECT_EQ(sim.Elapsed(), milliseconds * 1'000'000u);
                }
            });
        }
        Platform::SleepMilliseconds(500);
        {
            LockGuard<Mutex> guard(mutex);
            early.NotifyAll();
        }
        for (Thread& thread : threads) thread.Join();
    });
    EXPECT_EQ(notified, 34u);
    ASSERT_EQ(wakings.size(), 66u);
    EXPECT_TRUE(std::is_sorted(wakings.begin(), wakings.end()));
}

TEST(SchedulerTest, ADeadlockIsReportedWithWhoWaitsForWhom) {
    // The locks outlive the run, since the threads that are left behind stand in them.
    static Mutex first;
    static Mutex second;
    Simulation sim;
    const std::string message = MessageOf(sim, []() ORV_NO_THREAD_SAFETY_ANALYSIS {
        Thread thread("crossing", []() ORV_NO_THREAD_SAFETY_ANALYSIS {
            second.Lock();
            Platform::SleepMilliseconds(5);
            first.Lock();
        });
        first.Lock();
        Platform::SleepMilliseconds(5);
        second.Lock();
    });
    EXPECT_NE(message.find("deadlock"), std::string::npos) << message;
    EXPECT_NE(message.find("thread 1 \"main\" waits for a mutex held by thread 2 \"crossing\""), std::string::npos)
        << message;
    EXPECT_NE(message.find("thread 2 \"crossing\" waits for a mutex held by thread 1 \"main\""), std::string::npos)
        << message;
}

TEST(SchedulerTest, AnEndlessWaitIsADeadlockToo) {
    static Mutex mutex;
    static CondVar never;
    Simulation sim;
    const std::string message = MessageOf(sim, [] {
        LockGuard<Mutex> guard(mutex);
        never.Wait(mutex);
    });
    EXPECT_NE(message.find("thread 1 \"main\" waits for a condition variable"), std::string::npos) << message;
}

TEST(SchedulerTest, ThreadsThatOutliveMainByMoreThanTheGraceAreReported) {
    Options options;
    options.graceMilliseconds = 3000;
    Simulation sim(1, options);
    static std::vector<Thread> left;
    const std::string message = MessageOf(sim, [] {
        left.emplace_back("pump", [] {
            for (;;) Platform::SleepMilliseconds(100);
        });
        Platform::SleepMilliseconds(10'000);
    });
    EXPECT_NE(message.find("outlived main"), std::string::npos) << message;
    EXPECT_NE(message.find("\"pump\" waits for time to pass"), std::string::npos) << message;
    EXPECT_EQ(message.find("\"main\""), std::string::npos) << message;
    EXPECT_LE(sim.Elapsed(), 13'000'000'000u);
    EXPECT_GE(sim.Elapsed(), 12'900'000'000u);
}

TEST(SchedulerTest, TheRunWaitsForThreadsThatEndWithinTheGrace) {
    Simulation sim;
    Thread late;
    bool ended = false;
    sim.Run([&] {
        late = Thread("late", [&] {
            Platform::SleepMilliseconds(2000);
            ended = true;
        });
    });
    EXPECT_TRUE(ended);
    late.Join();
}

TEST(SchedulerTest, ALoopThatOnlyYieldsIsReported) {
    Options options;
    options.stepsWithoutTime = 10'000;
    Simulation sim(1, options);
    const std::string message = MessageOf(sim, [&] {
        for (;;) sim.Yield();
    });
    EXPECT_NE(message.find("endless loop"), std::string::npos) << message;
    EXPECT_NE(message.find("\"main\""), std::string::npos) << message;
}

TEST(SchedulerTest, ALoopThatOnlyReadsTheClockLetsOthersRunAndIsReportedWhenNobodyMovesTime) {
    Simulation sim;
    bool other = false;
    const std::string message = MessageOf(sim, [&] {
        Thread thread("other", [&] {
            sim.Yield();
            other = true;
        });
        const u64 end = Platform::SteadyMilliseconds() + 1;
        while (Platform::SteadyMilliseconds() < end) {
        }
    });
    EXPECT_TRUE(other);
    EXPECT_NE(message.find("endless loop"), std::string::npos) << message;
}

TEST(SchedulerTest, AnExceptionOfMainLeavesRun) {
    Simulation sim;
    try {
        sim.Run([] { throw std::out_of_range("from main"); });
        FAIL() << "nothing was thrown";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "from main");
    }
}

TEST(SchedulerDeathTest, AnExceptionOfAnotherThreadEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Simulation sim;
            sim.Run([] {
                Thread thread("thrower", [] { throw std::runtime_error("nobody catches me"); });
                thread.Join();
            });
        },
        "nobody catches me");
}

// Two threads are inside catch blocks at the same time and leave them crosswise: each must keep its own exception.
TEST(SchedulerTest, EachThreadHasItsOwnExceptionUnderWay) {
    Simulation sim;
    std::vector<std::string> seen;
    sim.Run([&] {
        std::vector<Thread> threads;
        for (u32 i = 0; i < 4; ++i) {
            threads.emplace_back("thrower", [&, i] {
                const std::string mine = "exception " + std::to_string(i);
                for (int round = 0; round < 3; ++round) {
                    try {
                        throw std::runtime_error(mine);
                    } catch (const std::exception&) {
                        Platform::SleepMilliseconds(10 - i);
                        try {
                            throw;
                        } catch (const std::exception& error) {
                            seen.push_back(error.what());
                            EXPECT_EQ(error.what(), mine);
                        }
                    }
                    EXPECT_EQ(std::uncaught_exceptions(), 0);
                }
            });
        }
        for (Thread& thread : threads) thread.Join();
    });
    EXPECT_EQ(seen.size(), 12u);
}

TEST(SchedulerTest, TheTimeHookSeesEachJumpBeforeItHappens) {
    Simulation sim;
    std::vector<u64> jumps;
    sim.SetTimeHook([&](u64 next) {
        EXPECT_LT(sim.Now(), next);
        jumps.push_back((next - Platform::Sim::SimClock::SteadyStartNanoseconds) / 1'000'000);
    });
    sim.Run([] {
        Platform::SleepMilliseconds(3);
        Platform::SleepMilliseconds(0);
        Platform::SleepMilliseconds(4);
    });
    EXPECT_EQ(jumps, (std::vector<u64>{3, 7}));
}

TEST(SchedulerTest, AnExceptionOfTheTimeHookLeavesRun) {
    Simulation sim;
    sim.SetTimeHook([](u64) { throw std::domain_error("an invariant is broken"); });
    EXPECT_THROW(sim.Run([] { Platform::SleepMilliseconds(3); }), std::domain_error);
}

TEST(SchedulerTest, ASecondRunGoesOnAtTheTimeOfTheFirst) {
    Simulation sim;
    sim.Run([] { Platform::SleepMilliseconds(5); });
    sim.Run([] { Platform::SleepMilliseconds(6); });
    EXPECT_EQ(sim.Elapsed(), 11'000'000u);
    EXPECT_EQ(sim.ThreadsStarted(), 2u);
}

TEST(SchedulerTest, OnlyOneSimulationIsAliveAndOnlyOneRuns) {
    Simulation sim;
    EXPECT_THROW(Simulation(2), std::logic_error);
    sim.Run([&] { EXPECT_THROW(sim.Run([] {}), std::logic_error); });
}

TEST(SchedulerTest, AThousandThreadsOneAfterTheOtherReuseTheirStacks) {
    Simulation sim;
    u32 ended = 0;
    sim.Run([&] {
        for (u32 i = 0; i < 1000; ++i) {
            Thread thread("short", [&] {
                volatile char frame[100'000];
                frame[0] = 1;
                frame[sizeof frame - 1] = frame[0];
                ended += static_cast<u32>(frame[sizeof frame - 1]);
            });
            thread.Join();
        }
    });
    EXPECT_EQ(ended, 1000u);
    EXPECT_EQ(sim.ThreadsStarted(), 1001u);
}

}  // namespace
