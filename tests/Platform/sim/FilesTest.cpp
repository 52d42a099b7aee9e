// Goal: simulated files keep the contract of Platform/Files.h, and fail as they are told to.
#include "Platform/Files.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <vector>

#include "Platform/PrivateFile.h"
#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"

namespace {

using Platform::OpenReadFile;
using Platform::SystemError;
using Platform::Thread;
using Platform::Sim::FileKind;
using Platform::Sim::Simulation;

std::string ReadAt(Platform::IReadFile& file, u64 position, u64 count) {
    std::string text(count, '?');
    text.resize(file.ReadAt(position, text.data(), count));
    return text;
}

SystemError OpenErrorOf(const std::string& path) {
    SystemError error = 0;
    EXPECT_EQ(OpenReadFile(path, error), nullptr) << path;
    return error;
}

TEST(FilesTest, AFileIsReadAtAnyPositionWhateverItsCase) {
    Simulation sim;
    sim.Files().AddFile("/data/A.wav", "0123456789");
    SystemError error = 99;
    const auto file = OpenReadFile("\\DATA\\a.WAV", error);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(file->Size(), 10u);
    EXPECT_EQ(ReadAt(*file, 3, 4), "3456");
    EXPECT_EQ(ReadAt(*file, 8, 4), "89");
    EXPECT_EQ(ReadAt(*file, 10, 4), "");
    EXPECT_EQ(ReadAt(*file, 0xFFFFFFFFFFFFFFFF, 4), "");
    EXPECT_EQ(sim.Files().Counters().bytesRead, 6u);
    EXPECT_EQ(sim.Files().Counters().reads, 4u);
}

TEST(FilesTest, OnlyRegularFilesAreOpened) {
    Simulation sim;
    sim.Files().AddFolder("/folder.wav");
    sim.Files().AddSpecial("/fifo.wav", FileKind::Fifo);
    sim.Files().AddSpecial("/socket.wav", FileKind::Socket);
    sim.Files().AddSpecial("/device.wav", FileKind::Device);
    sim.Files().AddFile("/file.wav", "");
    EXPECT_EQ(OpenErrorOf("/folder.wav"), static_cast<u32>(EISDIR));
    EXPECT_EQ(OpenErrorOf("/fifo.wav"), static_cast<u32>(EINVAL));
    EXPECT_EQ(OpenErrorOf("/socket.wav"), static_cast<u32>(EINVAL));
    EXPECT_EQ(OpenErrorOf("/device.wav"), static_cast<u32>(EINVAL));
    EXPECT_EQ(OpenErrorOf("/none.wav"), static_cast<u32>(ENOENT));
    EXPECT_EQ(OpenErrorOf("/file.wav/x"), static_cast<u32>(ENOTDIR));
    EXPECT_EQ(OpenErrorOf("/file.wav/"), static_cast<u32>(ENOTDIR));
    EXPECT_EQ(OpenErrorOf(""), static_cast<u32>(ENOENT));
    EXPECT_EQ(OpenErrorOf("/" + std::string(256, 'x')), static_cast<u32>(ENAMETOOLONG));
    EXPECT_EQ(sim.Files().Counters().opens, 9u);
    EXPECT_EQ(sim.Files().Counters().openFailures, 9u);
    EXPECT_EQ(sim.Files().Counters().filesAlive, 0u);
}

TEST(FilesTest, AnOpenFileSeesATruncationButNeitherAReplacementNorARemoval) {
    Simulation sim;
    sim.Files().AddFile("/a", "0123456789");
    SystemError error = 0;
    const auto file = OpenReadFile("/a", error);
    ASSERT_NE(file, nullptr);
    sim.Files().Truncate("/a", 4);
    EXPECT_EQ(file->Size(), 10u);
    EXPECT_EQ(ReadAt(*file, 2, 8), "23");
    sim.Files().Replace("/a", "abc");
    EXPECT_EQ(ReadAt(*file, 0, 8), "0123");
    EXPECT_EQ(sim.Files().ReadBack("/a"), "abc");
    sim.Files().Remove("/a");
    EXPECT_EQ(ReadAt(*file, 0, 8), "0123");
    EXPECT_FALSE(sim.Files().Exists("/a"));
}

TEST(FilesTest, AWrittenFileIsReadBack) {
    Simulation sim;
    sim.Files().AddFile("/logs/x.log", "what was there before");
    SystemError error = 99;
    {
        const auto file = Platform::CreateWriteFile("\\logs\\x.log", error);
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(error, 0u);
        EXPECT_TRUE(file->Write("hello ", 6));
        EXPECT_TRUE(file->Write("world", 5));
        EXPECT_EQ(file->Position(), 11u);
        EXPECT_EQ(sim.Files().Counters().filesAlive, 1u);
    }
    EXPECT_EQ(sim.Files().ReadBack("/LOGS/X.log"), "hello world");
    EXPECT_EQ(sim.Files().Counters().filesAlive, 0u);
    EXPECT_EQ(sim.Files().Counters().bytesWritten, 11u);
}

TEST(FilesTest, AFileToWriteIsTakenByItsExactSpellingAndNeedsItsFolder) {
    Simulation sim;
    sim.Files().AddFile("/logs/X.log", "old");
    sim.Files().AddSpecial("/logs/fifo", FileKind::Fifo);
    SystemError error = 0;
    EXPECT_NE(Platform::CreateWriteFile("/logs/x.log", error), nullptr);
    EXPECT_EQ(sim.Files().List("/logs"), (std::vector<std::string>{"X.log", "fifo", "x.log"}));
    EXPECT_EQ(sim.Files().ReadBack("/logs/X.log"), "old");
    EXPECT_EQ(Platform::CreateWriteFile("/Logs/x.log", error), nullptr);
    EXPECT_EQ(error, static_cast<u32>(ENOENT));
    EXPECT_EQ(Platform::CreateWriteFile("/logs", error), nullptr);
    EXPECT_EQ(error, static_cast<u32>(EISDIR));
    EXPECT_EQ(Platform::CreateWriteFile("/logs/fifo", error), nullptr);
    EXPECT_EQ(error, static_cast<u32>(EINVAL));
}

TEST(FilesTest, AFullDiskTakesWhatFits) {
    Simulation sim;
    SystemError error = 0;
    const auto file = Platform::CreateWriteFile("/tmp/x", error);
    ASSERT_NE(file, nullptr);
    sim.Files().SetFreeSpace(4);
    EXPECT_FALSE(file->Write("hello", 5));
    EXPECT_EQ(file->Position(), 4u);
    EXPECT_FALSE(file->Write("o", 1));
    sim.Files().ClearFaults();
    EXPECT_TRUE(file->Write("p", 1));
    EXPECT_EQ(sim.Files().ReadBack("/tmp/x"), "hellp");
}

TEST(FilesTest, AFolderIsMadeOnceAndInAFolder) {
    Simulation sim;
    SystemError error = 99;
    EXPECT_FALSE(Platform::PathExists("/tmp/Logs"));
    EXPECT_TRUE(Platform::CreateFolder("/tmp/Logs", error));
    EXPECT_EQ(error, 0u);
    EXPECT_TRUE(Platform::PathExists("\\tmp\\Logs\\"));
    EXPECT_FALSE(Platform::PathExists("/tmp/logs"));
    EXPECT_FALSE(Platform::CreateFolder("/tmp/Logs", error));
    EXPECT_EQ(error, Platform::PathExistsError());
    EXPECT_FALSE(Platform::CreateFolder("/tmp/none/Logs", error));
    EXPECT_EQ(error, static_cast<u32>(ENOENT));
    EXPECT_TRUE(Platform::CreateFolder("/tmp/logs", error));
    EXPECT_EQ(sim.Files().KindOf("/tmp/logs"), FileKind::Folder);
}

TEST(FilesTest, AMoveNeverReplaces) {
    Simulation sim;
    sim.Files().AddFile("/a/x", "1");
    sim.Files().AddFile("/b/x", "2");
    EXPECT_FALSE(Platform::MoveFileTo("/a/x", "/b/x"));
    EXPECT_FALSE(Platform::MoveFileTo("/a/none", "/b/y"));
    EXPECT_FALSE(Platform::MoveFileTo("/a/x", "/none/x"));
    EXPECT_TRUE(Platform::MoveFileTo("/a/x", "/b/y"));
    EXPECT_EQ(sim.Files().List("/a"), std::vector<std::string>{});
    EXPECT_EQ(sim.Files().List("/b"), (std::vector<std::string>{"x", "y"}));
    EXPECT_EQ(sim.Files().ReadBack("/b/y"), "1");
}

TEST(FilesTest, OpensFailAsOftenAsTold) {
    Simulation sim;
    sim.Files().AddFile("/a/X.wav", "1");
    sim.Files().FailOpens("/A/x.wav", EIO, 2);
    EXPECT_EQ(OpenErrorOf("/a/x.wav"), static_cast<u32>(EIO));
    EXPECT_EQ(OpenErrorOf("/a/X.wav"), static_cast<u32>(EIO));
    SystemError error = 0;
    EXPECT_NE(OpenReadFile("/a/X.wav", error), nullptr);
    sim.Files().MakeUnreadable("/a/X.wav");
    for (int i = 0; i < 5; ++i) EXPECT_EQ(OpenErrorOf("/a/X.wav"), static_cast<u32>(EACCES));
    EXPECT_EQ(Platform::CreateWriteFile("/a/X.wav", error), nullptr);
    EXPECT_EQ(error, static_cast<u32>(EACCES));
    EXPECT_FALSE(Platform::MoveFileTo("/a/X.wav", "/a/y"));
    sim.Files().FailOpens("/a/new", ENOSPC);
    EXPECT_FALSE(Platform::CreateFolder("/a/new", error));
    EXPECT_EQ(error, static_cast<u32>(ENOSPC));
    sim.Files().ClearFaults();
    EXPECT_NE(OpenReadFile("/a/X.wav", error), nullptr);
}

TEST(FilesTest, OpensAndReadsTakeTheTimeTheyAreTold) {
    Simulation sim;
    sim.Files().AddFile("/a", "0123");
    sim.Files().DelayOpens("/a", 300);
    sim.Files().DelayAllReads(20);
    sim.Run([&] {
        SystemError error = 0;
        const auto file = OpenReadFile("/a", error);
        EXPECT_EQ(sim.Elapsed(), 300'000'000u);
        EXPECT_EQ(ReadAt(*file, 0, 2), "01");
        EXPECT_EQ(sim.Elapsed(), 320'000'000u);
        sim.Files().DelayReads("/a", 0);
        EXPECT_EQ(ReadAt(*file, 2, 2), "23");
        EXPECT_EQ(sim.Elapsed(), 320'000'000u);
    });
}

TEST(FilesTest, AHungReadWaitsUntilTheDiskComesBack) {
    Simulation sim;
    sim.Files().AddFile("/a", "0123");
    sim.Files().HangReads("/a", true);
    sim.Run([&] {
        Thread repair("repair", [&] {
            Platform::SleepMilliseconds(5000);
            sim.Files().HangReads("/a", false);
        });
        SystemError error = 0;
        const auto file = OpenReadFile("/a", error);
        EXPECT_EQ(ReadAt(*file, 0, 4), "0123");
        EXPECT_EQ(sim.Elapsed(), 5'000'000'000u);
        repair.Join();
    });
}

TEST(FilesTest, AReadGivesWhatLiesInFrontOfABadByte) {
    Simulation sim;
    sim.Files().AddFile("/a", "0123456789");
    sim.Files().FailReads("/a", EIO, 4, 5);
    SystemError error = 0;
    const auto file = OpenReadFile("/a", error);
    EXPECT_EQ(ReadAt(*file, 0, 4), "0123");
    EXPECT_EQ(ReadAt(*file, 0, 5), "0123");
    EXPECT_EQ(ReadAt(*file, 5, 3), "");
    EXPECT_EQ(ReadAt(*file, 6, 3), "678");
    sim.Files().FailReads("/a", 0);
    EXPECT_EQ(ReadAt(*file, 0, 10), "0123456789");
}

TEST(FilesTest, ThePositionOfAReplacedFileInItsFolderStays) {
    Simulation sim;
    for (const char* name : {"/p/a", "/p/b", "/p/c"}) sim.Files().AddFile(name, name);
    sim.Files().Replace("/p/B", "new");
    EXPECT_EQ(sim.Files().List("/p"), (std::vector<std::string>{"a", "b", "c"}));
    sim.Files().Rename("/p/a", "/p/d");
    EXPECT_EQ(sim.Files().List("/p"), (std::vector<std::string>{"b", "c", "d"}));
    EXPECT_EQ(sim.Files().ReadBack("/p/d"), "/p/a");
    EXPECT_EQ(sim.Files().ReadBack("/p/b"), "new");
}

TEST(FilesTest, ControlOperationsOnWhatIsNotThereThrow) {
    Simulation sim;
    sim.Files().AddFile("/a", "");
    EXPECT_THROW(sim.Files().ReadBack("/none"), std::invalid_argument);
    EXPECT_THROW(sim.Files().Remove("/none"), std::invalid_argument);
    EXPECT_THROW(sim.Files().Truncate("/none", 1), std::invalid_argument);
    EXPECT_THROW(sim.Files().Replace("/none", ""), std::invalid_argument);
    EXPECT_THROW(sim.Files().Rename("/none", "/x"), std::invalid_argument);
    EXPECT_THROW(sim.Files().List("/a"), std::invalid_argument);
    EXPECT_THROW(sim.Files().ReadBack("/tmp"), std::invalid_argument);
    EXPECT_THROW(sim.Files().AddFile("/a/b", ""), std::invalid_argument);
    EXPECT_THROW(sim.Files().AddSpecial("/a", FileKind::Fifo), std::invalid_argument);
    EXPECT_THROW(sim.Files().SetWorkingDirectory("/a"), std::invalid_argument);
}

TEST(FilesTest, AFileOutlivesItsWorld) {
    std::unique_ptr<Platform::IWriteFile> file;
    {
        Simulation sim;
        SystemError error = 0;
        file = Platform::CreateWriteFile("/tmp/x", error);
    }
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->Write("x", 1));
    EXPECT_EQ(file->Position(), 1u);
    EXPECT_FALSE(Platform::PathExists("/tmp/x"));
}

TEST(FilesTest, WithoutASimulationFilesLiveInTheWorldOfTheProcess) {
    Platform::Sim::ResetProcessWorld();
    Platform::Sim::Files().AddFile("/a", "of the process");
    {
        Simulation sim;
        EXPECT_FALSE(Platform::PathExists("/a"));
        sim.Files().AddFile("/b", "of the simulation");
    }
    EXPECT_FALSE(Platform::PathExists("/b"));
    SystemError error = 0;
    const auto file = OpenReadFile("/a", error);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(ReadAt(*file, 0, 99), "of the process");
    Platform::Sim::Files().HangReads("/a", true);
    EXPECT_THROW(ReadAt(*file, 0, 1), std::logic_error);
    Platform::Sim::ResetProcessWorld();
    EXPECT_FALSE(Platform::PathExists("/a"));
}

TEST(FilesTest, ALockedFileIsLockedUntilItsHolderIsGone) {
    Simulation sim;
    SystemError error = 99;
    auto lock = Platform::TryLockFile("/tmp/db.lock", error);
    EXPECT_NE(lock, nullptr);
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(Platform::TryLockFile("/tmp/db.lock", error), nullptr);
    EXPECT_EQ(error, Platform::FileLockedError());
    lock.reset();
    EXPECT_NE(Platform::TryLockFile("/tmp/db.lock", error), nullptr);
    EXPECT_EQ(sim.Files().ReadBack("/tmp/db.lock"), "");
}

TEST(FilesTest, AWholeFileIsReadUpToItsLimit) {
    Simulation sim;
    sim.Files().AddFile("/a", "12345");
    std::string text;
    SystemError error = 99;
    EXPECT_TRUE(Platform::ReadWholeFile("/a", 5, text, error));
    EXPECT_EQ(text, "12345");
    EXPECT_FALSE(Platform::ReadWholeFile("/a", 4, text, error));
    EXPECT_EQ(error, Platform::FileTooLargeError());
    EXPECT_FALSE(Platform::ReadWholeFile("/none", 4, text, error));
    EXPECT_EQ(error, static_cast<u32>(ENOENT));
    EXPECT_TRUE(Platform::MakePrivateFile("/tmp/private", error));
    EXPECT_TRUE(Platform::MakePrivateFile("/a", error));
    EXPECT_EQ(sim.Files().ReadBack("/a"), "12345");
    EXPECT_FALSE(Platform::MakePrivateFile("/tmp", error));
    EXPECT_EQ(error, static_cast<u32>(EISDIR));
}

TEST(FilesTest, AHookGetsWhatWritesTookInTheirOrder) {
    Simulation sim;
    std::vector<std::string> told;
    sim.Files().SetWriteHook(
        [&](const std::string& name, std::string_view bytes) { told.push_back(name + " " + std::string(bytes)); });
    SystemError error = 0;
    const auto file = Platform::CreateWriteFile("/tmp/a.log", error);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->Write("one", 3));
    sim.Files().SetFreeSpace(2);
    EXPECT_FALSE(file->Write("two", 3));
    sim.Files().SetWriteHook(nullptr);
    EXPECT_FALSE(file->Write("three", 5));
    EXPECT_EQ(told, (std::vector<std::string>{"a.log one", "a.log tw"}));
}

TEST(FilesTest, WhatIsTakenBackIsRoomAgain) {
    Simulation sim;
    SystemError error = 0;
    const auto file = Platform::CreateWriteFile("/tmp/a.log", error);
    ASSERT_NE(file, nullptr);
    sim.Files().SetFreeSpace(5);
    EXPECT_TRUE(file->Write("one", 3));
    EXPECT_FALSE(file->Write("two", 3));
    file->TakeBack(3);
    EXPECT_EQ(sim.Files().ReadBack("/tmp/a.log"), "one");
    EXPECT_TRUE(file->Write("2!", 2));
    EXPECT_EQ(sim.Files().ReadBack("/tmp/a.log"), "one2!");
}

}  // namespace
