#include "Platform/Memory.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

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

}  // namespace
}  // namespace Platform
