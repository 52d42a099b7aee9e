#include "Platform/Diagnosis.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "Platform/NamedPipe.h"
#include "Platform/ProcessFigures.h"
#include "tests/support/Process.h"
#include "tests/support/SpareFiles.h"

namespace Platform {
namespace {

using OrvTest::SpareFiles;
using OrvTest::TempFolder;
using OrvTest::WriteFileText;

// Leaves a socket behind that nobody serves, as a process does that is killed.
void MakeStaleSocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(socket, 1), 0);
    ::close(socket);
}

TEST(Diagnosis, APipeIsAbsentServedStaleOrNoSocket) {
    const TempFolder folder;
    const std::string before = PipeFolder();
    SetPipeFolder(folder.Path());
    SystemError error = 0;
    EXPECT_EQ(ProbePipe("x", error), SocketState::Absent);
    MakeStaleSocket(folder / "x");
    EXPECT_EQ(ProbePipe("X", error), SocketState::Stale) << "names ignore case";
    const auto endpoint = CreatePipeEndpoint("x");
    const auto instance = endpoint->CreateInstance(error);
    ASSERT_NE(instance, nullptr) << error;
    EXPECT_EQ(ProbePipe("x", error), SocketState::Served);
    EXPECT_EQ(instance->PollConnect(error), ConnectState::Pending) << "the probe is no client";
    WriteFileText(folder / "file", "");
    EXPECT_EQ(ProbePipe("file", error), SocketState::NotASocket);
    EXPECT_EQ(ProbeSocket(folder / "file", error), SocketState::NotASocket);
    EXPECT_EQ(ProbeSocket(folder / "none/none", error), SocketState::Absent);
    EXPECT_EQ(ProbeSocket(std::string(200, 'x'), error), SocketState::Unreachable);
    EXPECT_EQ(error, static_cast<SystemError>(ENAMETOOLONG));
    SetPipeFolder(before);
}

TEST(Diagnosis, AFolderIsToldByWhatMayBeDoneInIt) {
    const TempFolder folder;
    WriteFileText(folder / "file", "");
    EXPECT_EQ(ProbeFolder(folder.Path()), FolderState::Usable);
    EXPECT_EQ(ProbeFolder(folder / "none"), FolderState::Missing);
    EXPECT_EQ(ProbeFolder(folder / "file"), FolderState::NotAFolder);
    if (::geteuid() == 0) return;  // root may do everything everywhere
    ASSERT_EQ(::chmod(folder.Path().c_str(), 0500), 0);
    EXPECT_EQ(ProbeFolder(folder.Path()), FolderState::NotWritable);
    ASSERT_EQ(::chmod(folder.Path().c_str(), 0000), 0);
    EXPECT_EQ(ProbeFolder(folder.Path()), FolderState::NotReadable);
    ::chmod(folder.Path().c_str(), 0700);
}

TEST(Diagnosis, TheSpaceOfADiskIsWhatTheSystemTells) {
    u64 total = 0;
    u64 available = 0;
    SystemError error = 0;
    ASSERT_TRUE(DiskSpace("/tmp", total, available, error));
    EXPECT_GT(total, 0u);
    EXPECT_LE(available, total);
    EXPECT_FALSE(DiskSpace("/none/none", total, available, error));
    EXPECT_EQ(error, static_cast<SystemError>(ENOENT));
}

TEST(ProcessFigures, AreThoseOfThisProcess) {
    const ProcessFigures before = ReadProcessFigures();
    EXPECT_EQ(before.id, static_cast<u64>(::getpid()));
    EXPECT_GE(before.threads, 1u);
    EXPECT_GT(before.residentBytes, 1'000'000u);
    EXPECT_GE(before.openFilesLimit, before.openFiles);
    const int descriptor = ::dup(0);
    ASSERT_GE(descriptor, 0);
    EXPECT_EQ(ReadProcessFigures().openFiles, before.openFiles + 1);
    ::close(descriptor);
}

TEST(ProcessFigures, AFileMoreIsToBeHadUpToTheLimitAndEachOneIsGivenBack) {
    const u64 open = ReadProcessFigures().openFiles;
    {
        const SpareFiles few(8);
        EXPECT_TRUE(CanOpenFiles(8));
        EXPECT_FALSE(CanOpenFiles(9));
        EXPECT_TRUE(CanOpenFiles(8));
    }
    EXPECT_EQ(ReadProcessFigures().openFiles, open);
}

// They were counted in /proc, and where that is not mounted, as in a changed root, no limit was high enough.
TEST(ProcessFiguresDeathTest, AFileMoreIsToBeHadWithoutTheSystemsOwnFiles) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root may change a process's root";
    const TempFolder empty;
    const auto inside = [&] {
        if (::chroot(empty.Path().c_str()) != 0 || ::chdir("/") != 0) ::_exit(2);
        ::_exit(ReadProcessFigures().openFiles == 0 && CanOpenFiles(8) ? 0 : 1);
    };
    EXPECT_EXIT(inside(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace Platform
