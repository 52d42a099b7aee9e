#include "Platform/Command.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "Platform/Clock.h"
#include "Platform/linux/DescriptorStream.h"
#include "tests/support/Process.h"

namespace Platform {
namespace {

using OrvTest::Eventually;
using Outcome = IInputStream::Outcome;

std::unique_ptr<IRunningCommand> Start(const std::string& line) {
    SystemError error = 99;
    auto command = StartCommand(line, error);
    EXPECT_EQ(error, 0u);
    EXPECT_NE(command, nullptr);
    return command;
}

std::string ReadToEnd(IInputStream& stream) {
    std::string all;
    char bytes[1000];
    u64 taken = 0;
    SystemError error = 0;
    while (stream.Read(bytes, sizeof bytes, 10000, taken, error) == Outcome::Data) all.append(bytes, taken);
    EXPECT_EQ(error, 0u);
    return all;
}

CommandEnd EndOf(IRunningCommand& command) {
    CommandEnd end{-2, -2};
    EXPECT_TRUE(Eventually([&] { return command.Ended(end); }));
    return end;
}

// A pipe of which the test holds both ends.
struct Ends {
    Ends() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        reading = ends[0];
        writing = Descriptor(ends[1]);
    }
    ~Ends() { ::close(reading); }
    int reading;
    Descriptor writing;
};

TEST(DescriptorStreamTest, BytesTheTimeOutAndTheEndAreToldApart) {
    Ends ends;
    DescriptorStream stream(ends.reading);
    char bytes[10];
    u64 taken = 99;
    SystemError error = 99;
    EXPECT_EQ(stream.Read(bytes, sizeof bytes, 0, taken, error), Outcome::TimedOut);
    EXPECT_EQ(taken, 0u);
    EXPECT_EQ(error, 0u);
    const u64 began = SteadyMilliseconds();
    EXPECT_EQ(stream.Read(bytes, sizeof bytes, 50, taken, error), Outcome::TimedOut);
    EXPECT_GE(SteadyMilliseconds() - began, 50u);

    ASSERT_EQ(::write(ends.writing.Get(), "abc", 3), 3);
    ends.writing.Close();
    EXPECT_EQ(stream.Read(bytes, 2, 0, taken, error), Outcome::Data);
    EXPECT_EQ(std::string(bytes, taken), "ab");
    EXPECT_EQ(stream.Read(bytes, sizeof bytes, 0, taken, error), Outcome::Data) << "what stands behind the hang-up";
    EXPECT_EQ(std::string(bytes, taken), "c");
    EXPECT_EQ(stream.Read(bytes, sizeof bytes, 0, taken, error), Outcome::End);
    EXPECT_EQ(error, 0u);
}

TEST(DescriptorStreamTest, AReadThatFailsIsAnEndWithItsError) {
    const Descriptor folder(::open("/", O_RDONLY | O_CLOEXEC));
    DescriptorStream stream(folder.Get());
    char byte = 0;
    u64 taken = 0;
    SystemError error = 0;
    EXPECT_EQ(stream.Read(&byte, 1, 0, taken, error), Outcome::End);
    EXPECT_EQ(error, static_cast<SystemError>(EISDIR));
}

TEST(DescriptorStreamTest, ADescriptorThatDoesNotBlockIsWaitedForAllTheSame) {
    Ends ends;
    ASSERT_EQ(::fcntl(ends.reading, F_SETFL, O_NONBLOCK), 0);
    DescriptorStream stream(ends.reading);
    char byte = 0;
    u64 taken = 0;
    SystemError error = 0;
    EXPECT_EQ(stream.Read(&byte, 1, 20, taken, error), Outcome::TimedOut);
}

TEST(CommandTest, ItsOutputIsReadAndItsExitCodeTold) {
    const auto command = Start("printf 'one two'; exit 7");
    EXPECT_EQ(ReadToEnd(command->Output()), "one two");
    const CommandEnd end = EndOf(*command);
    EXPECT_EQ(end.exitCode, 7);
    EXPECT_EQ(end.signal, 0);
}

TEST(CommandTest, ASignalThatEndedItIsTold) {
    const auto command = Start("kill -9 $$");
    const CommandEnd end = EndOf(*command);
    EXPECT_EQ(end.exitCode, -1);
    EXPECT_EQ(end.signal, SIGKILL);
}

TEST(CommandTest, OneThatTheShellDoesNotFindEndsWith127) {
    EXPECT_EQ(EndOf(*Start("exec 2>/dev/null; no-such-command-anywhere")).exitCode, 127);
}

TEST(CommandTest, ItsStandardInputIsEmpty) {
    EXPECT_EQ(ReadToEnd(Start("cat; echo end")->Output()), "end\n");
}

TEST(CommandTest, ItBlocksNoSignalAndDiesOfABrokenPipeWhateverThisProcessDoes) {
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &before);
    const auto handler = std::signal(SIGPIPE, SIG_IGN);
    const auto command = Start("grep SigBlk /proc/self/status; kill -PIPE $$; echo survived");
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    std::signal(SIGPIPE, handler);
    EXPECT_EQ(ReadToEnd(command->Output()), "SigBlk:\t0000000000000000\n");
    EXPECT_EQ(EndOf(*command).signal, SIGPIPE);
}

TEST(CommandTest, DestroyingItEndsItAndWhatItHasStarted) {
    auto command = Start("sleep 1000 & echo $!; echo $$; exec sleep 1000");
    std::string text;
    char bytes[100];
    u64 taken = 0;
    SystemError error = 0;
    while (std::count(text.begin(), text.end(), '\n') < 2) {
        ASSERT_EQ(command->Output().Read(bytes, sizeof bytes, 10000, taken, error), Outcome::Data);
        text.append(bytes, taken);
    }
    CommandEnd end{};
    EXPECT_FALSE(command->Ended(end));
    const u64 began = SteadyMilliseconds();
    command.reset();
    EXPECT_LT(SteadyMilliseconds() - began, 1500u);
    std::istringstream lines(text);
    for (pid_t pid = 0; lines >> pid;) {
        EXPECT_TRUE(Eventually([&] {
            const std::string state = OrvTest::ReadFileText("/proc/" + std::to_string(pid) + "/stat");
            return state.empty() || state.find(") Z") != std::string::npos;
        })) << pid;
    }
}

TEST(CommandTest, AProgramGetsItsArgumentsAsTheyStand) {
    SystemError error = 99;
    const auto program = StartProgram("/usr/bin/printf", {"%s|", "a b", "$HOME;'", ""}, error);
    ASSERT_NE(program, nullptr);
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(ReadToEnd(program->Output()), "a b|$HOME;'||");
    EXPECT_EQ(EndOf(*program).exitCode, 0);
    EXPECT_EQ(StartProgram("/nowhere/at/all", {}, error), nullptr);
    EXPECT_EQ(error, static_cast<SystemError>(ENOENT));
}

TEST(CommandTest, TheFolderOfTheProgramIsTold) {
    EXPECT_TRUE(std::filesystem::exists(ProgramFolder() + "/platform_linux_commands")) << ProgramFolder();
}

TEST(CommandTest, OneThatDoesNotListenIsEndedAfterTwoSeconds) {
    auto command = Start("trap '' TERM; echo ready; while :; do sleep 0.1; done");
    char byte = 0;
    u64 taken = 0;
    SystemError error = 0;
    ASSERT_EQ(command->Output().Read(&byte, 1, 10000, taken, error), Outcome::Data);
    const u64 began = SteadyMilliseconds();
    command.reset();
    const u64 took = SteadyMilliseconds() - began;
    EXPECT_GE(took, 1900u);
    EXPECT_LT(took, 4000u);
}

}  // namespace
}  // namespace Platform
