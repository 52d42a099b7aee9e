// orv-listen as a real process on a real pipe that the test serves.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <filesystem>

#include "Platform/NamedPipe.h"
#include "tests/support/OtherUser.h"
#include "tests/support/Process.h"

namespace OrvTest {
namespace {

class ListenProgram : public ::testing::Test {
protected:
    ListenProgram() { Platform::SetPipeFolder(folder_ / "p"); }

    // Serves `name`, waits for one client and sends it the bytes.
    void Serve(const std::string& bytes) {
        if (endpoint_ == nullptr) endpoint_ = Platform::CreatePipeEndpoint("feed");
        Platform::SystemError error = 0;
        instance_ = endpoint_->CreateInstance(error);
        ASSERT_NE(instance_, nullptr) << Platform::SystemErrorText(error);
        ASSERT_TRUE(Eventually([&] { return instance_->PollConnect(error) == Platform::ConnectState::Connected; }));
        for (std::size_t sent = 0; sent < bytes.size();) {
            const i64 taken = instance_->Write(bytes.data() + sent, bytes.size() - sent);
            ASSERT_GT(taken, 0);
            sent += static_cast<std::size_t>(taken);
        }
    }

    ProcessOptions Command(std::vector<std::string> more) const {
        ProcessOptions options;
        options.command = {ORV_LISTEN, "feed", "--pipe-folder", folder_ / "p"};
        options.command.insert(options.command.end(), more.begin(), more.end());
        options.outputFile = folder_ / "out";
        options.errorFile = folder_ / "err";
        return options;
    }

    // The endpoint must be there before the listener looks for it.
    void Prepare() {
        endpoint_ = Platform::CreatePipeEndpoint("feed");
        Platform::SystemError error = 0;
        instance_ = endpoint_->CreateInstance(error);
        ASSERT_NE(instance_, nullptr) << Platform::SystemErrorText(error);
    }

    static std::string Sound(std::size_t bytes) {
        std::string sound(bytes, '\0');
        for (std::size_t i = 0; i < bytes; ++i) sound[i] = static_cast<char>(i * 31 + i / 256);
        return sound;
    }

    TempFolder folder_;
    std::unique_ptr<Platform::IPipeEndpoint> endpoint_;
    std::unique_ptr<Platform::IPipeInstance> instance_;
};

TEST_F(ListenProgram, RawSoundComesOutAsItWentIn) {
    Prepare();
    Process process(Command({}));
    const std::string sound = Sound(20000);
    Serve(sound);
    instance_.reset();
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(process.ExitCode(), 0);
    EXPECT_EQ(ReadFileText(folder_ / "out"), sound);
}

TEST_F(ListenProgram, ItEndsAfterTheSecondsAskedFor) {
    Prepare();
    Process process(Command({"--seconds", "0.5", "--wav", folder_ / "a.wav"}));
    Serve(Sound(8000));
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(process.ExitCode(), 0);
    EXPECT_EQ(ReadFileText(folder_ / "a.wav").substr(44), Sound(8000));
}

TEST_F(ListenProgram, AFeedThatEndsEarlyIsSaid) {
    Prepare();
    Process process(Command({"--seconds", "2"}));
    Serve(Sound(4000));
    instance_.reset();
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(process.ExitCode(), 4);
    EXPECT_EQ(ReadFileText(folder_ / "err"), "orv-listen: the feed 'feed' ended after 0.250 s of sound\n");
}

TEST_F(ListenProgram, AMissingFeedIsSaidWithWhatToDo) {
    std::filesystem::create_directory(folder_ / "p");
    Process process(Command({}));
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(process.ExitCode(), 3);
    const std::string said = ReadFileText(folder_ / "err");
    EXPECT_NE(said.find("nobody serves the feed 'feed': No such file or directory"), std::string::npos) << said;
    EXPECT_NE(said.find("orvctl feed list"), std::string::npos) << said;
}

TEST_F(ListenProgram, AMissingFolderIsNamed) {
    const RunResult result = OrvTest::Run({ORV_LISTEN, "feed", "--pipe-folder", folder_ / "p"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_NE(result.error.find("There is no folder " + (folder_ / "p") + ". Start the service"), std::string::npos)
        << result.error;
}

// Who did not belong to the group of the pipes was asked whether the service runs.
TEST_F(ListenProgram, WhoMayNotConnectIsToldOfTheGroup) {
    namespace fs = std::filesystem;
    Prepare();
    fs::permissions(folder_.Path(), fs::perms(0755));
    fs::permissions(folder_ / "p", fs::perms(0));
    fs::copy_file(ORV_LISTEN, folder_ / "orv-listen");
    for (const bool follows : {false, true}) {
        std::vector<std::string> command = {folder_ / "orv-listen", "feed", "--pipe-folder", folder_ / "p"};
        if (follows) command.insert(command.end(), {"--follow", "--seconds", "0.1"});
        if (::geteuid() == 0) command = AsUser(Nobody, command);
        const RunResult result = OrvTest::Run(command);
        EXPECT_EQ(result.exitCode, follows ? 0 : 3);
        EXPECT_NE(result.error.find("Permission denied"), std::string::npos) << result.error;
        EXPECT_NE(result.error.find("adduser USER orv-audio"), std::string::npos) << result.error;
        EXPECT_EQ(result.error.find("Is the service running"), std::string::npos) << result.error;
    }
    fs::permissions(folder_ / "p", fs::perms(0755));
}

TEST_F(ListenProgram, ASocketThatAKilledServiceHasLeftIsSaid) {
    const int left = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_TRUE(std::filesystem::create_directory(folder_ / "p"));
    (folder_ / "p/feed").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(left, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(left);
    const RunResult result = OrvTest::Run({ORV_LISTEN, "feed", "--pipe-folder", folder_ / "p"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_NE(result.error.find("Start the service"), std::string::npos) << result.error;
}

TEST_F(ListenProgram, TheServicesSettingsFileNamesTheFolderOfThePipes) {
    Prepare();
    WriteFileText(folder_ / "service.ini", "[General]\nPipePath=\"" + (folder_ / "p") + "\"\n");
    ProcessOptions options = Command({});
    options.command = {ORV_LISTEN, "feed", "--config", folder_ / "service.ini"};
    Process process(options);
    Serve(Sound(2000));
    instance_.reset();
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(ReadFileText(folder_ / "out"), Sound(2000));

    const RunResult missing = OrvTest::Run({ORV_LISTEN, "feed", "--config", folder_ / "none.ini"});
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_EQ(missing.error, "orv-listen: the settings file " + (folder_ / "none.ini") +
                                 " cannot be opened; check its name and its rights\n");
}

TEST_F(ListenProgram, FollowingWaitsForTheFeedAndConnectsAgainWhenItComesBack) {
    Process process(Command({"--follow"}));
    ASSERT_TRUE(WaitForText(folder_ / "err", "waiting for the feed 'feed'"));
    Serve("first ");
    ASSERT_TRUE(WaitForText(folder_ / "out", "first "));
    instance_.reset();
    endpoint_.reset();
    Serve("second");
    ASSERT_TRUE(WaitForText(folder_ / "out", "second"));
    const std::string out = ReadFileText(folder_ / "out");
    const std::size_t second = out.find("second");
    const std::string between = out.substr(out.find("first ") + 6, second - out.find("first ") - 6);
    EXPECT_EQ(between, std::string(between.size(), '\0')) << "only silence stands between";
    process.Signal(SIGTERM);
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(process.ExitCode(), 0);
}

TEST_F(ListenProgram, FollowingGivesRealTimeWithoutAFeed) {
    const auto start = std::chrono::steady_clock::now();
    Process process(Command({"--follow", "--seconds", "2", "--prefill-ms", "300", "-r", "8000", "-c", "1"}));
    ASSERT_TRUE(process.WaitFor(10000));
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(process.ExitCode(), 0);
    EXPECT_EQ(ReadFileText(folder_ / "out"), std::string(32000 + 4800, '\0'));
    EXPECT_GE(took, std::chrono::milliseconds(2000));
}

TEST_F(ListenProgram, MuLawWritesOneByteASample) {
    Prepare();
    Process process(Command({"--ulaw"}));
    Serve(std::string("\x00\x00\xE8\x03\x18\xFC\xFF\x7F", 8));  // 0, 1000, -1000, 32767
    instance_.reset();
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(process.ExitCode(), 0);
    EXPECT_EQ(ReadFileText(folder_ / "out"), "\xFF\xCE\x4E\x80");
}

TEST_F(ListenProgram, AReaderThatLeavesEndsItCleanlyEvenWhileTheFeedIsSilent) {
    for (const bool follow : {false, true}) {
        int ends[2];
        ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        Prepare();
        ProcessOptions options = Command(follow ? std::vector<std::string>{"--follow"} : std::vector<std::string>{});
        options.outputFile = "/proc/self/fd/" + std::to_string(ends[1]);
        Process process(options);
        Serve(Sound(640));
        char byte = 0;
        ASSERT_EQ(::read(ends[0], &byte, 1), 1);
        ::close(ends[1]);
        ::close(ends[0]);
        EXPECT_TRUE(process.WaitFor(5000)) << follow;
        EXPECT_EQ(process.ExitCode(), 0) << follow;
        instance_.reset();
        endpoint_.reset();
    }
    EXPECT_EQ(ReadFileText(folder_ / "err"), "");
}

TEST_F(ListenProgram, AFifoIsMadeAndServedToOneReaderAfterTheOther) {
    Process process(Command({"--follow", "--to-fifo", folder_ / "fifo"}));
    ASSERT_TRUE(Eventually([&] { return std::filesystem::is_fifo(folder_ / "fifo"); }));
    for (int reader = 0; reader < 2; ++reader) {
        const RunResult result = OrvTest::Run({"/usr/bin/head", "-c", "6400", folder_ / "fifo"});
        EXPECT_EQ(result.output, std::string(6400, '\0')) << reader;
    }
    EXPECT_EQ(process.Stop(), 0);
}

TEST_F(ListenProgram, OtherRatesAndChannelsAreRefused) {
    EXPECT_EQ(OrvTest::Run({ORV_LISTEN, "feed", "-r", "16000"}).exitCode, 2);
    EXPECT_EQ(OrvTest::Run({ORV_LISTEN, "feed", "-c", "2"}).exitCode, 2);
    EXPECT_EQ(OrvTest::Run({ORV_LISTEN, "feed", "--ulaw", "--wav", "x.wav"}).exitCode, 2);
}

TEST_F(ListenProgram, AnOutputThatTakesNothingNeverStallsTheFeed) {
    // The listener's standard output is a full pipe: its other end never reads.
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    Prepare();
    ProcessOptions options = Command({});
    options.outputFile = "/proc/self/fd/" + std::to_string(ends[1]);
    Process process(options);
    // Ten seconds of sound, far more than the listener's two seconds and all the sockets and pipes in between hold.
    Serve(Sound(160000));
    EXPECT_TRUE(WaitForText(folder_ / "err", "the output is too slow; dropped "));
    process.Signal(SIGTERM);
    EXPECT_TRUE(process.WaitFor(10000)) << "and a stuck output does not keep it from ending";
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(ListenProgram, TheMeterShowsLevelsWithoutATerminalAsPlainLines) {
    Prepare();
    Process process(Command({"--meter"}));
    std::string loud;
    for (int i = 0; i < 16000; ++i) loud += std::string("\x00\x40", 2);  // 16384
    Serve(loud);
    EXPECT_TRUE(WaitForText(folder_ / "err", "feed: level -6.0 dB, peak -6.0 dB, 2.000 s of sound\n"))
        << ReadFileText(folder_ / "err");
    EXPECT_EQ(ReadFileText(folder_ / "out"), loud);
}

TEST_F(ListenProgram, ABadCommandLineIsRefused) {
    const RunResult none = OrvTest::Run({ORV_LISTEN});
    EXPECT_EQ(none.exitCode, 2);
    EXPECT_NE(none.error.find("name is required"), std::string::npos) << none.error;
    EXPECT_EQ(OrvTest::Run({ORV_LISTEN, "feed", "--seconds", "x"}).exitCode, 2);
}

}  // namespace
}  // namespace OrvTest
