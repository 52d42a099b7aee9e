// Goal: a port hands its connections over, and nothing that strangers do to it uses up the process's descriptors, ends
// the listening or brings in more bytes than a stranger may send.
#include "Platform/PortListener.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/Thread.h"
#include "Platform/linux/Descriptor.h"

namespace Platform {
namespace {

class PortListenerTest : public ::testing::Test {
protected:
    // What serves: keeps every connection and reads nothing.
    void Start(StrangerLimits limits = {}) {
        SystemError error = 1;
        listener_ = PortListener::Open("127.0.0.1", 0, error);
        ASSERT_NE(listener_, nullptr) << error;
        EXPECT_EQ(error, 0u);
        ASSERT_NE(listener_->Port(), 0u);
        listener_->Start("port", limits, [this](int descriptor) {
            std::lock_guard guard(mutex_);
            served_.emplace_back(descriptor);
            count_.fetch_add(1);
        });
    }
    Descriptor Connect() const {
        Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(listener_->Port()));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::connect(socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        return socket;
    }
    // "127.0.0.1:port" of the connecting side.
    static std::string NameOf(const Descriptor& socket) {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        ::getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &size);
        return "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    }
    // The other side has ended it.
    static bool Ends(const Descriptor& socket, int milliseconds) {
        pollfd state{socket.Get(), POLLIN, 0};
        char byte = 0;
        return ::poll(&state, 1, milliseconds) == 1 && ::recv(socket.Get(), &byte, 1, 0) <= 0;
    }
    bool WaitForCount(u32 count) const {
        for (int tries = 0; tries < 1000 && count_.load() < count; ++tries) SleepMilliseconds(10);
        return count_.load() >= count;
    }

    std::mutex mutex_;
    std::vector<Descriptor> served_;
    std::atomic<u32> count_{0};
    std::unique_ptr<PortListener> listener_;
};

TEST_F(PortListenerTest, ConnectionsAreHandedOverNonBlocking) {
    Start();
    const Descriptor one = Connect();
    const Descriptor two = Connect();
    ASSERT_TRUE(WaitForCount(2));
    ASSERT_EQ(::send(one.Get(), "x", 1, 0), 1);
    std::lock_guard guard(mutex_);
    char byte = 0;
    pollfd state{served_[0].Get(), POLLIN, 0};
    ASSERT_EQ(::poll(&state, 1, 10'000), 1);
    EXPECT_EQ(::recv(served_[0].Get(), &byte, 1, 0), 1);
    EXPECT_EQ(::recv(served_[1].Get(), &byte, 1, 0), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(PortListenerTest, AStrangerWhoSendsTooMuchIsCutOffAndOneWhoDoesNotStays) {
    Start({1000, 600'000});
    const Descriptor loud = Connect();
    const Descriptor calm = Connect();
    ASSERT_TRUE(WaitForCount(2));
    ASSERT_EQ(::send(calm.Get(), std::string(1000, 'x').data(), 1000, 0), 1000);
    ASSERT_EQ(::send(loud.Get(), std::string(1001, 'x').data(), 1001, 0), 1001);
    EXPECT_TRUE(Ends(loud, 10'000));
    EXPECT_FALSE(Ends(calm, 200));
}

TEST_F(PortListenerTest, AStrangerWhoStaysTooLongIsCutOff) {
    Start({1000, 300});
    const u64 begin = SteadyMilliseconds();
    const Descriptor stranger = Connect();
    EXPECT_TRUE(Ends(stranger, 10'000));
    EXPECT_GE(SteadyMilliseconds() - begin, 300u);
}

TEST_F(PortListenerTest, WhoIsAdmittedMaySendAndStay) {
    Start({1000, 500});
    const Descriptor known = Connect();
    const Descriptor stranger = Connect();
    ASSERT_TRUE(WaitForCount(2));
    listener_->Admit(NameOf(known));
    listener_->Admit("127.0.0.1:1");  // nobody
    ASSERT_EQ(::send(known.Get(), std::string(5000, 'x').data(), 5000, 0), 5000);
    EXPECT_TRUE(Ends(stranger, 10'000));
    EXPECT_FALSE(Ends(known, 200));
}

// Found with the real program: the network library listened by itself, and gave up listening for good at the first
// connection for which there was no descriptor left.
TEST_F(PortListenerTest, WhoComesWhenDescriptorsRunShortIsTurnedAwayAndTheListeningGoesOn) {
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    Start();
    rlimit few = before;
    few.rlim_cur = 128;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    std::vector<Descriptor> strangers;
    u32 turnedAway = 0;
    for (int i = 0; i < 60; ++i) {
        const u32 taken = count_.load();
        strangers.push_back(Connect());
        for (int tries = 0; tries < 1000 && count_.load() == taken; ++tries) {
            if (Ends(strangers.back(), 10)) {
                ++turnedAway;
                break;
            }
        }
    }
    const u32 taken = count_.load();
    EXPECT_GT(taken, 5u);
    EXPECT_EQ(taken + turnedAway, 60u);
    EXPECT_GT(turnedAway, 0u);
    const Descriptor spare(::dup(0));
    EXPECT_TRUE(spare.IsOpen()) << "the process has descriptors left for itself";
    {
        std::lock_guard guard(mutex_);
        for (const Descriptor& each : served_) ::shutdown(each.Get(), SHUT_RDWR);  // as who serves ends one
        served_.clear();
    }
    strangers.clear();
    bool again = false;
    for (int tries = 0; tries < 200 && !again; ++tries) {
        const Descriptor next = Connect();
        again = !Ends(next, 50);
    }
    EXPECT_TRUE(again) << "who comes when there is room again is taken";
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(PortListenerTest, APortInUseAndAnAddressOfNobodyAreTold) {
    Start();
    SystemError error = 0;
    EXPECT_EQ(PortListener::Open("127.0.0.1", listener_->Port(), error), nullptr);
    EXPECT_EQ(error, static_cast<SystemError>(EADDRINUSE));
    EXPECT_EQ(PortListener::Open("192.0.2.1", 0, error), nullptr);
    EXPECT_EQ(error, static_cast<SystemError>(EADDRNOTAVAIL));
}

// Two lines of /etc/hosts for one name: the second one met our own socket.
TEST_F(PortListenerTest, AnAddressThatIsNamedTwiceIsListenedOnOnce) {
    const std::vector<std::string> twice{"127.0.0.1", "127.0.0.1"};
    SystemError error = 1;
    u32 port = 0;
    {
        const auto any = PortListener::Open(twice, 0, error);
        ASSERT_NE(any, nullptr) << error;
        port = any->Port();
    }
    EXPECT_NE(PortListener::Open(twice, port, error), nullptr) << error;
}

// Only the first address was asked for a free port. On the second one 800 of them are taken here, out of some 28,000,
// so that among a thousand free ones of the first address there are some that it cannot have.
TEST_F(PortListenerTest, AnyFreePortIsOneThatIsFreeOnEveryAddress) {
    sockaddr_in second{};
    second.sin_family = AF_INET;
    second.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
    std::vector<Descriptor> taken;
    for (int i = 0; i < 800; ++i) {
        taken.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address = second;
        ASSERT_EQ(::bind(taken.back().Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    const std::vector<std::string> both{"127.0.0.1", "127.0.0.2"};
    SystemError error = 0;
    for (int i = 0; i < 1'000; ++i) ASSERT_NE(PortListener::Open(both, 0, error), nullptr) << error;
}

TEST_F(PortListenerTest, AddressesThatCanNeverHaveOnePortAreGivenUp) {
    const std::vector<std::string> overlapping{"127.0.0.1", "0.0.0.0"};
    SystemError error = 0;
    EXPECT_EQ(PortListener::Open(overlapping, 0, error), nullptr);
    EXPECT_EQ(error, static_cast<SystemError>(EADDRINUSE));
}

TEST_F(PortListenerTest, ClosingEndsTheListeningAndMayBeRepeated) {
    Start();
    const u32 port = listener_->Port();
    const Descriptor open = Connect();
    ASSERT_TRUE(WaitForCount(1));
    listener_->Close();
    listener_->Close();
    EXPECT_FALSE(Ends(open, 100)) << "what was handed over is the other's";
    SystemError error = 0;
    EXPECT_NE(PortListener::Open("127.0.0.1", port, error), nullptr) << error;
}

}  // namespace
}  // namespace Platform
