#include "Platform/Thread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/Sync.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ORV_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ORV_SANITIZED 1
#endif
#endif

namespace Platform {
namespace {

std::string NameOfNewThread(const char* name) {
    char shown[16] = {};
    Thread thread(name, [&] { ::pthread_getname_np(::pthread_self(), shown, sizeof shown); });
    thread.Join();
    return shown;
}

TEST(ThreadTest, AThreadBearsItsNameCutTo15Characters) {
    EXPECT_EQ(NameOfNewThread("pump"), "pump");
    EXPECT_EQ(NameOfNewThread("exactly fifteen"), "exactly fifteen");
    EXPECT_EQ(NameOfNewThread("sixteen letters!"), "sixteen letters");
}

TEST(ThreadTest, LateWakingIsAllowedToAThreadAndThoseThatItStartsAndToNobodyElse) {
    int own = 0;
    int started = 0;
    Thread late("late", [&] {
        AllowLateWaking(5);
        own = ::prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0);
        Thread inner("inner", [&] { started = ::prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0); });
        inner.Join();
    });
    late.Join();
    EXPECT_EQ(own, 5'000'000) << "nanoseconds";
    EXPECT_EQ(started, own);
    EXPECT_LT(::prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0), own);
}

TEST(ThreadTest, JoinWaitsForTheEndAndLeavesTheObjectEmpty) {
    Event go;
    int value = 0;
    Thread thread("works", [&] {
        go.WaitFor(60000);
        value = 1;
    });
    EXPECT_TRUE(thread.Joinable());
    go.Set();
    thread.Join();
    EXPECT_EQ(value, 1);
    EXPECT_FALSE(thread.Joinable());
}

TEST(ThreadTest, AnEmptyThreadCannotBeJoined) {
    Thread thread;
    EXPECT_FALSE(thread.Joinable());
    try {
        thread.Join();
        FAIL() << "nothing thrown";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::invalid_argument);
    }
}

TEST(ThreadTest, AThreadThatJoinsItselfGetsADeadlockError) {
    Thread thread;
    Event ready;
    bool deadlock = false;
    thread = Thread("joins itself", [&] {
        ready.WaitFor(60000);
        try {
            thread.Join();
        } catch (const std::system_error& error) {
            deadlock = error.code() == std::errc::resource_deadlock_would_occur;
        }
    });
    ready.Set();
    thread.Join();
    EXPECT_TRUE(deadlock);
}

TEST(ThreadTest, AMovedThreadIsTheTargets) {
    Event go;
    Thread first("moves", [&] { go.WaitFor(60000); });
    Thread second(std::move(first));
    EXPECT_FALSE(first.Joinable());
    EXPECT_TRUE(second.Joinable());
    first = std::move(second);
    EXPECT_TRUE(first.Joinable());
    go.Set();
    first.Join();
}

TEST(ThreadTest, EachThreadHasTheKernelsNumber) {
    EXPECT_EQ(CurrentThreadId(), static_cast<u64>(::getpid()));
    u64 other = 0;
    Thread thread("tells", [&] { other = CurrentThreadId(); });
    thread.Join();
    EXPECT_NE(other, 0u);
    EXPECT_NE(other, CurrentThreadId());
}

TEST(ThreadTest, ASleepLastsAtLeastItsTime) {
    for (const u32 milliseconds : {0u, 1u, 25u}) {
        const u64 before = SteadyNanoseconds();
        SleepMilliseconds(milliseconds);
        EXPECT_GE(SteadyNanoseconds() - before, milliseconds * 1'000'000u);
    }
}

// Method: signals that come all the time cut each system call short.
TEST(ThreadTest, ASignalDoesNotEndASleep) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    struct sigaction before {};
    ASSERT_EQ(::sigaction(SIGUSR1, &action, &before), 0);
    const pthread_t sleeper = ::pthread_self();
    std::atomic<bool> over{false};
    Thread thread("disturbs", [&] {
        while (!over.load(std::memory_order_relaxed)) {
            ::pthread_kill(sleeper, SIGUSR1);
            ::usleep(1000);
        }
    });
    const u64 begin = SteadyNanoseconds();
    SleepMilliseconds(30);
    const u64 slept = SteadyNanoseconds() - begin;
    over.store(true, std::memory_order_relaxed);
    thread.Join();
    ASSERT_EQ(::sigaction(SIGUSR1, &before, nullptr), 0);
    EXPECT_GE(slept, 30'000'000u);
}

TEST(ThreadDeathTest, AnExceptionThatLeavesTheBodyEndsTheProcess) {
    const auto throwOnAThread = [] {
        Thread thread("throws", [] { throw std::runtime_error("left the body"); });
        thread.Join();
    };
    EXPECT_EXIT(throwOnAThread(), testing::KilledBySignal(SIGABRT), "left the body");
}

TEST(ThreadDeathTest, AThreadThatIsDroppedUnjoinedEndsTheProcess) {
    const auto drop = [] {
        Event never;
        Thread thread("dropped", [&] { never.WaitFor(60000); });
    };
    EXPECT_EXIT(drop(), testing::KilledBySignal(SIGABRT), "");
}

#ifndef ORV_SANITIZED
// Method: an address space with no room for one more stack, filled up with threads that took what old threads left.
// Sanitizers need theirs to be endless.
TEST(ThreadDeathTest, WhenTheSystemHasNoThreadToGiveASystemErrorIsThrown) {
    const auto startWithoutMemory = [] {
        std::ifstream statistics("/proc/self/statm");
        rlim_t pages = 0;
        statistics >> pages;
        const rlim_t bytes = pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE)) + 64 * 1024;
        const rlimit limit{bytes, bytes};
        ::setrlimit(RLIMIT_AS, &limit);
        Event never;
        std::vector<Thread> threads;
        threads.reserve(1000);
        try {
            while (threads.size() < threads.capacity()) threads.emplace_back("waits", [&] { never.WaitFor(60000); });
        } catch (const std::system_error& error) {
            ::_exit(error.code() == std::errc::resource_unavailable_try_again ? 0 : 2);
        }
        ::_exit(1);
    };
    EXPECT_EXIT(startWithoutMemory(), testing::ExitedWithCode(0), "");
}
#endif

}  // namespace
}  // namespace Platform
