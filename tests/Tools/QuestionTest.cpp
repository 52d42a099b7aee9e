// Goal: a program that asks for a password can be stopped there, and leaves the terminal as it was. Method: the real
// programs on terminals of their own, on which is typed.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/Terminal.h"

namespace OrvTest {
namespace {

const std::string kConfig = std::string(ORV_BIN_FOLDER) + "/orv-config";
const std::string kCtl = std::string(ORV_BIN_FOLDER) + "/orvctl";

class Question : public testing::Test {
protected:
    // Starts the program and waits until it asks.
    void Ask(const std::vector<std::string>& command) {
        program_ = terminal_.Start(command);
        ASSERT_TRUE(Eventually([&] { return Count("Password for ") == 1 && !terminal_.Echoes(); }, 30000))
            << terminal_.Shown();
    }
    std::size_t Count(const std::string& text) {
        const std::string& shown = terminal_.Shown();
        std::size_t count = 0;
        for (std::size_t at = 0; (at = shown.find(text, at)) != std::string::npos; at += text.size()) ++count;
        return count;
    }
    void ExpectEnd(int signal) {
        ASSERT_TRUE(program_.WaitFor(30000));
        EXPECT_EQ(program_.EndSignal(), signal) << program_.ExitCode() << terminal_.Shown();
        EXPECT_TRUE(terminal_.Echoes()) << signal;
    }

    TempFolder folder_;
    Terminal terminal_;
    Process program_;
};

// The terminal was left without echo.
TEST_F(Question, CtrlCEndsOrvctlAndBringsTheEchoBack) {
    Ask({kCtl, "--port", "1", "--user", "x", "feed", "list"});
    terminal_.Type("half\x03");
    ExpectEnd(SIGINT);
    EXPECT_EQ(Count("half"), 0u);
}

// Only from the question on, an import keeps its stop signals for itself.
TEST_F(Question, AnImportCanBeStoppedThere) {
    Ask({kCtl, "--port", "1", "--user", "x", "import", "song.mp3", "--feed", "hold"});
    terminal_.Type("\x03");
    ExpectEnd(SIGINT);
}

TEST_F(Question, AnImportWithoutItsConverterAsksNothing) {
    std::filesystem::copy_file(kCtl, folder_ / "orvctl");
    program_ =
        terminal_.Start({folder_ / "orvctl", "--port", "1", "--user", "x", "import", "song.mp3", "--feed", "hold"});
    ASSERT_TRUE(Eventually([&] { return !program_.Running() || Count("Password for ") != 0; }, 30000));
    ASSERT_FALSE(program_.Running()) << terminal_.Shown();
    EXPECT_EQ(program_.ExitCode(), 2);
    EXPECT_EQ(Count("orv-convert is neither in"), 1u) << terminal_.Shown();
}

// It keeps its stop signals for the service, which does not run then, and could not be stopped at all.
TEST_F(Question, OrvConfigCanBeStoppedToo) {
    const std::vector<std::string> command = {kConfig,  "user",  "add",        "x",
                                              "--role", "admin", "--database", folder_ / "config.db"};
    Ask(command);
    terminal_.Type("\x03");
    ExpectEnd(SIGINT);
}

TEST_F(Question, WhoeverEndsItBringsTheEchoBack) {
    for (const int signal : {SIGTERM, SIGHUP}) {
        Terminal terminal;
        Process program =
            terminal.Start({kConfig, "user", "add", "x", "--role", "admin", "--database", folder_ / "config.db"});
        ASSERT_TRUE(Eventually([&] { return !terminal.Echoes(); }, 30000)) << terminal.Shown();
        program.Signal(signal);
        ASSERT_TRUE(program.WaitFor(30000));
        EXPECT_EQ(program.EndSignal(), signal) << terminal.Shown();
        EXPECT_TRUE(terminal.Echoes()) << signal;
    }
}

TEST_F(Question, OneThatWasSuspendedAsksAgain) {
    // A shell that goes on when the program is suspended, and fetches it back.
    Ask({"/bin/sh", "-mc", "'" + kCtl + "' --port 1 --user x feed list; stty -a; fg"});
    terminal_.Type("half\x1a");
    ASSERT_TRUE(Eventually([&] { return Count("Password for ") == 2 && !terminal_.Echoes(); }, 30000))
        << terminal_.Shown();
    EXPECT_EQ(Count(" echo "), 1u) << "between them\n" << terminal_.Shown();
    terminal_.Type("secret\n");
    ASSERT_TRUE(program_.WaitFor(30000));
    EXPECT_EQ(program_.ExitCode(), 3) << "nobody listens there";
    EXPECT_EQ(Count("Nobody answers"), 1u) << terminal_.Shown();
    EXPECT_EQ(Count("half") + Count("secret"), 0u);
    EXPECT_TRUE(terminal_.Echoes());
}

// It waited for a line that the shell had read in the meantime, and Ctrl-C did nothing.
TEST_F(Question, OneWhoseLineWentToTheShellStillObeysCtrlC) {
    const std::string go = folder_ / "go";
    ASSERT_EQ(::mkfifo(go.c_str(), 0600), 0);
    Ask({"/bin/sh", "-mc",
         "/bin/sh -c 'echo $$ >\"$1\"; exec \"$2\" --port 1 --user x feed list' - '" + folder_ / "pid' '" + kCtl +
             "'; bg; read go <'" + go + "'; read line; echo shell:$line; fg"});
    const pid_t asking = std::stoi(ReadFileText(folder_ / "pid"));
    const auto isStopped = [&] {
        return ReadFileText("/proc/" + std::to_string(asking) + "/status").find("State:\tT") != std::string::npos;
    };
    ASSERT_EQ(::kill(asking, SIGSTOP), 0);
    // In the background it may wait on, and is stopped as soon as it reads.
    ASSERT_TRUE(Eventually([&] { return Count("[1]") != 0 && !isStopped(); }, 30000)) << terminal_.Shown();
    terminal_.Type("line\n");
    ASSERT_TRUE(Eventually(isStopped, 30000)) << terminal_.Shown();
    WriteFileText(go, "\n");
    ASSERT_TRUE(Eventually([&] { return Count("shell:line") == 1 && !isStopped(); }, 30000)) << terminal_.Shown();
    terminal_.Type("\x03");
    ASSERT_TRUE(Eventually([&] { return ::kill(asking, 0) != 0; }, 30000)) << terminal_.Shown();
    EXPECT_TRUE(program_.WaitFor(30000));
    EXPECT_TRUE(terminal_.Echoes());
}

}  // namespace
}  // namespace OrvTest
