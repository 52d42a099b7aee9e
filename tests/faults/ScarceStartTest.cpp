// Goal: a service that is started where threads or descriptors are scarce ends with a message, or runs with what it
// has and tries again; it obeys a stop in every case, and never breaks off. Method: starts under one limit after
// another, from none to enough.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/e2e/Exchange.h"
#include "tests/support/Effort.h"

namespace OrvTest {
namespace {

namespace fs = std::filesystem;

class ScarceStart : public ::testing::Test {
protected:
    ScarceStart() {
        exchange_.StartConfig();
        exchange_.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
        exchange_.AddPiece("Playlist/music/a.wav", 10.0, 5.0);
        exchange_.Must({"feed", "add", "one", "--type", "sorted", "--folder", "music"});
        exchange_.WriteSettings();
        fs::permissions(exchange_.Folder().Path(), fs::perms::others_exec, fs::perm_options::add);
        fs::create_directory(exchange_.PipeFolder());
    }

    // A user who has no other process: threads are counted per user.
    static std::string UserOfItsOwn() { return std::to_string(61000 + ::getpid() % 4000); }
    static std::vector<std::string> AsUser(const std::string& user, const std::vector<std::string>& command) {
        std::vector<std::string> whole{
            "/usr/bin/setpriv", "--reuid=" + user, "--regid=" + user, "--clear-groups", "--pdeathsig", "KILL", "--"};
        whole.insert(whole.end(), command.begin(), command.end());
        return whole;
    }
    std::vector<std::string> Service() const {
        return {exchange_.Program("orv-audio-feed"), "-c", exchange_.SettingsFile()};
    }
    // Empties the folder of the logs and gives it and that of the pipes to a user, unless it is the usual one.
    void MakeFolders(const std::string& user = "") const {
        const std::string logs = exchange_.Folder() / "d/Data/Logs";
        fs::remove_all(logs);
        fs::create_directory(logs);
        for (const std::string& folder : {logs, exchange_.PipeFolder()}) {
            exchange_.Own(folder);
            if (user.empty()) continue;
            ASSERT_EQ(OrvTest::Run({"/usr/bin/env", "chown", user, folder}).exitCode, 0);
        }
    }
    bool Logged(const std::string& part) const { return !exchange_.LogTexts(part).empty(); }

    // One start, until it is clear what becomes of it, and its stop.
    void StartAndStop(const std::vector<std::string>& command) {
        ProcessOptions options;
        options.command = command;
        options.errorFile = exchange_.Folder() / "scarce.err";
        fs::remove(options.errorFile);
        Process process(options);
        EXPECT_TRUE(Eventually(
            [&] {
                return !process.Running() || Logged("Can't connect to Configuration service on ") ||
                       Logged("]:Started") || Logged("]:Cannot start thread");
            },
            30000));
        const int code = process.Stop(20000);
        const std::string said = ReadFileText(options.errorFile);
        EXPECT_TRUE(code == 0 || code == 253) << "code " << code << ", signal " << process.EndSignal() << "\n" << said;
        EXPECT_TRUE(fs::is_empty(exchange_.PipeFolder())) << "a socket is left";
        if (code == 253) {
            ++ended_;
            EXPECT_TRUE(said.ends_with(" temporarily unavailable\n") || said.ends_with("Too many open files\n") ||
                        said.ends_with("Cannot start thread for the events of the Configuration service\n"))
                << said;
        }
        unconnected_ += Logged("Can't connect to Configuration service on ") ? 1 : 0;
        playing_ += Logged("Channel music as one[1]:Started") ? 1 : 0;
    }

    Exchange exchange_;
    int ended_ = 0;
    int unconnected_ = 0;
    int playing_ = 0;
};

TEST_F(ScarceStart, WithFewThreadsEndsOrTriesAgainAndObeysAStop) {
    if (::geteuid() != 0) GTEST_SKIP() << "threads are counted per user, and only root can be another one";
    const std::string user = UserOfItsOwn();
    for (int threads = 1; threads <= 24; threads += Effort(3, 1)) {
        SCOPED_TRACE(threads);
        MakeFolders(user);
        const std::string limit = "--nproc=" + std::to_string(threads) + ":" + std::to_string(threads);
        std::vector<std::string> command{"/usr/bin/prlimit", limit};
        for (const std::string& part : AsUser(user, Service())) command.push_back(part);
        StartAndStop(command);
    }
    EXPECT_GE(ended_, 1);
    EXPECT_GE(unconnected_, 1);
    EXPECT_GE(playing_, 1);
}

TEST_F(ScarceStart, WithFewDescriptorsEndsOrTriesAgainAndObeysAStop) {
    for (int descriptors = 4; descriptors <= 24; descriptors += Effort(2, 1)) {
        SCOPED_TRACE(descriptors);
        MakeFolders();
        const std::string limit = "--nofile=" + std::to_string(descriptors) + ":" + std::to_string(descriptors);
        std::vector<std::string> command{"/usr/bin/prlimit", limit};
        for (const std::string& part : Service()) command.push_back(part);
        StartAndStop(exchange_.Unprivileged(command));
    }
    EXPECT_GE(unconnected_, 1);
    EXPECT_GE(playing_, 1);
}

}  // namespace
}  // namespace OrvTest
