#include "VX/WorkerPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "Platform/Thread.h"
#include "tests/support/Process.h"

namespace VX {
namespace {

using OrvTest::Eventually;

// As many threads as those that check logins, which come one at a time: one that nobody is woken for would wait until
// its client gives up.
TEST(WorkerPoolTest, ATaskIsDoneWhileAllOtherThreadsRest) {
    WorkerPool pool("works", 56, 64);
    std::atomic<u32> done{0};
    for (u32 i = 1; i <= 20'000; ++i) {
        ASSERT_TRUE(pool.TryPost([&done] { done.fetch_add(1, std::memory_order_release); }));
        const auto isDone = [&] { return done.load(std::memory_order_acquire) == i; };
        for (u32 look = 0; look < 100'000 && !isDone(); ++look) {
        }
        ASSERT_TRUE(isDone() || Eventually(isDone)) << i;
    }
}

// One thread that is not woken for its task lets all the others wait for it.
TEST(WorkerPoolTest, AsManyTasksAsThereAreThreadsRunAtOnceThoughAllHaveRested) {
    constexpr u32 kThreads = 56;
    WorkerPool pool("works", kThreads, kThreads);
    for (u32 round = 0; round < 50; ++round) {
        std::atomic<u32> begun{0};
        std::atomic<u32> ended{0};
        std::atomic<bool> givenUp{false};  // by one, so by all
        const auto meet = [&] {
            begun.fetch_add(1, std::memory_order_release);
            const auto over = [&] {
                return givenUp.load(std::memory_order_relaxed) || begun.load(std::memory_order_acquire) == kThreads;
            };
            if (!Eventually(over, 20'000)) givenUp.store(true, std::memory_order_relaxed);
            ended.fetch_add(1, std::memory_order_release);
        };
        for (u32 i = 0; i < kThreads; ++i) EXPECT_TRUE(pool.TryPost(meet));
        while (ended.load(std::memory_order_acquire) != kThreads) Platform::SleepMilliseconds(1);
        ASSERT_FALSE(givenUp.load(std::memory_order_relaxed)) << round;
    }
}

TEST(WorkerPoolTest, TasksStartInTheOrderInWhichTheyWerePosted) {
    std::vector<int> order;
    WorkerPool pool("works", 1, 1000);
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(pool.TryPost([&order, i] { order.push_back(i); }));
    pool.Stop();
    ASSERT_EQ(order.size(), 1000u);
    for (int i = 0; i < 1000; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(WorkerPoolTest, AStopWaitsUntilAllTasksHaveBeenDoneAndTakesNoMore) {
    std::atomic<int> done{0};
    WorkerPool pool("works", 4, 1000);
    for (int i = 0; i < 1000; ++i) pool.Post([&done] { done.fetch_add(1, std::memory_order_relaxed); });
    pool.Stop();
    EXPECT_EQ(done.load(), 1000);
    EXPECT_FALSE(pool.TryPost([&done] { done = 0; }));
    pool.Post([&done] { done = 0; });
    EXPECT_EQ(done.load(), 1000);
}

TEST(WorkerPoolTest, NoMoreWaitThanMay) {
    std::atomic<bool> release{false};
    std::atomic<int> begun{0};
    WorkerPool pool("works", 2, 3);
    const auto hold = [&] {
        begun.fetch_add(1, std::memory_order_release);
        EXPECT_TRUE(Eventually([&] { return release.load(std::memory_order_acquire); }));
    };
    for (int i = 0; i < 2; ++i) ASSERT_TRUE(pool.TryPost(hold));
    ASSERT_TRUE(Eventually([&] { return begun.load(std::memory_order_acquire) == 2; }));
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(pool.TryPost([] {}));
    EXPECT_FALSE(pool.TryPost([] {}));
    release.store(true, std::memory_order_release);
    pool.Stop();
}

}  // namespace
}  // namespace VX
