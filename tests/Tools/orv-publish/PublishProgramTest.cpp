// orv-publish as a real process, on real pipes and files.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include "Platform/NamedPipe.h"
#include "tests/Tools/orv-publish/SoundBytes.h"
#include "tests/support/OtherUser.h"
#include "tests/support/Process.h"

namespace OrvTest {
namespace {

using Clock = std::chrono::steady_clock;
using PublishTest::Same;
using PublishTest::Sound;

class PublishProgram : public ::testing::Test {
protected:
    PublishProgram() { Platform::SetPipeFolder(folder_ / "p"); }

    ProcessOptions Command(std::vector<std::string> more) const {
        ProcessOptions options;
        options.command = {ORV_PUBLISH, "radio", "--pipe-folder", folder_ / "p"};
        options.command.insert(options.command.end(), more.begin(), more.end());
        options.errorFile = folder_ / "err";
        return options;
    }
    std::string Said() const { return ReadFileText(folder_ / "err"); }
    std::string WriteInput(const std::string& bytes) const {
        WriteFileText(folder_ / "in", bytes);
        return folder_ / "in";
    }

    // Connects within ten seconds.
    std::unique_ptr<Platform::IPipeClient> Connect(const std::string& name = "radio") const {
        std::unique_ptr<Platform::IPipeClient> client;
        Platform::SystemError error = 0;
        EXPECT_TRUE(Eventually([&] {
            client = Platform::ConnectPipe(name, error);
            return client != nullptr;
        })) << Platform::SystemErrorText(error)
            << Said();
        return client;
    }
    // Reads that many bytes, or to the end.
    static std::string Read(Platform::IPipeClient& client, std::size_t most = 10'000'000) {
        std::string heard;
        char bytes[4096];
        u64 taken = 0;
        Platform::SystemError error = 0;
        while (heard.size() < most && client.Read(bytes, std::min<u64>(sizeof bytes, most - heard.size()), 10000, taken,
                                                  error) == Platform::IPipeClient::Outcome::Data) {
            heard.append(bytes, taken);
        }
        return heard;
    }
    // Runs it to its end with a command line that is refused.
    RunResult Refused(std::vector<std::string> more) const {
        std::vector<std::string> command{ORV_PUBLISH, "radio", "--pipe-folder", folder_ / "p"};
        command.insert(command.end(), more.begin(), more.end());
        return OrvTest::Run(command);
    }

    TempFolder folder_;
};

TEST_F(PublishProgram, StandardInputGoesOutInRealTimeAndItsEndIsTheClientsEnd) {
    ProcessOptions options = Command({"--wait"});
    options.inputFile = WriteInput(Sound(32000));
    Process process(options);
    const auto client = Connect();
    const auto began = Clock::now();
    EXPECT_TRUE(Same(Read(*client), Sound(32000)));
    Platform::SystemError error = 0;
    EXPECT_EQ(Platform::ConnectPipe("radio", error), nullptr) << "who sees the end does not find the name again";
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - began).count();
    EXPECT_GE(took, 1650) << "two seconds of sound, a quarter of a second of it at once";
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(process.ExitCode(), 0);
    EXPECT_EQ(Said(), "orv-publish: on the air as \\\\.\\pipe\\radio (" + (folder_ / "p/radio") +
                          ")\norv-publish: standard input has ended after 2.000 s of sound.\n");
}

TEST_F(PublishProgram, AProgramsOutputIsPipedThrough) {
    ProcessOptions options = Command({"--wait", "--no-pace"});
    options.inputFile = WriteInput(Sound(32000));
    // The way a person does it: a converter in front.
    options.command = {"/bin/sh", "-c",
                       "ffmpeg -v error -f s16le -ar 8000 -ac 1 -i - -f s16le -ar 8000 -ac 1 - | exec '" ORV_PUBLISH
                       "' radio --wait --pipe-folder '" +
                           (folder_ / "p") + "'"};
    Process process(options);
    EXPECT_TRUE(Same(Read(*Connect()), Sound(32000)));
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(process.ExitCode(), 0) << Said();
}

TEST_F(PublishProgram, AWavFileGoesRoundAndRoundUntilItIsStopped) {
    WriteFileText(folder_ / "in", Sound(4000));
    ASSERT_EQ(OrvTest::Run({"/usr/bin/sox", "-t", "raw", "-r", "8000", "-e", "signed", "-b", "16", "-c", "1",
                            folder_ / "in", folder_ / "a.wav"})
                  .exitCode,
              0);
    Process process(Command({"--wav", folder_ / "a.wav", "--loop", "--wait"}));
    const auto client = Connect();
    const std::string once = Sound(4000);
    EXPECT_TRUE(Same(Read(*client, 12000), once + once + once));
    process.Signal(SIGTERM);
    Read(*client);
    Platform::SystemError error = 0;
    EXPECT_EQ(Platform::ConnectPipe("radio", error), nullptr) << "who sees the end does not find the name again";
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(process.ExitCode(), 0);
    struct stat info;
    EXPECT_NE(::stat((folder_ / "p/radio").c_str(), &info), 0) << "the name is gone";
}

TEST_F(PublishProgram, TheCommandThatARefusalNamesMakesAFileThatPlays) {
    ASSERT_EQ(OrvTest::Run({"/usr/bin/sox", "-n", "-r", "44100", "-c", "2", "-b", "16", folder_ / "it's.wav", "synth",
                            "0.5", "sine", "440"})
                  .exitCode,
              0);
    const RunResult refused = Refused({"--wav", folder_ / "it's.wav"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.error.find("is 44100 Hz, 2 channels, 16-bit PCM"), std::string::npos) << refused.error;
    const auto at = refused.error.find("  ffmpeg ");
    ASSERT_NE(at, std::string::npos);
    const RunResult converted =
        OrvTest::Run({"/bin/sh", "-c", "cd '" + folder_.Path() + "' && " + refused.error.substr(at)});
    ASSERT_EQ(converted.exitCode, 0) << converted.error;

    Process process(Command({"--wav", folder_ / "it's-8000.wav", "--wait"}));
    EXPECT_NEAR(static_cast<double>(Read(*Connect()).size()), 8000.0, 200.0);
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(process.ExitCode(), 0) << Said();
}

TEST_F(PublishProgram, ACommandsOutputPlaysAndItsEndIsSaid) {
    const std::string file = WriteInput(Sound(8000));
    Process process(Command({"--wait", "--command", "cat '" + file + "'; exit 3"}));
    EXPECT_TRUE(Same(Read(*Connect()), Sound(8000)));
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(process.ExitCode(), 4);
    EXPECT_NE(Said().find("orv-publish: the command ended with exit code 3 after 0.500 s of sound.\n"),
              std::string::npos)
        << Said();
}

TEST_F(PublishProgram, ARestartedCommandGoesOnOnTheSameConnection) {
    const std::string file = WriteInput(Sound(2000));
    Process process(Command({"--wait", "--restart", "--command", "cat '" + file + "'"}));
    const auto client = Connect();
    EXPECT_TRUE(Same(Read(*client, 4000), Sound(2000) + Sound(2000)));
    EXPECT_NE(Said().find("it is started again in 1 s."), std::string::npos) << Said();
    process.Signal(SIGINT);
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(process.ExitCode(), 0);
}

TEST_F(PublishProgram, AStopEndsTheCommandAndAllThatItHasStarted) {
    const std::string pids = folder_ / "pids";
    Process process(Command(
        {"--command", "sh -c 'echo $$ >>" + pids + "; exec sleep 1000' & echo $$ >>" + pids + "; exec sleep 1000"}));
    ASSERT_TRUE(Eventually([&] {
        const std::string text = ReadFileText(pids);
        return std::count(text.begin(), text.end(), '\n') == 2;
    })) << Said();
    process.Signal(SIGTERM);
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(process.ExitCode(), 0);
    std::istringstream lines(ReadFileText(pids));
    for (pid_t pid = 0; lines >> pid;) {
        EXPECT_TRUE(Eventually([&] {
            const std::string state = ReadFileText("/proc/" + std::to_string(pid) + "/stat");
            return state.empty() || state.find(") Z") != std::string::npos;
        })) << pid;
    }
}

TEST_F(PublishProgram, AClientThatTakesNothingDelaysNobody) {
    ProcessOptions options = Command({"--wait"});
    options.inputFile = WriteInput(Sound(48000));
    Process process(options);
    const auto stuck = Connect();
    const auto began = Clock::now();
    const std::string heard = Read(*Connect());
    EXPECT_LE(Clock::now() - began, std::chrono::milliseconds(3500));
    // The second client may come a moment after the stream has begun.
    ASSERT_GE(heard.size(), 40000u);
    EXPECT_TRUE(Sound(48000).ends_with(heard));
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(process.ExitCode(), 0);
    EXPECT_NE(Said().find("clients that do not take their sound in time have lost "), std::string::npos) << Said();
}

TEST_F(PublishProgram, ANameThatIsServedAlreadyIsRefusedWithWhatToDo) {
    const auto endpoint = Platform::CreatePipeEndpoint("radio");
    Platform::SystemError error = 0;
    const auto instance = endpoint->CreateInstance(error);
    ASSERT_NE(instance, nullptr);
    const RunResult result = Refused({});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_NE(result.error.find("another program serves it already (" + (folder_ / "p/radio") + ")"), std::string::npos)
        << result.error;
}

TEST_F(PublishProgram, OtherThingsInThePipesPlaceAreRefusedWithWhatToDo) {
    std::filesystem::create_directories(folder_ / "p/radio");
    const RunResult inTheWay = Refused({});
    EXPECT_EQ(inTheWay.exitCode, 3);
    EXPECT_NE(inTheWay.error.find("something that is no pipe stands at"), std::string::npos) << inTheWay.error;

    WriteFileText(folder_ / "file", "");
    const RunResult noFolder = OrvTest::Run({ORV_PUBLISH, "radio", "--pipe-folder", folder_ / "file/p"});
    EXPECT_EQ(noFolder.exitCode, 3);
    EXPECT_NE(noFolder.error.find("is missing and cannot be made"), std::string::npos) << noFolder.error;

    const RunResult tooLong = OrvTest::Run({ORV_PUBLISH, std::string(100, 'r'), "--pipe-folder", folder_ / "p"});
    EXPECT_EQ(tooLong.exitCode, 3);
    EXPECT_NE(tooLong.error.find("at most 107 bytes"), std::string::npos) << tooLong.error;
}

TEST_F(PublishProgram, AFolderThatOthersOwnIsRefusedWithWhatToDo) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to become somebody else";
    std::filesystem::create_directories(folder_ / "p");
    std::filesystem::permissions(folder_.Path(), std::filesystem::perms(0755));
    std::filesystem::copy_file(ORV_PUBLISH, folder_ / "orv-publish");
    const RunResult result =
        OrvTest::Run(AsUser(Nobody, {folder_ / "orv-publish", "radio", "--pipe-folder", folder_ / "p"}));
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_NE(result.error.find("you may not make pipes in the folder"), std::string::npos) << result.error;
}

TEST_F(PublishProgram, TheServicesSettingsFileNamesTheFolderOfThePipes) {
    WriteFileText(folder_ / "service.ini", "[General]\nPipePath=\"" + (folder_ / "p") + "\"\n");
    ProcessOptions options;
    options.command = {ORV_PUBLISH, "radio", "-c", folder_ / "service.ini", "--wait"};
    options.inputFile = WriteInput(Sound(2000));
    options.errorFile = folder_ / "err";
    Process process(options);
    EXPECT_TRUE(Same(Read(*Connect()), Sound(2000)));
    ASSERT_TRUE(process.WaitFor(10000));

    const RunResult missing = OrvTest::Run({ORV_PUBLISH, "radio", "-c", folder_ / "none.ini", "--command", "true"});
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_EQ(missing.error, "orv-publish: the settings file " + (folder_ / "none.ini") +
                                 " cannot be opened; check its name and its rights\n");
}

TEST_F(PublishProgram, ABadCommandLineIsRefused) {
    const RunResult none = OrvTest::Run({ORV_PUBLISH});
    EXPECT_EQ(none.exitCode, 2);
    EXPECT_NE(none.error.find("name is required"), std::string::npos) << none.error;
    EXPECT_EQ(Refused({"--loop"}).exitCode, 2) << "of what?";
    EXPECT_EQ(Refused({"--restart"}).exitCode, 2);
    EXPECT_EQ(Refused({"--wav", "a.wav", "--command", "true"}).exitCode, 2);
    EXPECT_EQ(Refused({"--wav", "a.wav", "--no-pace"}).exitCode, 2);
    EXPECT_EQ(Refused({"--nonsense"}).exitCode, 2);
    EXPECT_EQ(Refused({"-c", "a.ini"}).exitCode, 2) << "one folder or the other";
    EXPECT_EQ(OrvTest::Run({ORV_PUBLISH, "\\\\.\\pipe\\"}).exitCode, 2);
}

TEST_F(PublishProgram, ItTellsItsVersionAndItsExitCodes) {
    const RunResult version = OrvTest::Run({ORV_PUBLISH, "--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.output.rfind("orv-publish ", 0), 0u);
    const RunResult help = OrvTest::Run({ORV_PUBLISH, "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.output.find("Exit codes: 0 the source has ended"), std::string::npos) << help.output;
}

}  // namespace
}  // namespace OrvTest
