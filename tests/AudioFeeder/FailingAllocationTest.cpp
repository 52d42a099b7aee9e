// Goal: a heap that has nothing left ends the process at once, with a message, wherever it is; no change is left half
// done by an exception while the rest goes on.
// Method: the whole life of the service is lived once to count its allocations, then again and again in processes of
// their own, in each of which another allocation fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "Platform/OutOfMemory.h"
#include "tests/AudioFeeder/WholeLife.h"
#include "tests/support/Effort.h"
#include "tests/support/FailingHeap.h"

namespace {

using OrvTest::ChildEnd;
using OrvTest::InChild;

u64 allocations = 0;  // simulated threads are fibers of one
u64 failing = OrvTest::Never;

void* Allocate(std::size_t size) {
    return OrvTest::AllocateUnless(allocations++ == failing, size);
}

void CountFrom(u64 number) {
    allocations = 0;
    failing = number;
}

}  // namespace

void* operator new(std::size_t size) {
    return Allocate(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return Allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

using namespace FeederTest;

// Hidden from an optimiser that may leave out an allocation that nobody looks at.
int* volatile kept = nullptr;

void TakeMemory() {
    kept = new int(1);
    delete kept;
}

TEST(OutOfMemory, EndsTheProcessAtOnceWithASentenceAndTheCodeOfAFailedStart) {
    const ChildEnd end = InChild([] {
        Platform::EndWhenOutOfMemory();
        CountFrom(0);
        try {
            TakeMemory();
        } catch (const std::bad_alloc&) {
            std::puts("thrown");
        }
        std::puts("went on");
    });
    EXPECT_EQ(end.exitCode, OrvTest::OutOfMemoryCode);
    EXPECT_EQ(end.said, std::string(OrvTest::OutOfMemoryMessage) + "\n");
}

TEST(OutOfMemory, IsAnExceptionForWhoCanDoWithoutAndOnlyForHim) {
    const ChildEnd end = InChild([] {
        Platform::EndWhenOutOfMemory();
        bool thrown = false;
        {
            const Platform::MemoryMayFail mayFail;
            CountFrom(0);
            try {
                TakeMemory();
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
        }
        if (thrown) std::fputs("thrown, then ", stdout);
        std::fflush(stdout);
        CountFrom(0);
        TakeMemory();
        std::puts("went on");
    });
    EXPECT_EQ(end.exitCode, OrvTest::OutOfMemoryCode);
    EXPECT_EQ(end.said, std::string("thrown, then ") + OrvTest::OutOfMemoryMessage + "\n");
}

TEST(OutOfMemory, AnyAllocationOfTheWholeLifeThatFailsEndsTheProcessWithTheMessage) {
    u64 count = 0;
    // The second life counts: what the first one leaves in the process once and for all, the others find there too.
    for (int life = 0; life < 2; ++life) {
        const LifeStory calm = Live(
            true, [] { CountFrom(OrvTest::Never); }, [&](i32) { count = allocations; });
        ASSERT_EQ(calm.exitCode, 0);
    }
    ASSERT_GT(count, 1'000U);
    const u64 tries = std::min<u64>(count, static_cast<u64>(OrvTest::Effort(ORV_ALLOCATIONS, 1 << 30)));
    std::string wrong;  // told at the end: a child process must begin without a failure
    for (u64 index = 0; index < tries; ++index) {
        const u64 number = index * count / tries;
        const ChildEnd end = InChild([&] {
            Live(
                true, [&] { CountFrom(number); }, [](i32) { CountFrom(OrvTest::Never); });
        });
        if (EndedOutOfMemory(end)) continue;
        wrong += "allocation " + std::to_string(number) + " of " + std::to_string(count) + ": " + end.Describe();
    }
    EXPECT_EQ(wrong, "");
    std::printf("%llu of %llu allocations failed once\n", static_cast<unsigned long long>(tries),
                static_cast<unsigned long long>(count));
}

}  // namespace
