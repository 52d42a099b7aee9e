#include "Platform/Memory.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <latch>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Thread.h"

namespace Platform {
namespace {

// The sanitizers' own mlock() does nothing and succeeds.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kRealLocks = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kRealLocks = false;
#else
constexpr bool kRealLocks = true;
#endif
#else
constexpr bool kRealLocks = true;
#endif

// What the kernel counts as locked, in bytes.
u64 LockedBytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word != "VmLck:") continue;
        u64 kilobytes = 0;
        status >> kilobytes;
        return kilobytes * 1024;
    }
    return 0;
}

std::unique_ptr<u8, void (*)(void*)> Pages(u64 count) {
    return {static_cast<u8*>(std::aligned_alloc(PageSize(), count * PageSize())), &std::free};
}

TEST(Memory, ThePageSizeIsTheSystems) {
    EXPECT_EQ(PageSize(), static_cast<u32>(::getpagesize()));
}

TEST(Memory, LockedPagesAreCountedByTheKernelUntilTheyAreUnlocked) {
    if (!kRealLocks) GTEST_SKIP() << "the sanitizer locks nothing";
    const auto pages = Pages(3);
    const u64 before = LockedBytes();
    if (!LockMemory(pages.get(), 2 * PageSize() + 1)) GTEST_SKIP() << "this user may lock nothing";
    EXPECT_EQ(LockedBytes(), before + 3 * PageSize());
    EXPECT_TRUE(LockMemory(pages.get(), 2 * PageSize() + 1));
    EXPECT_EQ(LockedBytes(), before + 3 * PageSize()) << "locks are not counted";
    UnlockMemory(pages.get(), 2 * PageSize() + 1);
    EXPECT_EQ(LockedBytes(), before);
    UnlockMemory(pages.get(), 2 * PageSize() + 1);
}

TEST(Memory, NoBytesAndBytesThatAreNotThereCannotBeLocked) {
    const auto pages = Pages(1);
    EXPECT_FALSE(LockMemory(pages.get(), 0));
    EXPECT_FALSE(LockMemory(nullptr, 0));
    UnlockMemory(nullptr, 0);
    if (kRealLocks) {
        EXPECT_FALSE(LockMemory(nullptr, PageSize()));
    }
}

// How many heaps the C library keeps, by its own account of them.
u64 Heaps() {
    char* text = nullptr;
    std::size_t length = 0;
    std::FILE* const stream = ::open_memstream(&text, &length);
    ::malloc_info(0, stream);
    std::fclose(stream);
    const std::string account(text, length);
    std::free(text);
    u64 count = 0;
    for (auto at = account.find("<heap nr="); at != std::string::npos; at = account.find("<heap nr=", at + 1)) ++count;
    return count;
}

// Heaps after eight threads have allocated at once.
u64 HeapsOfThreads() {
    std::latch allAllocated(8);
    std::vector<Thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back("allocator", [&] {
            const std::vector<u8> held(8192, 1);
            allAllocated.arrive_and_wait();
        });
    }
    for (Thread& thread : threads) thread.Join();
    return Heaps();
}

// The first files of 5,000 feeds were opened by the thread that builds the feeds, all later ones by their pumps. With a
// heap for each few threads the read buffers of the first ones, 16 KiB a feed, were never used again. In a process of
// its own, since heaps that are there stay.
TEST(Memory, OneHeapServesAllThreadsOnceItIsAskedFor) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto allocate = [] {
        ShareOneHeap();
        std::exit(static_cast<int>(HeapsOfThreads()));
    };
    EXPECT_EXIT(allocate(), testing::ExitedWithCode(1), "");
}

}  // namespace
}  // namespace Platform
