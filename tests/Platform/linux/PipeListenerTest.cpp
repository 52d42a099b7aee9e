// How a pipe name is taken, kept and given up in the file system.
#include "Platform/linux/PipeListener.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <string>
#include <vector>

#include "Platform/NamedPipe.h"
#include "Platform/Thread.h"
#include "tests/support/Process.h"
#include "tests/support/SpareFiles.h"

namespace Platform {
namespace {

using OrvTest::ReadFileText;
using OrvTest::SpareFiles;
using OrvTest::TempFolder;
using OrvTest::WriteFileText;

constexpr SystemError kNoError = 0;

class PipeListenerTest : public testing::Test {
protected:
    PipeListenerTest() { SetPipeFolder(folder_.Path()); }

    // The system error of taking a name, 0 when it can be taken.
    static SystemError TryBind(const std::string& name) {
        SystemError error = 0;
        const auto listener = PipeListener::Bind(name, error);
        EXPECT_EQ(listener == nullptr, error != 0);
        return error;
    }
    static mode_t ModeOf(const std::string& path) {
        struct stat info {};
        EXPECT_EQ(::lstat(path.c_str(), &info), 0) << path;
        return info.st_mode & 07777;
    }
    static bool Exists(const std::string& path) {
        struct stat info {};
        return ::lstat(path.c_str(), &info) == 0;
    }
    // A bound socket of somebody else; closing it without removing its file makes it stale.
    static int BindForeign(const std::string& name, bool listening) {
        PipeAddress address;
        SystemError error = 0;
        EXPECT_TRUE(PipeAddress::Make(name, address, error));
        const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(::bind(socket, address.Get(), sizeof address.address), 0);
        EXPECT_EQ(listening ? ::listen(socket, 5) : 0, 0);
        return socket;
    }

    TempFolder folder_;
};

TEST_F(PipeListenerTest, TheNameIsTheLowerCasedFile) {
    SystemError error = 1;
    const auto listener = PipeListener::Bind("Hold Music \xC3\x84\xFF", error);
    ASSERT_NE(listener, nullptr);
    EXPECT_EQ(error, kNoError);
    EXPECT_TRUE(Exists(folder_ / "hold music \xC3\x84\xFF"));
}

TEST_F(PipeListenerTest, WhatCannotStandInAFileNameIsPercentEncoded) {
    EXPECT_EQ(PipeFileName("A/b"), "a%2fb");
    EXPECT_EQ(PipeFileName("..\\x"), "%2e.%5cx");
    EXPECT_EQ(PipeFileName("50%"), "50%25");
    EXPECT_EQ(PipeFileName("a.b"), "a.b");
    EXPECT_EQ(PipeFileName(std::string("a\0\n\x7F", 4)), "a%00%0a%7f");
    EXPECT_EQ(PipeFileName("\xC3\x84"), "\xC3\x84");
}

TEST_F(PipeListenerTest, NoNameLeavesTheFolder) {
    ASSERT_EQ(::mkdir((folder_ / "inner").c_str(), 0700), 0);
    SetPipeFolder(folder_ / "inner");
    for (const char* name : {"../a", "..", ".", "/a", "../../a", "\\a", "..\\a"}) {
        EXPECT_EQ(TryBind(name), kNoError) << name;
        SystemError error = 0;
        const auto listener = PipeListener::Bind(name, error);
        EXPECT_TRUE(Exists(folder_ / ("inner/" + PipeFileName(name)))) << name;
    }
    EXPECT_FALSE(Exists(folder_ / "a"));
}

TEST_F(PipeListenerTest, ASocketIsOpenToItsGroupWhateverTheProcessTakesAway) {
    for (const mode_t mask : {0077, 0022, 0000}) {
        const mode_t before = ::umask(mask);
        SystemError error = 0;
        const auto listener = PipeListener::Bind("feed", error);
        ::umask(before);
        ASSERT_NE(listener, nullptr);
        EXPECT_EQ(ModeOf(folder_ / "feed"), 0660u) << "umask " << mask;
    }
}

TEST_F(PipeListenerTest, AMissingFolderIsMadeForItsGroupAndStickily) {
    const mode_t before = ::umask(0077);
    SetPipeFolder(folder_ / "run/pipe/");
    EXPECT_EQ(TryBind("feed"), kNoError);
    ::umask(before);
    EXPECT_EQ(ModeOf(folder_ / "run/pipe"), 03770u);
}

TEST_F(PipeListenerTest, AFolderThatIsThereKeepsItsMode) {
    ASSERT_EQ(::mkdir((folder_ / "pipe").c_str(), 0700), 0);
    SetPipeFolder(folder_ / "pipe");
    EXPECT_EQ(TryBind("feed"), kNoError);
    EXPECT_EQ(ModeOf(folder_ / "pipe"), 0700u);
}

// Method: a child forbids itself to set the bit, as a service manager can.
TEST_F(PipeListenerTest, ARefusedSetgidBitIsLeftOut) {
    SetPipeFolder(folder_ / "pipe");
    const auto bindWithoutSetgid = [] {
        sock_filter rules[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_fchmod, 0, 3),
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[1])),
            BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, S_ISGID, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        const sock_fprog program{sizeof rules / sizeof rules[0], rules};
        if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) ::_exit(2);
        if (::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) ::_exit(3);
        SystemError error = 0;
        ::_exit(PipeListener::Bind("feed", error) ? 0 : 1);
    };
    EXPECT_EXIT(bindWithoutSetgid(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(ModeOf(folder_ / "pipe"), 01770u);
}

// Method: a child that is not root, which may do everything.
TEST_F(PipeListenerTest, AFolderThatMayNotBeWrittenIsAFailure) {
    ASSERT_EQ(::chmod(folder_.Path().c_str(), 0555), 0);
    const auto bindAsNobody = [] {
        if (::getuid() == 0 && ::setuid(65534) != 0) ::_exit(2);
        SystemError error = 0;
        const auto listener = PipeListener::Bind("feed", error);
        ::_exit(listener == nullptr && error == EACCES ? 0 : 1);
    };
    EXPECT_EXIT(bindAsNobody(), testing::ExitedWithCode(0), "");
    ASSERT_EQ(::chmod(folder_.Path().c_str(), 0700), 0);
}

TEST_F(PipeListenerTest, AStaleSocketIsReplaced) {
    ::close(BindForeign("feed", true));
    ASSERT_TRUE(Exists(folder_ / "feed"));
    SystemError error = 0;
    const auto listener = PipeListener::Bind("feed", error);
    ASSERT_NE(listener, nullptr);
    EXPECT_NE(ConnectPipe("feed", error), nullptr);
}

TEST_F(PipeListenerTest, ALiveSocketIsNotReplacedAndNotDisturbed) {
    for (const bool listening : {false, true}) {
        const int server = BindForeign("feed", listening);
        EXPECT_EQ(TryBind("FEED"), static_cast<SystemError>(EADDRINUSE));
        pollfd incoming{server, POLLIN, 0};
        EXPECT_EQ(::poll(&incoming, 1, 0) > 0 && (incoming.revents & POLLIN) != 0, false) << "a client was seen";
        EXPECT_TRUE(Exists(folder_ / "feed"));
        ::close(server);
        ASSERT_EQ(::unlink((folder_ / "feed").c_str()), 0);
    }
}

TEST_F(PipeListenerTest, AFileALinkOrAFolderInItsPlaceIsNotReplaced) {
    WriteFileText(folder_ / "file", "kept");
    ::close(BindForeign("stale", true));
    ASSERT_EQ(::symlink("stale", (folder_ / "link").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", (folder_ / "dangling").c_str()), 0);
    ASSERT_EQ(::mkdir((folder_ / "folder").c_str(), 0700), 0);
    for (const char* name : {"file", "link", "dangling", "folder"}) {
        EXPECT_EQ(TryBind(name), static_cast<SystemError>(EEXIST)) << name;
        EXPECT_TRUE(Exists(folder_ / name)) << name;
    }
    EXPECT_EQ(ReadFileText(folder_ / "file"), "kept");
    EXPECT_FALSE(Exists(folder_ / "nowhere"));
}

TEST_F(PipeListenerTest, OfTwoNamesThatMeetTheLaterFails) {
    SystemError error = 0;
    auto first = CreatePipeEndpoint("Feed");
    const auto instance = first->CreateInstance(error);
    ASSERT_NE(instance, nullptr);
    const auto second = CreatePipeEndpoint("fEED");
    EXPECT_EQ(second->CreateInstance(error), nullptr);
    EXPECT_EQ(error, static_cast<SystemError>(EADDRINUSE));
    EXPECT_TRUE(Exists(folder_ / "feed"));
    first.reset();
    EXPECT_NE(second->CreateInstance(error), nullptr);
}

TEST_F(PipeListenerTest, ANameThatDoesNotFitIsAFailure) {
    const size_t room = 107 - folder_.Path().size() - 1;
    EXPECT_EQ(TryBind(std::string(room, 'x')), kNoError);
    EXPECT_EQ(TryBind(std::string(room + 1, 'x')), static_cast<SystemError>(ENAMETOOLONG));
    EXPECT_EQ(TryBind(std::string(5000, 'x')), static_cast<SystemError>(ENAMETOOLONG));
    EXPECT_EQ(TryBind(""), static_cast<SystemError>(EINVAL));
}

TEST_F(PipeListenerTest, AFolderThatIsNoFolderIsAFailure) {
    WriteFileText(folder_ / "file", "kept");
    SetPipeFolder(folder_ / "file");
    EXPECT_EQ(TryBind("feed"), static_cast<SystemError>(ENOTDIR));
    EXPECT_EQ(ReadFileText(folder_ / "file"), "kept");
}

TEST_F(PipeListenerTest, TheFileGoesWithItsListener) {
    EXPECT_EQ(TryBind("feed"), kNoError);
    EXPECT_FALSE(Exists(folder_ / "feed"));
}

TEST_F(PipeListenerTest, OnlyTheFileThatWasBoundIsRemoved) {
    SystemError error = 0;
    auto listener = PipeListener::Bind("feed", error);
    ASSERT_NE(listener, nullptr);
    ASSERT_EQ(::unlink((folder_ / "feed").c_str()), 0);
    const int other = BindForeign("feed", true);
    listener.reset();
    EXPECT_TRUE(Exists(folder_ / "feed"));
    ::close(other);
}

// Taking a name needs three descriptors at once. With two the socket was bound, its file could not be looked at, and it
// stayed behind for ever when its feed was removed before there was a third.
TEST_F(PipeListenerTest, WithoutADescriptorANameIsNotTakenAndNothingIsLeftBehind) {
    for (unsigned spare = 0; spare < 3; ++spare) {
        {
            const SpareFiles few(spare);
            EXPECT_EQ(TryBind("feed"), static_cast<SystemError>(EMFILE)) << spare;
        }
        EXPECT_FALSE(Exists(folder_ / "feed")) << spare;
    }
    EXPECT_EQ(TryBind("feed"), kNoError);
}

TEST_F(PipeListenerTest, WhileAnotherProcessTakesANameTheStepIsRefused) {
    const int folder = ::open(folder_.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(::flock(folder, LOCK_EX), 0);
    EXPECT_EQ(TryBind("feed"), static_cast<SystemError>(EAGAIN));
    EXPECT_FALSE(Exists(folder_ / "feed"));
    ::close(folder);
    EXPECT_EQ(TryBind("feed"), kNoError);
}

TEST_F(PipeListenerTest, TheLockIsNotKept) {
    SystemError error = 0;
    const auto listener = PipeListener::Bind("feed", error);
    ASSERT_NE(listener, nullptr);
    const int folder = ::open(folder_.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    EXPECT_EQ(::flock(folder, LOCK_EX | LOCK_NB), 0);
    ::close(folder);
}

// Goal: a stale file is replaced by one only. Method: in each round six threads want the same name at one moment and
// keep what they got until all have tried.
TEST_F(PipeListenerTest, OfManyThatWantOneNameExactlyOneGetsIt) {
    constexpr int kThreads = 6;
    for (int round = 0; round < 30; ++round) {
        ::close(BindForeign("feed", true));
        std::atomic<int> winners{0};
        std::atomic<int> tried{0};
        std::vector<Thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back("wants", [&] {
                SystemError error = 0;
                const auto listener = PipeListener::Bind("feed", error);
                if (listener) winners.fetch_add(1, std::memory_order_relaxed);
                tried.fetch_add(1, std::memory_order_release);
                while (tried.load(std::memory_order_acquire) < kThreads) SleepMilliseconds(1);
            });
        }
        for (Thread& thread : threads) thread.Join();
        EXPECT_EQ(winners.load(std::memory_order_relaxed), 1);
        EXPECT_FALSE(Exists(folder_ / "feed"));
    }
}

}  // namespace
}  // namespace Platform
