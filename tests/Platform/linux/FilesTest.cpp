#include "Platform/Files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tests/support/Process.h"

namespace Platform {
namespace {

using OrvTest::ReadFileText;
using OrvTest::TempFolder;
using OrvTest::WriteFileText;

class FilesTest : public testing::Test {
protected:
    SystemError ReadError(const std::string& path) {
        SystemError error = 0;
        EXPECT_EQ(OpenReadFile(path, error), nullptr);
        return error;
    }
    SystemError WriteError(const std::string& path) {
        SystemError error = 0;
        EXPECT_EQ(CreateWriteFile(path, error), nullptr);
        return error;
    }
    std::string ReadAt(IReadFile& file, u64 position, u64 count) {
        std::string text(count, '?');
        text.resize(file.ReadAt(position, text.data(), count));
        return text;
    }

    TempFolder folder_;
};

TEST_F(FilesTest, AFileIsReadAtAnyPosition) {
    WriteFileText(folder_ / "A.txt", "0123456789");
    SystemError error = 1;
    const auto file = OpenReadFile(folder_ / "a.TXT", error);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(file->Size(), 10u);
    EXPECT_EQ(ReadAt(*file, 3, 4), "3456");
    EXPECT_EQ(ReadAt(*file, 8, 10), "89");
    EXPECT_EQ(ReadAt(*file, 10, 1), "");
    EXPECT_EQ(ReadAt(*file, ~0ull - 5, 100), "");
}

TEST_F(FilesTest, AFileThatShrinksJustGivesLess) {
    WriteFileText(folder_ / "a", std::string(10000, 'x'));
    SystemError error = 0;
    const auto file = OpenReadFile(folder_ / "a", error);
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(::truncate((folder_ / "a").c_str(), 5000), 0);
    EXPECT_EQ(file->Size(), 10000u);
    EXPECT_EQ(ReadAt(*file, 0, 10000).size(), 5000u);
    ASSERT_EQ(::unlink((folder_ / "a").c_str()), 0);
    EXPECT_EQ(ReadAt(*file, 4990, 100).size(), 10u);
}

// A wait for the other end of the FIFO would be seen as the test's time limit.
TEST_F(FilesTest, WhatIsNoRegularFileIsRefusedAtOnce) {
    ASSERT_EQ(::mkdir((folder_ / "folder.wav").c_str(), 0777), 0);
    ASSERT_EQ(::mkfifo((folder_ / "fifo.wav").c_str(), 0666), 0);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, (folder_ / "socket.wav").c_str());
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::symlink("fifo.wav", (folder_ / "link.wav").c_str()), 0);

    EXPECT_EQ(ReadError(folder_ / "folder.wav"), static_cast<SystemError>(EISDIR));
    for (const std::string& path : {folder_ / "fifo.wav", folder_ / "link.wav", folder_ / "socket.wav",
                                    std::string("/dev/null"), std::string("/dev/tty")}) {
        EXPECT_EQ(ReadError(path), static_cast<SystemError>(EINVAL)) << path;
        EXPECT_EQ(WriteError(path), static_cast<SystemError>(EINVAL)) << path;
    }
    EXPECT_EQ(WriteError(folder_ / "folder.wav"), static_cast<SystemError>(EISDIR));
    ::close(socket);
}

TEST_F(FilesTest, AMissingFileGivesTheSystemsError) {
    EXPECT_EQ(ReadError(folder_ / "none"), static_cast<SystemError>(ENOENT));
    EXPECT_EQ(ReadError(""), static_cast<SystemError>(ENOENT));
    EXPECT_EQ(ReadError(folder_ / std::string(300, 'x')), static_cast<SystemError>(ENAMETOOLONG));
    EXPECT_EQ(WriteError(folder_ / "none/a"), static_cast<SystemError>(ENOENT));
}

TEST_F(FilesTest, AZeroByteDoesNotCutAName) {
    WriteFileText(folder_ / "a", "x");
    EXPECT_EQ(ReadError(folder_ / std::string("a\0b", 3)), static_cast<SystemError>(ENOENT));
    EXPECT_EQ(WriteError(folder_ / std::string("a\0b", 3)), static_cast<SystemError>(ENOENT));
    EXPECT_FALSE(PathExists(folder_ / std::string("a\0b", 3)));
    EXPECT_EQ(ReadFileText(folder_ / "a"), "x");
}

TEST_F(FilesTest, AnExistingFileIsEmptiedAndWrittenFromItsStart) {
    WriteFileText(folder_ / "a", "what was there before");
    SystemError error = 1;
    const auto file = CreateWriteFile(folder_.Path() + "\\a", error);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(file->Position(), 0u);
    EXPECT_TRUE(file->Write("one ", 4));
    EXPECT_TRUE(file->Write("two", 3));
    EXPECT_EQ(file->Position(), 7u);
    EXPECT_EQ(ReadFileText(folder_ / "a"), "one two");
}

TEST_F(FilesTest, ANewFileIsTakenByItsExactSpelling) {
    WriteFileText(folder_ / "LOG", "old");
    SystemError error = 1;
    const auto file = CreateWriteFile(folder_ / "log", error);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->Write("new", 3));
    EXPECT_EQ(ReadFileText(folder_ / "LOG"), "old");
    EXPECT_EQ(ReadFileText(folder_ / "log"), "new");
    struct stat info {};
    ASSERT_EQ(::stat((folder_ / "log").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07007, 0u) << "others have no business in it";
}

TEST_F(FilesTest, ALinkToAFileIsFollowedForWriting) {
    WriteFileText(folder_ / "target", "old");
    ASSERT_EQ(::symlink("target", (folder_ / "link").c_str()), 0);
    SystemError error = 1;
    const auto file = CreateWriteFile(folder_ / "link", error);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(file->Write("new", 3));
    EXPECT_EQ(ReadFileText(folder_ / "target"), "new");
}

// Method: a limit on the size of files stands for a full disk; the child's own exit code tells.
TEST_F(FilesTest, AWriteThatTheSystemDoesNotTakeIsToldAndCountedAndCanBeTakenBack) {
    const auto writeTooMuch = [this] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{6, 6};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        SystemError error = 0;
        const auto file = CreateWriteFile(folder_ / "a", error);
        const bool first = file->Write("1234", 4);
        const bool second = file->Write("5678", 4);
        const bool counted = file->Position() == 6;
        file->TakeBack(4);
        const bool third = file->Write("56", 2);
        ::_exit(first && !second && counted && third && ReadFileText(folder_ / "a") == "123456" ? 0 : 1);
    };
    EXPECT_EXIT(writeTooMuch(), testing::ExitedWithCode(0), "");
}

TEST_F(FilesTest, AFolderIsMadeOnceAndThenIsAlreadyThere) {
    SystemError error = 1;
    EXPECT_FALSE(PathExists(folder_ / "new"));
    EXPECT_TRUE(CreateFolder(folder_.Path() + "\\new", error));
    EXPECT_EQ(error, 0u);
    EXPECT_TRUE(PathExists(folder_ / "new"));
    EXPECT_FALSE(PathExists(folder_ / "NEW"));
    EXPECT_FALSE(CreateFolder(folder_ / "new", error));
    EXPECT_EQ(error, PathExistsError());
    EXPECT_FALSE(CreateFolder(folder_ / "none/new", error));
    EXPECT_EQ(error, static_cast<SystemError>(ENOENT));
}

TEST_F(FilesTest, AMoveNeverReplaces) {
    WriteFileText(folder_ / "a", "from a");
    WriteFileText(folder_ / "b", "from b");
    EXPECT_FALSE(MoveFileTo(folder_ / "a", folder_ / "b"));
    EXPECT_EQ(ReadFileText(folder_ / "a"), "from a");
    EXPECT_EQ(ReadFileText(folder_ / "b"), "from b");
    EXPECT_TRUE(MoveFileTo(folder_ / "a", folder_.Path() + "\\c"));
    EXPECT_EQ(ReadFileText(folder_ / "c"), "from a");
    EXPECT_FALSE(PathExists(folder_ / "a"));
    EXPECT_FALSE(MoveFileTo(folder_ / "a", folder_ / "d"));
    EXPECT_FALSE(MoveFileTo(folder_ / "c", folder_ / "none/d"));
}

}  // namespace
}  // namespace Platform
