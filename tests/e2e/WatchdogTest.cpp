// Goal: the real service gives its sign of life to a real manager; a client that does not read changes nothing in that,
// and feeds none of which goes on end it. Method: a notify socket of the test's own and a short watchdog time; a thread
// of the service is stopped as a debugger does it.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "tests/e2e/Exchange.h"

namespace OrvTest {
namespace {

class Manager {
public:
    explicit Manager(const std::string& path) : path_(path), socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ::chmod(path.c_str(), 0777);
    }
    ~Manager() { ::close(socket_); }
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    const std::string& Path() const { return path_; }
    // How often `text` is heard before the time is over.
    int Count(const std::string& text, int milliseconds) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        int count = 0;
        for (;;) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            if (left.count() <= 0) return count;
            count += Next(static_cast<int>(left.count())).find(text) != std::string::npos ? 1 : 0;
        }
    }
    bool WaitFor(const std::string& text, int milliseconds = 20000) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        while (std::chrono::steady_clock::now() < end) {
            if (Next(100).find(text) != std::string::npos) return true;
        }
        return false;
    }

private:
    std::string Next(int milliseconds) {
        pollfd wanted{socket_, POLLIN, 0};
        if (::poll(&wanted, 1, milliseconds) <= 0) return "";
        char buffer[4096];
        const ssize_t count = ::recv(socket_, buffer, sizeof buffer, 0);
        return count > 0 ? std::string(buffer, static_cast<std::size_t>(count)) : "";
    }

    const std::string path_;
    const int socket_;
};

// Stands still while this lives; the other threads of its process go on.
class StoppedThread {
public:
    StoppedThread(pid_t process, const std::string& name) {
        EXPECT_TRUE(Eventually([&] { return Find(process, name); })) << "there is no thread " << name;
        if (thread_ == 0 || ::ptrace(PTRACE_SEIZE, thread_, nullptr, nullptr) != 0) return;
        ::ptrace(PTRACE_INTERRUPT, thread_, nullptr, nullptr);
        stands_ = ::waitpid(thread_, nullptr, __WALL) == thread_;
    }
    ~StoppedThread() {
        if (stands_) ::ptrace(PTRACE_DETACH, thread_, nullptr, nullptr);
    }
    StoppedThread(const StoppedThread&) = delete;
    StoppedThread& operator=(const StoppedThread&) = delete;

    bool Stands() const { return stands_; }

private:
    bool Find(pid_t process, const std::string& name) {
        for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
            if (ReadFileText(task.path().string() + "/comm") != name + "\n") continue;
            thread_ = std::stoi(task.path().filename().string());
            return true;
        }
        return false;
    }

    pid_t thread_ = 0;
    bool stands_ = false;
};

class Watchdog : public ::testing::Test {
protected:
    void Start(std::vector<std::pair<std::string, std::string>> environment) {
        exchange_.StartConfig();
        exchange_.AddPiece("Playlist/music/a.wav", 10.0, 20.0);
        exchange_.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music"});
        environment.emplace_back("NOTIFY_SOCKET", manager_.Path());
        exchange_.StartFeeder(true, std::move(environment));
    }

    Exchange exchange_;
    Manager manager_{exchange_.Folder() / "notify"};
};

TEST_F(Watchdog, IsPingedAlsoWhileAClientDoesNotReadWhichIsTold) {
    Start({{"WATCHDOG_USEC", "2000000"}});
    Client silent(exchange_, "music");
    silent.Pause(true);
    ASSERT_TRUE(manager_.WaitFor("STATUS=Running; a client of these feeds does not read: music"));
    // Each half second; the machine may be busy.
    EXPECT_GE(manager_.Count("WATCHDOG=1", 3000), 3);
    silent.Pause(false);
    EXPECT_TRUE(manager_.WaitFor("STATUS=Running"));
    EXPECT_EQ(exchange_.Feeder().Stop(), 0);
}

TEST_F(Watchdog, IsNotPingedWhileNoFeedGoesOn) {
    Start({{"WATCHDOG_USEC", "2000000"}});
    ASSERT_TRUE(manager_.WaitFor("WATCHDOG=1"));
    {
        const StoppedThread pump(exchange_.Feeder().Pid(), "pump:music");
        if (!pump.Stands()) GTEST_SKIP() << "no thread of another process can be stopped here (ptrace)";
        ASSERT_TRUE(manager_.WaitFor("STATUS=Running; stuck: no feed goes on", 40000));
        EXPECT_EQ(manager_.Count("WATCHDOG=1", 2000), 0);
    }
    EXPECT_TRUE(manager_.WaitFor("STATUS=Running"));
    EXPECT_TRUE(manager_.WaitFor("WATCHDOG=1"));
    EXPECT_EQ(exchange_.Feeder().Stop(), 0);
}

TEST_F(Watchdog, IsNotPingedWhenNobodyWatches) {
    Start({{"WATCHDOG_USEC", ""}});
    EXPECT_EQ(manager_.Count("WATCHDOG=1", 1500), 0);
    EXPECT_EQ(exchange_.Feeder().Stop(), 0);
}

TEST_F(Watchdog, OfAnotherProcessIsNotPinged) {
    Start({{"WATCHDOG_USEC", "400000"}, {"WATCHDOG_PID", "1"}});
    EXPECT_EQ(manager_.Count("WATCHDOG=1", 1500), 0);
    EXPECT_EQ(exchange_.Feeder().Stop(), 0);
}

}  // namespace
}  // namespace OrvTest
