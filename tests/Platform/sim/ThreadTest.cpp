// Goal: simulated threads keep the contract of Platform/Thread.h, failures included.
#include "Platform/Thread.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "Platform/sim/Simulation.h"

namespace {

using Platform::Thread;
using Platform::Sim::Simulation;

TEST(ThreadTest, JoinWaitsForTheEndAndEmptiesTheObject) {
    Simulation sim;
    sim.Run([&] {
        Thread thread("worker", [] { Platform::SleepMilliseconds(70); });
        EXPECT_TRUE(thread.Joinable());
        thread.Join();
        EXPECT_FALSE(thread.Joinable());
        EXPECT_EQ(sim.Elapsed(), 70'000'000u);
    });
}

TEST(ThreadTest, JoiningNothingIsAnInvalidArgument) {
    Thread none;
    try {
        none.Join();
        FAIL() << "nothing was thrown";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::invalid_argument);
    }
}

TEST(ThreadTest, AThreadThatJoinsItselfWouldBeADeadlock) {
    Simulation sim;
    std::error_code code;
    sim.Run([&] {
        Thread thread;
        thread = Thread("narcissus", [&] {
            Platform::SleepMilliseconds(1);
            try {
                thread.Join();
            } catch (const std::system_error& error) {
                code = error.code();
            }
        });
        Platform::SleepMilliseconds(2);
        thread.Join();
    });
    EXPECT_EQ(code, std::errc::resource_deadlock_would_occur);
}

TEST(ThreadTest, AThreadMovesWithItsOwner) {
    Simulation sim;
    bool ran = false;
    sim.Run([&] {
        Thread first("worker", [&] { ran = true; });
        Thread second(std::move(first));
        EXPECT_FALSE(first.Joinable());
        first = std::move(second);
        EXPECT_TRUE(first.Joinable());
        first.Join();
    });
    EXPECT_TRUE(ran);
}

TEST(ThreadDeathTest, DestroyingAThreadThatWasNotJoinedEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            Simulation sim;
            sim.Run([] { Thread forgotten("forgotten", [] { Platform::SleepMilliseconds(1000); }); });
        },
        "");
}

TEST(ThreadTest, WhatTheBodyHoldsIsGoneWhenTheThreadHasEnded) {
    Simulation sim;
    auto held = std::make_shared<int>(1);
    std::weak_ptr<int> watch = held;
    sim.Run([&] {
        Thread thread("holder", [held = std::move(held)] { Platform::SleepMilliseconds(1); });
        EXPECT_FALSE(watch.expired());
        thread.Join();
        EXPECT_TRUE(watch.expired());
    });
}

TEST(ThreadTest, IdsAreSmallUniqueAndNeverZero) {
    Simulation sim;
    std::set<u64> ids{Platform::CurrentThreadId()};
    sim.Run([&] {
        EXPECT_EQ(Platform::CurrentThreadId(), 1u);
        for (int i = 0; i < 3; ++i) {
            Thread thread("worker", [&] { ids.insert(Platform::CurrentThreadId()); });
            thread.Join();
        }
    });
    EXPECT_EQ(ids, (std::set<u64>{1, 2, 3, 4}));
}

TEST(ThreadTest, TheNamesOfTheLivingAreToldCutToFifteenCharacters) {
    Simulation sim;
    sim.Run([&] {
        Thread first("a name that is longer than that", [] { Platform::SleepMilliseconds(1); });
        Thread second("short", [] { Platform::SleepMilliseconds(2); });
        EXPECT_EQ(sim.ThreadNames(), (std::vector<std::string>{"main", "a name that is ", "short"}));
        first.Join();
        EXPECT_EQ(sim.ThreadNames(), (std::vector<std::string>{"main", "short"}));
        EXPECT_EQ(sim.DescribeThreads(),
                  "  thread 1 \"main\" runs\n  thread 3 \"short\" waits for time to pass, 1 ms at most\n");
        second.Join();
    });
    EXPECT_TRUE(sim.ThreadNames().empty());
}

TEST(ThreadTest, StartsFailAsOrdered) {
    Simulation sim;
    std::string outcome;
    sim.FailThreadStarts(2, 1);
    sim.Run([&] {
        for (int i = 0; i < 5; ++i) {
            try {
                Thread thread("worker", [&] { outcome += 'r'; });
                thread.Join();
            } catch (const std::system_error& error) {
                EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again);
                outcome += 'f';
            }
        }
    });
    EXPECT_EQ(outcome, "rffrr");
}

TEST(ThreadTest, WithoutARunNoThreadStarts) {
    EXPECT_THROW(Thread("worker", [] {}), std::system_error);
    Simulation sim;
    EXPECT_THROW(Thread("worker", [] {}), std::system_error);
}

}  // namespace
