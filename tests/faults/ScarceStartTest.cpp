// Goal: a service that is started where threads or descriptors are scarce ends with a message, or runs with what it
// has and tries again; it obeys a stop in every case, and never breaks off. The Configuration service says what to do.
// Method: starts under one limit after another, from none to enough; what became of each is printed.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "tests/e2e/Exchange.h"
#include "tests/support/Effort.h"
#include "tests/support/OtherUser.h"

namespace OrvTest {
namespace {

namespace fs = std::filesystem;

// A user who has no other process: threads are counted per user.
uid_t UserOfItsOwn() {
    return static_cast<uid_t>(61000 + ::getpid() % 4000);
}

void ChangeOwner(const std::string& path, uid_t user) {
    EXPECT_EQ(::chown(path.c_str(), user, static_cast<gid_t>(-1)), 0);
}

// `limit` is an option of prlimit, "nproc" for threads.
std::vector<std::string> Limited(const std::string& limit, int value, const std::vector<std::string>& command) {
    const std::string number = std::to_string(value);
    std::vector<std::string> whole{"/usr/bin/prlimit", "--" + limit + "=" + number + ":" + number};
    whole.insert(whole.end(), command.begin(), command.end());
    return whole;
}

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

    std::vector<std::string> Service() const {
        return {exchange_.Program("orv-audio-feed"), "-c", exchange_.SettingsFile()};
    }
    // Empties the folder of the logs and gives it and that of the pipes to a user, unless it is the usual one.
    void MakeFolders(uid_t user = Nobody) const {
        const std::string logs = exchange_.Folder() / "d/Data/Logs";
        fs::remove_all(logs);
        fs::create_directory(logs);
        for (const std::string& folder : {logs, exchange_.PipeFolder()}) {
            exchange_.Own(folder);
            if (user != Nobody) ChangeOwner(folder, user);
        }
    }
    bool Logged(const std::string& part) const { return !exchange_.LogTexts(part).empty(); }

    // One start, until it is clear what becomes of it, and its stop.
    void StartAndStop(const std::string& limit, int value, const std::vector<std::string>& command) {
        SCOPED_TRACE(limit + " " + std::to_string(value));
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
        const bool ended = !process.Running();
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
        const bool unconnected = Logged("Can't connect to Configuration service on ");
        const bool playing = Logged("Channel music as one[1]:Started");
        unconnected_ += unconnected ? 1 : 0;
        playing_ += playing ? 1 : 0;
        std::printf("%s %d: %s\n", limit.c_str(), value,
                    playing       ? "plays"
                    : unconnected ? "tries to connect"
                    : ended       ? ("ends with " + std::to_string(code)).c_str()
                                  : "has no thread for its feed");
    }

    Exchange exchange_;
    int ended_ = 0;
    int unconnected_ = 0;
    int playing_ = 0;
};

TEST_F(ScarceStart, WithFewThreadsEndsOrTriesAgainAndObeysAStop) {
    if (::geteuid() != 0) GTEST_SKIP() << "threads are counted per user, and only root can be another one";
    const uid_t user = UserOfItsOwn();
    for (int threads = 1; threads <= 24; threads += Effort(3, 1)) {
        MakeFolders(user);
        StartAndStop("nproc", threads, Limited("nproc", threads, AsUser(user, Service())));
    }
    EXPECT_GE(ended_, 1);
    EXPECT_GE(unconnected_, 1);
    EXPECT_GE(playing_, 1);
}

TEST_F(ScarceStart, WithFewDescriptorsEndsOrTriesAgainAndObeysAStop) {
    for (int descriptors = 4; descriptors <= 24; descriptors += Effort(2, 1)) {
        MakeFolders();
        StartAndStop("nofile", descriptors, exchange_.Unprivileged(Limited("nofile", descriptors, Service())));
    }
    EXPECT_GE(unconnected_, 1);
    EXPECT_GE(playing_, 1);
}

class ScarceConfigStart : public ::testing::Test {
protected:
    ScarceConfigStart() {
        fs::permissions(exchange_.Folder().Path(), fs::perms::others_exec, fs::perm_options::add);
        fs::create_directory(folder_);
        if (::geteuid() == 0) ChangeOwner(folder_, user_);
    }

    // One start, until it is clear what becomes of it, and its stop. It serves and obeys, or says what to do.
    void StartAndStop(const std::string& limit, int value, const std::string& advice) {
        SCOPED_TRACE(limit + " " + std::to_string(value));
        ProcessOptions options;
        options.command = Limited(
            limit, value, AsUser(user_, {exchange_.Program("orv-config"), "--database", folder_ + "/config.db"}));
        options.outputFile = exchange_.Folder() / "scarce.out";
        options.errorFile = exchange_.Folder() / "scarce.err";
        for (const std::string& file : {options.outputFile, options.errorFile}) fs::remove(file);
        Process process(options);
        const auto serves = [&] { return ReadFileText(options.outputFile).find("listening on") != std::string::npos; };
        EXPECT_TRUE(Eventually([&] { return serves() || !process.Running(); }, 30000));
        const int code = process.Stop(20000);
        const std::string said = ReadFileText(options.errorFile);
        EXPECT_EQ(code, serves() ? 0 : 1) << "signal " << process.EndSignal() << "\n" << said;
        EXPECT_TRUE(serves() || said.ends_with("orv-config cannot start: " + advice + "\n")) << said;
        ++(serves() ? served_ : refused_);
        std::printf("orv-config, %s %d: %s\n", limit.c_str(), value, serves() ? "serves" : "says what to do");
    }

    Exchange exchange_;
    const std::string folder_ = exchange_.Folder() / "own";
    const uid_t user_ = UserOfItsOwn();
    int served_ = 0;
    int refused_ = 0;
};

// With some threads too few it said to stop what uses the port; with a few more it never ended, since gRPC waits
// without end for a thread that it could not start.
TEST_F(ScarceConfigStart, WithFewThreadsServesOrSaysWhatToDo) {
    if (::geteuid() != 0) GTEST_SKIP() << "threads are counted per user, and only root can be another one";
    for (int threads = 1; threads <= 105; threads += threads < 55 ? 18 : Effort(3, 1)) {
        StartAndStop("nproc", threads,
                     "too few threads are allowed (Resource temporarily unavailable); raise TasksMax= of its unit, or "
                     "ulimit -u of who starts it, or end what else this user runs");
    }
    EXPECT_GE(served_, 1);
    EXPECT_GE(refused_, 1);
}

// gRPC ended the process where a descriptor was missing. With fewer than these not even the database can be opened,
// which is told.
TEST_F(ScarceConfigStart, WithFewDescriptorsServesOrSaysWhatToDo) {
    if (::geteuid() != 0) GTEST_SKIP() << "the folder is given to another user";
    for (int descriptors = 13; descriptors <= 32; descriptors += Effort(2, 1)) {
        StartAndStop("nofile", descriptors,
                     "too few open files are allowed (Too many open files); raise LimitNOFILE= of its unit, or "
                     "ulimit -n of who starts it");
    }
    EXPECT_GE(served_, 1);
    EXPECT_GE(refused_, 1);
}

}  // namespace
}  // namespace OrvTest
