// Reading a small file of any kind to its end. Method: real pipes, whose writers take their time, or never come.
#include "Platform/PrivateFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "tests/support/Process.h"

namespace Platform {
namespace {

using OrvTest::TempFolder;
using std::chrono::steady_clock;

constexpr u64 kLimit = 1000;

struct Outcome {
    bool good = false;
    std::string text;
    SystemError error = 0;
};

Outcome Read(const std::string& path) {
    Outcome outcome;
    outcome.good = ReadWholeFile(path, kLimit, outcome.text, outcome.error);
    return outcome;
}

// The name under which a shell hands a command's output over.
std::string DescriptorPath(int descriptor) {
    return "/dev/fd/" + std::to_string(descriptor);
}

TEST(ReadWholeFile, APlainFileIsReadUpToTheLimitAndNoFurther) {
    const TempFolder folder;
    OrvTest::WriteFileText(folder / "most", std::string(kLimit, 'x'));
    OrvTest::WriteFileText(folder / "more", std::string(kLimit + 1, 'x'));
    OrvTest::WriteFileText(folder / "none", "");
    EXPECT_EQ(Read(folder / "most").text, std::string(kLimit, 'x'));
    EXPECT_TRUE(Read(folder / "none").good);
    const Outcome more = Read(folder / "more");
    EXPECT_FALSE(more.good);
    EXPECT_EQ(more.error, FileTooLargeError());
    EXPECT_EQ(Read("/dev/zero").error, FileTooLargeError()) << "nor is what has no end";
}

TEST(ReadWholeFile, WhatIsNoFileIsToldAtOnce) {
    const TempFolder folder;
    EXPECT_EQ(Read(folder / "none").error, static_cast<SystemError>(ENOENT));
    EXPECT_EQ(Read(folder.Path()).error, static_cast<SystemError>(EISDIR));
}

TEST(ReadWholeFile, ThePipeOfACommandIsReadToItsEnd) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    std::thread writer([&] {
        for (const char* piece : {"one ", "two ", "three"}) {
            EXPECT_GT(::write(ends[1], piece, std::string(piece).size()), 0);
            std::this_thread::yield();
        }
        ::close(ends[1]);
    });
    EXPECT_EQ(Read(DescriptorPath(ends[0])).text, "one two three");
    writer.join();
    // A command that said nothing and has ended: nothing, at once.
    const auto begin = steady_clock::now();
    const Outcome nothing = Read(DescriptorPath(ends[0]));
    EXPECT_TRUE(nothing.good);
    EXPECT_EQ(nothing.text, "");
    EXPECT_LT(steady_clock::now() - begin, std::chrono::milliseconds(WaitForWriterMilliseconds));
    ::close(ends[0]);
}

// A FIFO given as a password's file was waited for without end. Its writer may still come, or be slow: somebody may
// have to type a password for it.
TEST(ReadWholeFile, AFifoIsGivenUpWhenNobodyOpensItAndWaitedForWhenItsWriterIsSilent) {
    const TempFolder folder;
    for (const char* name : {"silent", "none"}) ASSERT_EQ(::mkfifo((folder / name).c_str(), 0600), 0);
    Outcome silent;
    std::thread reader([&] { silent = Read(folder / "silent"); });
    const int writer = ::open((folder / "silent").c_str(), O_WRONLY | O_CLOEXEC);  // returns when it is read
    ASSERT_GE(writer, 0);

    const auto begin = steady_clock::now();
    const Outcome none = Read(folder / "none");
    EXPECT_GE(steady_clock::now() - begin, std::chrono::milliseconds(WaitForWriterMilliseconds));
    EXPECT_FALSE(none.good);
    EXPECT_EQ(none.error, NoWriterError());
    EXPECT_EQ(ReadErrorText(none.error), "it is a pipe, and nobody has opened it for writing within 5 s");

    // As long as that has the other one been waited for.
    EXPECT_EQ(::write(writer, "late", 4), 4);
    ::close(writer);
    reader.join();
    EXPECT_TRUE(silent.good) << ReadErrorText(silent.error);
    EXPECT_EQ(silent.text, "late");
}

}  // namespace
}  // namespace Platform
