// Goal: a stop ends everything in order and leaves nothing behind, in the foreground and under a service manager.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>

#include "tests/e2e/Exchange.h"

namespace fs = std::filesystem;

namespace OrvTest {
namespace {

// The service manager's end of the notify protocol.
class NotifySocket {
public:
    explicit NotifySocket(const Exchange& exchange) : path_(exchange.Folder() / "notify") {
        socket_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::copy(path_.begin(), path_.end(), address.sun_path);
        if (::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error("cannot bind the notify socket");
        }
        exchange.Own(path_);
    }
    ~NotifySocket() { ::close(socket_); }

    const std::string& Path() const { return path_; }

    // The next message; empty when none comes in time.
    std::string Next(int milliseconds = 10000) {
        pollfd wanted{socket_, POLLIN, 0};
        if (::poll(&wanted, 1, milliseconds) <= 0) return "";
        char buffer[4096];
        const ssize_t count = ::recv(socket_, buffer, sizeof buffer, 0);
        return count > 0 ? std::string(buffer, static_cast<std::size_t>(count)) : "";
    }
    // Messages until one holds `text`, that one last.
    std::vector<std::string> Until(const std::string& text) {
        std::vector<std::string> all;
        do {
            all.push_back(Next());
        } while (!all.back().empty() && all.back().find(text) == std::string::npos);
        return all;
    }

private:
    std::string path_;
    int socket_ = -1;
};

class Stop : public ::testing::Test {
protected:
    Stop() {
        exchange_.StartConfig();
        exchange_.AddPiece("Playlist/music/a.wav", 10.0, 20.0);
        exchange_.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music"});
        exchange_.Must({"feed", "add", "idle", "--type", "default"});
    }

    void ExpectNothingIsLeft() {
        EXPECT_TRUE(fs::is_empty(exchange_.PipeFolder())) << "a socket is left";
        std::size_t active = 0;
        std::size_t archived = 0;
        for (const auto& entry : fs::recursive_directory_iterator(exchange_.Folder() / "d/Data/Logs")) {
            if (!entry.is_regular_file()) continue;
            const fs::path day = entry.path().parent_path();
            const bool inBackup = day.parent_path().filename() == "Backup" && day.filename().string().size() == 8 &&
                                  day.filename().string().find_first_not_of("0123456789") == std::string::npos;
            ++(inBackup ? archived : active);
        }
        EXPECT_EQ(active, 0u);
        EXPECT_EQ(archived, 1u) << "the log of the run lies in the folder of its day";
        // The pumps ended, each channel in its order, before the process did.
        EXPECT_EQ(exchange_.LogTexts("]:closed").size(), 2u);
        EXPECT_EQ(exchange_.LogTexts("]:Destroyed").size(), 2u);
        EXPECT_EQ(exchange_.LogTexts("Shutdown service").size(), 1u);
    }

    Exchange exchange_;
};

TEST_F(Stop, ByAStopSignalInTheForegroundEndsCleanly) {
    for (const int signal : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(signal);
        fs::remove_all(exchange_.Folder() / "d/Data/Logs");
        exchange_.StartFeeder();
        const Client client(exchange_, "music");
        ASSERT_TRUE(client.WaitForBlocks(4));
        exchange_.Feeder().Signal(signal);
        ASSERT_TRUE(exchange_.Feeder().WaitFor(15000));
        EXPECT_EQ(exchange_.Feeder().ExitCode(), 0);
        EXPECT_TRUE(client.WaitForEnd());
        ExpectNothingIsLeft();
    }
}

TEST_F(Stop, UnderAServiceManagerTellsItsStatesInTheirOrder) {
    NotifySocket manager(exchange_);
    exchange_.StartFeeder(true, {{"NOTIFY_SOCKET", manager.Path()}});
    const auto starting = manager.Until("READY=1");
    ASSERT_EQ(starting.size(), 2u);
    EXPECT_TRUE(starting[0].starts_with("STATUS=")) << starting[0];
    const Client client(exchange_, "music");
    ASSERT_TRUE(client.WaitForBlocks(4));
    exchange_.Feeder().Signal(SIGTERM);
    ASSERT_TRUE(exchange_.Feeder().WaitFor(15000));
    EXPECT_EQ(exchange_.Feeder().ExitCode(), 0);
    EXPECT_TRUE(client.WaitForEnd());
    const auto stopping = manager.Until("STATUS=Stopped");
    // Once by the control itself, once when the shutdown begins.
    ASSERT_EQ(stopping.size(), 3u);
    EXPECT_NE(stopping[0].find("STOPPING=1"), std::string::npos);
    EXPECT_NE(stopping[1].find("STOPPING=1"), std::string::npos);
    EXPECT_NE(stopping[2].find("STATUS=Stopped"), std::string::npos);
    ExpectNothingIsLeft();
}

TEST_F(Stop, DuringTheWaitForTheConfigurationServiceEndsTheWaitAtOnce) {
    exchange_.WriteSettings();
    exchange_.Config().Kill();
    exchange_.StartFeeder(false);
    ASSERT_TRUE(exchange_.WaitForLog("Can't connect to Configuration service on 127.0.0.1:"));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(exchange_.Feeder().Stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_EQ(exchange_.LogTexts("Shutdown service").size(), 1u);
}

TEST_F(Stop, AMissingSettingsFileEndsTheServiceWithoutAWordOfItsOwn) {
    ProcessOptions options;
    options.command =
        exchange_.Unprivileged({exchange_.Program("orv-audio-feed"), "-c", exchange_.Folder() / "missing.ini"});
    options.errorFile = exchange_.Folder() / "silent.err";
    Process process(options);
    ASSERT_TRUE(process.WaitFor(10000));
    EXPECT_EQ(process.ExitCode(), 0);
    const std::string said = ReadFileText(options.errorFile);
    EXPECT_NE(said.find("Instance configuration file: " + (exchange_.Folder() / "missing.ini") + "\n"),
              std::string::npos);
    EXPECT_NE(said.find("Starting without forking\n"), std::string::npos);
    EXPECT_NE(said.find("config=" + (exchange_.Folder() / "missing.ini") + "\n"), std::string::npos);
}

TEST_F(Stop, TheUsageIsPrintedAloneAndBothStartModesTogetherAreRefused) {
    const std::string program = exchange_.Program("orv-audio-feed");
    for (const char* option : {"-h", "--help"}) {
        const RunResult help = OrvTest::Run({program, option});
        EXPECT_EQ(help.exitCode, 0);
        EXPECT_EQ(help.output, "Usage: OrvMediaServer [[-d|--daemon -p pidfile] [-c|--config common_settings_file]\n");
        EXPECT_EQ(help.error, "");
    }
    const RunResult both = OrvTest::Run({program, "-d", "-n"});
    EXPECT_EQ(both.exitCode, 256 - 3);
    EXPECT_NE(both.error.find("Both daemon & notify are set. They are mutually exclusive!\n"), std::string::npos);
}

// Goal: what is loaded into the process finds the base of shared objects by name. Method: the program's dynamic
// symbols.
TEST(Program, ExportsTheNamesOfTheReferenceCountedBase) {
    const RunResult symbols =
        OrvTest::Run({"/usr/bin/env", "nm", "-D", "-C", "--defined-only", ORV_BIN_FOLDER "/orv-audio-feed"});
    ASSERT_EQ(symbols.exitCode, 0) << symbols.error;
    const std::string base = " MTObjects::MTReferencedTypeBase::";
    for (const char* member : {"RefCounter::RefCounter()", "MTReferencedTypeBase()", "~MTReferencedTypeBase()",
                               "AddRef()", "Release()", "IsValid()", "IsValid() const"}) {
        EXPECT_NE(symbols.output.find(base + member + "\n"), std::string::npos) << member;
    }
    EXPECT_NE(symbols.output.find(" vtable for MTObjects::MTReferencedTypeBase\n"), std::string::npos);
}

}  // namespace
}  // namespace OrvTest
