// Goal: questions are answered, and no client can keep another one from its answer. Method: real sockets; the server's
// limits are set low where a test waits for them.
#include "Platform/LocalServer.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <vector>

#include "Platform/linux/Descriptor.h"
#include "tests/support/Process.h"

namespace Platform {
namespace {

using OrvTest::Eventually;
using OrvTest::TempFolder;

constexpr SystemError kNothingYet = 0xFFFFFFFF;

Descriptor ConnectTo(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(::connect(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << path;
    return socket;
}

class LocalServerTest : public testing::Test {
protected:
    // Answers what ends in "." with the same in brackets.
    static bool Echo(const std::string& request, bool whole, std::string& answer) {
        if (!whole && (request.empty() || request.back() != '.')) return false;
        answer = "[" + request + "]";
        return true;
    }
    std::unique_ptr<LocalServer> Serve(LocalServerLimits limits = {}, LocalAnswer answer = &LocalServerTest::Echo) {
        outcome_.store(kNothingYet);
        auto server = std::make_unique<LocalServer>(
            path_, "status", std::move(answer), [this](SystemError error) { outcome_.store(error); }, limits);
        EXPECT_TRUE(Eventually([&] { return outcome_.load() != kNothingYet; }));
        return server;
    }
    std::string Ask(const std::string& request) {
        std::string answer;
        SystemError error = 0;
        return AskLocalServer(path_, request, 5000, 1 << 20, answer, error) ? answer : "error " + std::to_string(error);
    }

    TempFolder folder_;
    const std::string path_ = folder_ / "s";
    std::atomic<SystemError> outcome_{kNothingYet};
};

TEST_F(LocalServerTest, AnswersOneAfterTheOtherAndLeavesNoFile) {
    {
        const auto server = Serve();
        EXPECT_EQ(outcome_.load(), 0u);
        EXPECT_EQ(Ask("one."), "[one.]");
        EXPECT_EQ(Ask("two."), "[two.]");
        struct stat info {};
        ASSERT_EQ(::lstat(path_.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0660u);
    }
    EXPECT_NE(::access(path_.c_str(), F_OK), 0);
    EXPECT_EQ(Ask("three."), "error " + std::to_string(ENOENT));
}

TEST_F(LocalServerTest, ARequestMayComeInPieces) {
    const auto server = Serve();
    const Descriptor client = ConnectTo(path_);
    for (const char c : std::string("slow.")) {
        ASSERT_EQ(::send(client.Get(), &c, 1, 0), 1);
        ::usleep(2000);
    }
    char answer[64];
    EXPECT_EQ(std::string(answer, static_cast<std::size_t>(::recv(client.Get(), answer, sizeof answer, MSG_WAITALL))),
              "[slow.]");
}

TEST_F(LocalServerTest, ARequestThatIsTooLongIsAnsweredByWhatFits) {
    const auto server = Serve({8, 2000, 4});
    EXPECT_EQ(Ask(std::string(5000, 'x')), "[xxxxxxxx]");
}

TEST_F(LocalServerTest, ClientsThatSayNothingOrTakeNothingHoldUpNobody) {
    const auto server = Serve({4096, 60'000, 4}, [](const std::string& request, bool whole, std::string& answer) {
        if (!Echo(request, whole, answer)) return false;
        if (request == "much.") answer.assign(8u << 20, 'x');
        return true;
    });
    std::vector<Descriptor> idle;
    for (int i = 0; i < 20; ++i) idle.push_back(ConnectTo(path_));
    std::vector<Descriptor> full;
    for (int i = 0; i < 20; ++i) {
        full.push_back(ConnectTo(path_));
        ASSERT_EQ(::send(full.back().Get(), "much.", 5, 0), 5);
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Ask("x."), "[x.]");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << "far below the limit of a minute";
}

TEST_F(LocalServerTest, AClientThatLingersIsSentAwayAtItsTime) {
    const auto server = Serve({4096, 200, 4});
    const Descriptor client = ConnectTo(path_);
    char byte = 0;
    EXPECT_LE(::recv(client.Get(), &byte, 1, 0), 0);
}

TEST_F(LocalServerTest, AClientThatLeavesBeforeItsAnswerChangesNothing) {
    const auto server = Serve();
    for (int i = 0; i < 100; ++i) {
        const Descriptor client = ConnectTo(path_);
        (void)!::send(client.Get(), "gone.", 5, MSG_NOSIGNAL);
    }
    EXPECT_EQ(Ask("x."), "[x.]");
}

TEST_F(LocalServerTest, AStaleSocketIsReplacedALiveOneAndAFileAreNot) {
    {
        auto first = Serve();
        LocalServer second(path_, "second", &Echo, [this](SystemError error) { outcome_.store(error); });
        EXPECT_TRUE(Eventually([&] { return outcome_.load() == EADDRINUSE; }));
        EXPECT_EQ(Ask("x."), "[x.]");
        first.reset();
        EXPECT_TRUE(Eventually([&] { return outcome_.load() == 0; })) << "the path is tried again";
        EXPECT_EQ(Ask("y."), "[y.]");
    }
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path_.copy(address.sun_path, sizeof address.sun_path - 1);
        const Descriptor dead(::socket(AF_UNIX, SOCK_STREAM, 0));
        ASSERT_EQ(::bind(dead.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    {
        const auto server = Serve();
        EXPECT_EQ(outcome_.load(), 0u);
        EXPECT_EQ(Ask("x."), "[x.]");
    }
    OrvTest::WriteFileText(path_, "mine");
    const auto server = Serve();
    EXPECT_EQ(outcome_.load(), static_cast<SystemError>(EEXIST));
    EXPECT_EQ(OrvTest::ReadFileText(path_), "mine");
}

TEST_F(LocalServerTest, WhoAsksWaitsNoLongerThanToldAndTakesNoMoreThanWanted) {
    const auto server = Serve({4096, 60'000, 4});
    std::string answer;
    SystemError error = 0;
    EXPECT_FALSE(AskLocalServer(path_, "no end", 100, 1000, answer, error));
    EXPECT_EQ(error, static_cast<SystemError>(ETIMEDOUT));
    EXPECT_FALSE(AskLocalServer(path_, std::string(2000, 'x') + ".", 5000, 1000, answer, error));
    EXPECT_EQ(error, static_cast<SystemError>(EMSGSIZE));
}

}  // namespace
}  // namespace Platform
