#include "Tools/orv-listen/SoundQueue.h"

#include <gtest/gtest.h>

#include "Platform/Thread.h"

namespace Orv {
namespace {

TEST(SoundQueue, WhatIsPushedIsTakenInItsOrder) {
    SoundQueue queue(8);
    const u8 bytes[] = {1, 2, 3, 4};
    EXPECT_EQ(queue.Push(bytes, 3), 0u);
    EXPECT_EQ(queue.Push(bytes + 3, 1), 0u);
    std::vector<u8> out;
    ASSERT_TRUE(queue.Take(out));
    EXPECT_EQ(out, (std::vector<u8>{1, 2, 3, 4}));
}

TEST(SoundQueue, WhatIsTooMuchPushesTheOldestOutInWholeSamples) {
    SoundQueue queue(4);
    const u8 bytes[] = {1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(queue.Push(bytes, 4), 0u);
    EXPECT_EQ(queue.Push(bytes + 4, 1), 2u);
    EXPECT_EQ(queue.Push(bytes + 5, 2), 2u);
    std::vector<u8> out;
    ASSERT_TRUE(queue.Take(out));
    EXPECT_EQ(out, (std::vector<u8>{5, 6, 7}));
}

TEST(SoundQueue, AClosedQueueGivesWhatItHasAndThenItsEnd) {
    SoundQueue queue(4);
    const u8 bytes[] = {1, 2};
    queue.Push(bytes, 2);
    queue.Close();
    std::vector<u8> out;
    ASSERT_TRUE(queue.Take(out));
    EXPECT_EQ(out, (std::vector<u8>{1, 2}));
    EXPECT_FALSE(queue.Take(out));
}

TEST(SoundQueue, ATakerWaitsForBytesAndLosesNoneOfThem) {
    SoundQueue queue(1 << 20);
    std::vector<u8> all;
    Platform::Thread taker("taker", [&] {
        std::vector<u8> out;
        while (queue.Take(out)) all.insert(all.end(), out.begin(), out.end());
    });
    std::vector<u8> sent;
    for (int i = 0; i < 5000; ++i) {
        const u8 bytes[] = {static_cast<u8>(i), static_cast<u8>(i >> 8)};
        queue.Push(bytes, 2);
        sent.insert(sent.end(), bytes, bytes + 2);
    }
    queue.Close();
    taker.Join();
    EXPECT_EQ(all, sent);
}

}  // namespace
}  // namespace Orv
