// The client's end: how it connects, reads and writes, and what it sees of the end.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/NamedPipe.h"
#include "Platform/Thread.h"
#include "Platform/linux/PipeAddress.h"
#include "tests/Platform/linux/NamedPipeFixture.h"

namespace Platform {
namespace {

// A server of which each connection is in the test's hands, with room for one more than `queue` that wait.
int ListenByHand(const std::string& name, int queue) {
    SystemError error = 0;
    PipeAddress address;
    EXPECT_TRUE(PipeAddress::Make(name, address, error));
    const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(::bind(server, address.Get(), sizeof address.address), 0);
    EXPECT_EQ(::listen(server, queue), 0);
    return server;
}

TEST_F(NamedPipeTest, AfterTheEndTheClientStillReadsWhatWasWritten) {
    const auto endpoint = CreatePipeEndpoint("feed");
    Connection pipe = Connect(*endpoint, "feed");
    const std::string text = std::string(kBlock, 'a') + std::string(kBlock, 'b');
    ASSERT_EQ(pipe.server->Write(text.data(), kBlock), static_cast<i64>(kBlock));
    ASSERT_EQ(pipe.server->Write(text.data() + kBlock, kBlock), static_cast<i64>(kBlock));
    pipe.server.reset();
    EXPECT_EQ(Queued(*pipe.client), 2 * kBlock);
    EXPECT_EQ(ReadAll(*pipe.client, 3 * kBlock), text);
    SystemError error = 1;
    EXPECT_EQ(ReadOne(*pipe.client, error), Outcome::Closed);
    EXPECT_EQ(error, 0u);
    u64 bytes = 1;
    EXPECT_FALSE(pipe.client->Available(bytes));
    EXPECT_EQ(bytes, 0u);
}

// What a client wrote and nobody read would reach it as a reset in place of the end.
TEST_F(NamedPipeTest, AClientThatWroteSomethingSeesAPlainEndToo) {
    const auto endpoint = CreatePipeEndpoint("feed");
    SystemError error = 0;
    auto instance = endpoint->CreateInstance(error);
    PipeAddress address;
    ASSERT_TRUE(PipeAddress::Make("feed", address, error));
    const int client = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::connect(client, address.Get(), sizeof address.address), 0);
    const std::string much(100'000, 'x');
    ASSERT_EQ(::send(client, much.data(), much.size(), MSG_NOSIGNAL), 100'000);
    ASSERT_EQ(instance->PollConnect(error), ConnectState::Connected);
    ASSERT_EQ(instance->Write("abc", 3), 3);
    EXPECT_EQ(::send(client, "x", 1, MSG_NOSIGNAL), -1) << "the pipe goes one way";
    EXPECT_EQ(errno, EPIPE);
    instance.reset();
    char read[10];
    EXPECT_EQ(::recv(client, read, sizeof read, 0), 3);
    EXPECT_EQ(::recv(client, read, sizeof read, 0), 0);
    ::close(client);
}

TEST_F(NamedPipeTest, AReadWaitsNoLongerThanItIsTold) {
    const auto endpoint = CreatePipeEndpoint("feed");
    Connection pipe = Connect(*endpoint, "feed");
    SystemError error = 1;
    EXPECT_EQ(ReadOne(*pipe.client, error, 0), Outcome::TimedOut);
    EXPECT_EQ(error, 0u);
    const u64 before = SteadyMilliseconds();
    EXPECT_EQ(ReadOne(*pipe.client, error, 30), Outcome::TimedOut);
    EXPECT_GE(SteadyMilliseconds() - before, 30u);
    EXPECT_EQ(Queued(*pipe.client), 0u);
}

TEST_F(NamedPipeTest, AReadThatWaitsGetsWhatComes) {
    const auto endpoint = CreatePipeEndpoint("feed");
    Connection pipe = Connect(*endpoint, "feed");
    std::string got;
    Thread reader("reads", [&] { got = ReadAll(*pipe.client, 3); });
    EXPECT_EQ(pipe.server->Write("abc", 3), 3);
    reader.Join();
    EXPECT_EQ(got, "abc");
}

TEST_F(NamedPipeTest, AReadThatWaitsSeesTheEnd) {
    const auto endpoint = CreatePipeEndpoint("feed");
    Connection pipe = Connect(*endpoint, "feed");
    Outcome outcome = Outcome::Data;
    SystemError error = 1;
    Thread reader("reads", [&] { outcome = ReadOne(*pipe.client, error, 60000); });
    pipe.server.reset();
    reader.Join();
    EXPECT_EQ(outcome, Outcome::Closed);
    EXPECT_EQ(error, 0u);
}

TEST_F(NamedPipeTest, AnAbsentServerIsAFailureAtOnce) {
    SystemError error = 0;
    EXPECT_EQ(ConnectPipe("none", error), nullptr);
    EXPECT_EQ(error, static_cast<SystemError>(ENOENT));
    EXPECT_EQ(ConnectPipe("", error), nullptr);
    EXPECT_EQ(error, static_cast<SystemError>(EINVAL));
    EXPECT_EQ(ConnectPipe(std::string(200, 'x'), error), nullptr);
    EXPECT_EQ(error, static_cast<SystemError>(ENAMETOOLONG));
    EXPECT_NE(PipeBusyError(), static_cast<SystemError>(ENOENT));
}

TEST_F(NamedPipeTest, AFullQueueIsToldAsBusy) {
    SystemError error = 0;
    const int server = ListenByHand("feed", 0);
    const auto first = ConnectPipe("feed", error);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(ConnectPipe("feed", error), nullptr);
    EXPECT_EQ(error, PipeBusyError());
    ::close(server);
}

TEST_F(NamedPipeTest, AConnectMayWaitForAPlaceInAFullQueueAndForNothingElse) {
    SystemError error = 0;
    EXPECT_EQ(ConnectPipeWithin("none", 60'000, error), nullptr);
    EXPECT_EQ(error, static_cast<SystemError>(ENOENT));
    const int server = ListenByHand("feed", 0);
    const auto first = ConnectPipeWithin("feed", 60'000, error);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(error, 0u);
    const u64 start = SteadyMilliseconds();
    EXPECT_EQ(ConnectPipeWithin("feed", 100, error), nullptr);
    EXPECT_EQ(error, PipeBusyError());
    EXPECT_GE(SteadyMilliseconds() - start, 90u);

    std::unique_ptr<IPipeClient> second;
    Thread waits("waits", [&] { second = ConnectPipeWithin("feed", 60'000, error); });
    SleepMilliseconds(50);
    const int accepted = ::accept4(server, nullptr, nullptr, SOCK_CLOEXEC);
    waits.Join();
    EXPECT_NE(second, nullptr);
    EXPECT_EQ(error, 0u);

    Thread loses("loses", [&] { EXPECT_EQ(ConnectPipeWithin("feed", 60'000, error), nullptr); });
    SleepMilliseconds(50);
    ::shutdown(server, SHUT_RDWR);
    ::close(server);
    loses.Join();
    EXPECT_NE(error, PipeBusyError()) << "the server has gone";
    ::close(accepted);
}

// Method: more than the socket takes at once, to a server that reads late; then to one that has gone.
TEST_F(NamedPipeTest, AClientsWriteBlocksUntilTheServerHasTakenAllOrHasGone) {
    SystemError error = 0;
    const int server = ListenByHand("feed", 1);
    const auto client = ConnectPipe("feed", error);
    ASSERT_NE(client, nullptr);
    const int accepted = ::accept4(server, nullptr, nullptr, SOCK_CLOEXEC);
    const std::string much(2'000'000, 'x');
    std::atomic<u64> received{0};
    Thread reads("reads", [&] {
        SleepMilliseconds(20);
        std::vector<char> buffer(65536);
        while (received < much.size()) {
            const ssize_t count = ::recv(accepted, buffer.data(), buffer.size(), 0);
            if (count <= 0) break;
            received += static_cast<u64>(count);
        }
    });
    EXPECT_EQ(client->Write(much.data(), much.size()), much.size());
    reads.Join();
    EXPECT_EQ(received.load(), much.size());
    ::close(accepted);
    EXPECT_EQ(client->Write("x", 1), 0u);
    ::close(server);

    const auto endpoint = CreatePipeEndpoint("oneway");
    Connection pipe = Connect(*endpoint, "oneway");
    EXPECT_EQ(pipe.client->Write("x", 1), 0u) << "the pipes of this system go one way";
}

}  // namespace
}  // namespace Platform
