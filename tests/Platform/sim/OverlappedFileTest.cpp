// Goal: overlapped reads are Pending exactly as long as they are told to be, and never keep their caller.
#include "Platform/OverlappedFile.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"

namespace {

using Platform::OpenOverlappedFile;
using Platform::OverlappedRead;
using Platform::ReadState;
using Platform::SystemError;
using Platform::Sim::FileKind;
using Platform::Sim::Simulation;

std::string BytesOf(const OverlappedRead& read) {
    return std::string(reinterpret_cast<const char*>(read.Data()), read.Bytes());
}

TEST(OverlappedFileTest, AReadWithoutADelayIsDoneAtOnce) {
    Simulation sim;
    sim.Files().AddFile("/A.raw", "0123456789");
    SystemError error = 99;
    const auto file = OpenOverlappedFile("/a.RAW", error);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(error, 0u);
    const auto read = file->MakeRead();
    EXPECT_EQ(read->Poll(), ReadState::EndOfFile);
    EXPECT_EQ(file->StartRead(read, 2, 3), ReadState::Done);
    EXPECT_EQ(BytesOf(*read), "234");
    EXPECT_EQ(read->Poll(), ReadState::Done);
    EXPECT_EQ(file->StartRead(read, 8, OverlappedRead::Capacity), ReadState::Done);
    EXPECT_EQ(BytesOf(*read), "89");
    EXPECT_EQ(file->StartRead(read, 10, 1), ReadState::EndOfFile);
    EXPECT_EQ(file->StartRead(read, 5000, 1), ReadState::EndOfFile);
}

TEST(OverlappedFileTest, AReadBringsAFullBuffer) {
    Simulation sim;
    std::string bytes(20'000, ' ');
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 31);
    sim.Files().AddFile("/a.raw", bytes);
    SystemError error = 0;
    const auto file = OpenOverlappedFile("/a.raw", error);
    const auto read = file->MakeRead();
    EXPECT_EQ(file->StartRead(read, 8192, 8192), ReadState::Done);
    EXPECT_EQ(BytesOf(*read), bytes.substr(8192, 8192));
}

TEST(OverlappedFileTest, ADelayedReadIsPendingUntilItsTimeHasPassed) {
    Simulation sim;
    sim.Files().AddFile("/a.raw", "0123456789");
    sim.Files().DelayReads("/A.raw", 50);
    sim.Run([&] {
        SystemError error = 0;
        const auto file = OpenOverlappedFile("/a.raw", error);
        const auto read = file->MakeRead();
        EXPECT_EQ(file->StartRead(read, 0, 4), ReadState::Pending);
        Platform::SleepMilliseconds(49);
        EXPECT_EQ(read->Poll(), ReadState::Pending);
        Platform::SleepMilliseconds(1);
        EXPECT_EQ(read->Poll(), ReadState::Done);
        EXPECT_EQ(BytesOf(*read), "0123");
    });
}

TEST(OverlappedFileTest, APendingReadTakesTheFileAsItIsAtItsEnd) {
    Simulation sim;
    sim.Files().AddFile("/a.raw", "0123456789");
    sim.Files().DelayAllReads(50);
    sim.Run([&] {
        SystemError error = 0;
        const auto file = OpenOverlappedFile("/a.raw", error);
        const auto first = file->MakeRead();
        const auto second = file->MakeRead();
        EXPECT_EQ(file->StartRead(first, 2, 4), ReadState::Pending);
        EXPECT_EQ(file->StartRead(second, 6, 4), ReadState::Pending);
        sim.Files().Truncate("/a.raw", 3);
        Platform::SleepMilliseconds(50);
        EXPECT_EQ(first->Poll(), ReadState::Done);
        EXPECT_EQ(BytesOf(*first), "2");
        EXPECT_EQ(second->Poll(), ReadState::EndOfFile);
    });
}

TEST(OverlappedFileTest, AHungReadIsPendingForEverAndKeepsNobody) {
    Simulation sim;
    sim.Files().AddFile("/a.raw", "0123456789");
    sim.Files().HangReads("/a.raw", true);
    sim.Run([&] {
        SystemError error = 0;
        auto file = OpenOverlappedFile("/a.raw", error);
        auto read = file->MakeRead();
        EXPECT_EQ(file->StartRead(read, 0, 4), ReadState::Pending);
        Platform::SleepMilliseconds(86'400'000);
        EXPECT_EQ(read->Poll(), ReadState::Pending);
        file.reset();
        EXPECT_EQ(sim.Files().Counters().filesAlive, 1u);
        EXPECT_EQ(sim.Files().Counters().readRecordsAlive, 1u);
        read.reset();
        EXPECT_EQ(sim.Files().Counters().filesAlive, 0u);
        EXPECT_EQ(sim.Files().Counters().readRecordsAlive, 0u);
    });
}

TEST(OverlappedFileTest, AHungReadEndsWhenTheDiskComesBack) {
    Simulation sim;
    sim.Files().AddFile("/a.raw", "0123456789");
    sim.Files().HangReads("/a.raw", true);
    SystemError error = 0;
    const auto file = OpenOverlappedFile("/a.raw", error);
    const auto read = file->MakeRead();
    EXPECT_EQ(file->StartRead(read, 0, 4), ReadState::Pending);
    sim.Files().HangReads("/a.raw", false);
    EXPECT_EQ(read->Poll(), ReadState::Done);
    EXPECT_EQ(BytesOf(*read), "0123");
}

TEST(OverlappedFileTest, AReadThatTouchesABadByteFailsWithItsError) {
    Simulation sim;
    sim.Files().AddFile("/a.raw", "0123456789");
    sim.Files().FailReads("/a.raw", EIO, 4, 4);
    SystemError error = 0;
    const auto file = OpenOverlappedFile("/a.raw", error);
    const auto read = file->MakeRead();
    EXPECT_EQ(file->StartRead(read, 0, 4), ReadState::Done);
    EXPECT_EQ(read->Error(), 0u);
    EXPECT_EQ(file->StartRead(read, 1, 4), ReadState::Failed);
    EXPECT_EQ(read->Error(), static_cast<u32>(EIO));
    EXPECT_EQ(read->Poll(), ReadState::Failed);
    EXPECT_EQ(file->StartRead(read, 5, 4), ReadState::Done);
    EXPECT_EQ(read->Error(), 0u);
}

TEST(OverlappedFileTest, WhatIsNoRegularFileIsRefused) {
    Simulation sim;
    sim.Files().AddFolder("/folder.raw");
    sim.Files().AddSpecial("/fifo.raw", FileKind::Fifo);
    SystemError error = 0;
    EXPECT_EQ(OpenOverlappedFile("/folder.raw", error), nullptr);
    EXPECT_EQ(error, static_cast<u32>(EISDIR));
    EXPECT_EQ(OpenOverlappedFile("/fifo.raw", error), nullptr);
    EXPECT_EQ(error, static_cast<u32>(EINVAL));
    EXPECT_EQ(OpenOverlappedFile("/none.raw", error), nullptr);
    EXPECT_EQ(error, static_cast<u32>(ENOENT));
}

}  // namespace
