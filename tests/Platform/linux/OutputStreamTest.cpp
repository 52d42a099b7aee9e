#include "Platform/OutputStream.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/Process.h"

namespace Platform {
namespace {

class Fifo : public ::testing::Test {
protected:
    Fifo() { ::signal(SIGPIPE, SIG_IGN); }
    int OpenReader() const { return ::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }

    OrvTest::TempFolder folder_;
    const std::string path_ = folder_ / "f";
    SystemError error_ = 0;
    u64 taken_ = 0;
};

TEST_F(Fifo, WithoutAReaderItCannotBeOpenedAndNothingWaits) {
    ASSERT_TRUE(MakeFifo(path_, error_));
    EXPECT_TRUE(MakeFifo(path_, error_)) << "one that is there is taken";
    EXPECT_EQ(OpenFifo(path_, error_), nullptr);
    EXPECT_EQ(error_, NoReaderError());
}

TEST_F(Fifo, WhatIsWrittenArrivesAndAFullOneTimesOutWithoutHavingTakenAnything) {
    ASSERT_TRUE(MakeFifo(path_, error_));
    const int reader = OpenReader();
    const auto stream = OpenFifo(path_, error_);
    ASSERT_NE(stream, nullptr);
    const std::vector<u8> piece(4096, 7);
    for (int i = 0; i < 16; ++i) {
        ASSERT_EQ(stream->Write(piece.data(), piece.size(), 0, taken_, error_), IOutputStream::Outcome::Taken) << i;
    }
    EXPECT_EQ(stream->Write(piece.data(), piece.size(), 20, taken_, error_), IOutputStream::Outcome::TimedOut);
    EXPECT_EQ(taken_, 0u);
    std::vector<u8> read(65536);
    EXPECT_EQ(::read(reader, read.data(), read.size()), 65536);
    EXPECT_EQ(read, std::vector<u8>(65536, 7));
    ::close(reader);
}

TEST_F(Fifo, AReaderThatLeavesIsSeenWithAndWithoutAWrite) {
    ASSERT_TRUE(MakeFifo(path_, error_));
    const int reader = OpenReader();
    const auto stream = OpenFifo(path_, error_);
    ASSERT_NE(stream, nullptr);
    EXPECT_FALSE(stream->ReaderGone());
    ::close(reader);
    EXPECT_TRUE(stream->ReaderGone());
    EXPECT_EQ(stream->Write("x", 1, 0, taken_, error_), IOutputStream::Outcome::Closed);
}

TEST_F(Fifo, WhatIsNoFifoIsRefused) {
    OrvTest::WriteFileText(path_, "mine");
    EXPECT_FALSE(MakeFifo(path_, error_));
    EXPECT_EQ(error_, NotAFifoError());
    EXPECT_EQ(OpenFifo(path_, error_), nullptr);
    EXPECT_EQ(OrvTest::ReadFileText(path_), "mine");
}

}  // namespace
}  // namespace Platform
