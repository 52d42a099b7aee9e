#include "Projects/Common/VoIPFileEngine/ILoopBuffer.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/Projects/Common/VoIPFileEngine/LiveSource.h"

namespace Orv {
namespace {

using TestData::LiveBytes;

void Append(ILoopBuffer& ring, u64 position, u64 count) {
    const std::string bytes = LiveBytes(position, count);
    ring.Append(reinterpret_cast<const u8*>(bytes.data()), count);
}

TEST(ILoopBuffer, ByteNOfTheStreamLiesAtNModulo65536) {
    ILoopBuffer ring;
    for (u64 position = 0; position < 70'000; position += 1'999) Append(ring, position, 1'999);
    // 36 times 1999 bytes: 71964, so that the first 6428 bytes have been overwritten.
    EXPECT_EQ(ring.written.load(), 71'964u);
    EXPECT_EQ(TestData::FrameBytes(ring.data, 6'428), LiveBytes(65'536, 6'428));
    EXPECT_EQ(TestData::FrameBytes(ring.data + 6'428, 65'536 - 6'428), LiveBytes(6'428, 65'536 - 6'428));
}

TEST(ILoopBuffer, APieceThatEndsAtTheEndOfTheRingIsWhole) {
    ILoopBuffer ring;
    Append(ring, 0, 65'536);
    EXPECT_EQ(TestData::FrameBytes(ring.data, 65'536), LiveBytes(0, 65'536));
    Append(ring, 65'536, 1);
    EXPECT_EQ(ring.data[0], static_cast<u8>(LiveBytes(65'536, 1)[0]));
    EXPECT_EQ(ring.written.load(), 65'537u);
}

TEST(ILoopBuffer, TheHeadIsHeldEven) {
    ILoopBuffer ring;
    EXPECT_EQ(ring.TakeHead(), 0u);
    Append(ring, 0, 1);
    EXPECT_EQ(ring.TakeHead(), 0u);
    Append(ring, 1, 4);
    EXPECT_EQ(ring.TakeHead(), 4u);
    Append(ring, 5, 1);
    EXPECT_EQ(ring.TakeHead(), 6u);
}

TEST(ILoopBuffer, ACopyCrossesTheEnd) {
    ILoopBuffer ring;
    Append(ring, 0, 65'536);
    Append(ring, 65'536, 1'000);
    std::string copy(2'000, '?');
    ring.CopyOut(64'536, reinterpret_cast<u8*>(copy.data()), 2'000);
    EXPECT_EQ(copy, LiveBytes(64'536, 2'000));
}

TEST(ILoopBuffer, AResetLeavesZerosAndBeginsAtByte0) {
    ILoopBuffer ring;
    Append(ring, 0, 65'000);
    Append(ring, 65'000, 3'000);
    ring.Reset();
    EXPECT_EQ(ring.written.load(), 0u);
    EXPECT_TRUE(TestData::AllZero(ring.data, sizeof ring.data));
    EXPECT_EQ(sizeof ring.data, 65'536u);
}

}  // namespace
}  // namespace Orv
