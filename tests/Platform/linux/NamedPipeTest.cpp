#include "Platform/NamedPipe.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <string>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/Thread.h"
#include "Platform/linux/PipeAddress.h"
#include "tests/support/Process.h"

namespace Platform {
namespace {

using OrvTest::Eventually;
using OrvTest::TempFolder;

constexpr u64 kBlock = 2000;
using Outcome = IPipeClient::Outcome;

i64 Microseconds(const timeval& time) {
    return i64{time.tv_sec} * 1'000'000 + time.tv_usec;
}

class NamedPipeTest : public testing::Test {
protected:
    NamedPipeTest() { SetPipeFolder(folder_.Path()); }

    // An instance that a client is connected to.
    struct Connection {
        std::unique_ptr<IPipeClient> client;
        std::unique_ptr<IPipeInstance> server;
    };
    Connection Connect(IPipeEndpoint& endpoint, const std::string& name) {
        SystemError error = 0;
        Connection connection;
        connection.server = endpoint.CreateInstance(error);
        EXPECT_NE(connection.server, nullptr) << SystemErrorText(error);
        connection.client = ConnectPipe(name, error);
        EXPECT_NE(connection.client, nullptr) << SystemErrorText(error);
        EXPECT_EQ(connection.server->PollConnect(error), ConnectState::Connected);
        return connection;
    }
    // Reads until `size` bytes have come, the end, or ten seconds without a byte.
    static std::string ReadAll(IPipeClient& client, u64 size) {
        std::string text(size, '?');
        u64 done = 0;
        u64 taken = 0;
        SystemError error = 0;
        while (done < size && client.Read(text.data() + done, size - done, 10000, taken, error) == Outcome::Data) {
            done += taken;
        }
        text.resize(done);
        return text;
    }
    static Outcome ReadOne(IPipeClient& client, SystemError& error, u32 milliseconds = 10000) {
        char byte = 0;
        u64 taken = 0;
        return client.Read(&byte, 1, milliseconds, taken, error);
    }
    static u64 Queued(IPipeClient& client) {
        u64 bytes = 0;
        EXPECT_TRUE(client.Available(bytes));
        return bytes;
    }

    TempFolder folder_;
};

TEST_F(NamedPipeTest, WhatTheServerWritesTheClientReads) {
    const auto endpoint = CreatePipeEndpoint("Feed");
    Connection pipe = Connect(*endpoint, "feed");
    EXPECT_EQ(pipe.server->Write("hello", 5), 5);
    EXPECT_EQ(ReadAll(*pipe.client, 5), "hello");
}

TEST_F(NamedPipeTest, AnInstanceIsPendingUntilAClientHasCome) {
    const auto endpoint = CreatePipeEndpoint("feed");
    SystemError error = 1;
    const auto instance = endpoint->CreateInstance(error);
    ASSERT_NE(instance, nullptr);
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(instance->PollConnect(error), ConnectState::Pending);
    const auto client = ConnectPipe("FEED", error);
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(instance->PollConnect(error), ConnectState::Connected);
    EXPECT_EQ(instance->PollConnect(error), ConnectState::Connected);
}

TEST_F(NamedPipeTest, ClientsThatComeWhileNoInstanceWaitsStayQueued) {
    const auto endpoint = CreatePipeEndpoint("feed");
    SystemError error = 0;
    const auto first = endpoint->CreateInstance(error);
    std::vector<std::unique_ptr<IPipeClient>> clients;
    for (int i = 0; i < 3; ++i) clients.push_back(ConnectPipe("feed", error));
    EXPECT_EQ(first->PollConnect(error), ConnectState::Connected);
    const auto second = endpoint->CreateInstance(error);
    EXPECT_EQ(second->PollConnect(error), ConnectState::Connected);
    const auto third = endpoint->CreateInstance(error);
    EXPECT_EQ(third->PollConnect(error), ConnectState::Connected);
    EXPECT_EQ(first->Write("1", 1) + second->Write("2", 1) + third->Write("3", 1), 3);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(ReadAll(*clients[static_cast<size_t>(i)], 1), std::to_string(i + 1));
}

TEST_F(NamedPipeTest, AWriteThatDoesNotWaitGivesWhatTheClientCanTakeAndTellsWhenItHasLeft) {
    const auto endpoint = CreatePipeEndpoint("feed");
    Connection pipe = Connect(*endpoint, "feed");
    const std::string block(kBlock, 'x');
    u64 sent = 0;
    for (i64 taken = 1; taken > 0 && sent < 100 * kBlock; sent += static_cast<u64>(taken)) {
        taken = pipe.server->TryWrite(block.data(), block.size());
        ASSERT_GE(taken, 0);
    }
    EXPECT_GE(sent, 2 * kBlock);
    EXPECT_LT(sent, 3 * kBlock);
    EXPECT_EQ(pipe.server->TryWrite(block.data(), 0), 0);
    EXPECT_EQ(ReadAll(*pipe.client, sent), std::string(sent, 'x'));
    EXPECT_GT(pipe.server->TryWrite(block.data(), block.size()), 0);
    pipe.client.reset();
    EXPECT_EQ(pipe.server->TryWrite(block.data(), 0), -1);
    EXPECT_EQ(pipe.server->TryWrite(block.data(), block.size()), -1);
}

// Goal: two blocks of lag and no more. Method: a third write enters, is seen to stay inside while the two blocks are
// queued, and comes out once one has been read.
TEST_F(NamedPipeTest, AClientMayLagByExactlyTwoBlocks) {
    const auto endpoint = CreatePipeEndpoint("feed");
    Connection pipe = Connect(*endpoint, "feed");
    const std::string block(kBlock, 'x');
    ASSERT_EQ(pipe.server->Write(block.data(), kBlock), static_cast<i64>(kBlock));
    ASSERT_EQ(pipe.server->Write(block.data(), kBlock), static_cast<i64>(kBlock));
    std::atomic<bool> inside{false};
    std::atomic<i64> third{0};
    Thread writer("writes", [&] {
        inside.store(true, std::memory_order_release);
        third.store(pipe.server->Write(block.data(), kBlock), std::memory_order_release);
    });
    EXPECT_TRUE(Eventually([&] { return inside.load(std::memory_order_acquire); }));
    EXPECT_FALSE(Eventually([&] { return third.load(std::memory_order_acquire) != 0; }, 60));
    EXPECT_EQ(Queued(*pipe.client), 2 * kBlock);
    EXPECT_EQ(ReadAll(*pipe.client, kBlock).size(), kBlock);
    EXPECT_TRUE(Eventually([&] { return third.load(std::memory_order_acquire) == static_cast<i64>(kBlock); }));
    writer.Join();
    EXPECT_EQ(ReadAll(*pipe.client, 2 * kBlock).size(), 2 * kBlock);
}

// Five thousand writers once asked their full sockets 250 times a second each, when the program that read them had
// stopped for half a second: that took both processors, so that the program never came to read again.
TEST_F(NamedPipeTest, AWriterThatWaitsForItsClientSleepsUntilTheClientHasTakenABlock) {
    const auto endpoint = CreatePipeEndpoint("feed");
    Connection pipe = Connect(*endpoint, "feed");
    const std::string block(kBlock, 'x');
    std::atomic<bool> done{false};
    i64 awoken = 0;
    i64 worked = 0;  // microseconds
    Thread writer("writes", [&] {
        for (int i = 0; i < 2; ++i) pipe.server->Write(block.data(), kBlock);
        rusage before{};
        rusage after{};
        ::getrusage(RUSAGE_THREAD, &before);
        pipe.server->Write(block.data(), kBlock);
        ::getrusage(RUSAGE_THREAD, &after);
        awoken = after.ru_nvcsw - before.ru_nvcsw;
        worked = Microseconds(after.ru_utime) + Microseconds(after.ru_stime) - Microseconds(before.ru_utime) -
                 Microseconds(before.ru_stime);
        done.store(true, std::memory_order_release);
    });
    EXPECT_TRUE(Eventually([&] { return Queued(*pipe.client) == 2 * kBlock; }));
    EXPECT_FALSE(Eventually([&] { return done.load(std::memory_order_acquire); }, 200));
    EXPECT_EQ(ReadAll(*pipe.client, kBlock).size(), kBlock);
    EXPECT_TRUE(Eventually([&] { return done.load(std::memory_order_acquire); }));
    writer.Join();
    EXPECT_LE(awoken, 3);
    EXPECT_LT(worked, 100'000) << "nor does it ask without a rest";
}

TEST_F(NamedPipeTest, AWriteWithADeadlineGivesUpThenAndNotBefore) {
    const auto endpoint = CreatePipeEndpoint("feed");
    Connection pipe = Connect(*endpoint, "feed");
    const std::string block(kBlock, 'x');
    const u64 start = SteadyMilliseconds();
    ASSERT_EQ(pipe.server->Write(block.data(), kBlock, start), static_cast<i64>(kBlock));
    ASSERT_EQ(pipe.server->Write(block.data(), kBlock, start), static_cast<i64>(kBlock));
    EXPECT_EQ(pipe.server->Write(block.data(), kBlock, start + 60), 0);
    EXPECT_GE(SteadyMilliseconds(), start + 60);
    EXPECT_EQ(pipe.server->Write(block.data(), kBlock, start), 0);
    EXPECT_EQ(ReadAll(*pipe.client, kBlock).size(), kBlock);
    EXPECT_EQ(pipe.server->Write(block.data(), kBlock, SteadyMilliseconds() + 60'000), static_cast<i64>(kBlock));
    pipe.client.reset();
    EXPECT_EQ(pipe.server->Write(block.data(), kBlock, start), -1);
}

TEST_F(NamedPipeTest, AWriteThatWaitsEndsWhenItsClientGoes) {
    const auto endpoint = CreatePipeEndpoint("feed");
    Connection pipe = Connect(*endpoint, "feed");
    const std::string block(kBlock, 'x');
    i64 last = 0;
    Thread writer("writes", [&] {
        do {
            last = pipe.server->Write(block.data(), kBlock);
        } while (last > 0);
    });
    EXPECT_TRUE(Eventually([&] { return Queued(*pipe.client) == 2 * kBlock; }));
    pipe.client.reset();
    writer.Join();
    EXPECT_EQ(last, -1);
}

TEST_F(NamedPipeTest, AWriteToAClientThatHasGoneFailsWithoutASignal) {
    const auto endpoint = CreatePipeEndpoint("feed");
    Connection pipe = Connect(*endpoint, "feed");
    pipe.client.reset();
    EXPECT_EQ(pipe.server->Write("x", 1), -1);
    EXPECT_EQ(pipe.server->Write("x", 1), -1);
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

TEST_F(NamedPipeTest, ADestroyedEndpointHasNoNameAndConnectionsGoOn) {
    auto endpoint = CreatePipeEndpoint("feed");
    Connection pipe = Connect(*endpoint, "feed");
    SystemError error = 0;
    const auto waiting = endpoint->CreateInstance(error);
    ASSERT_NE(waiting, nullptr);
    endpoint.reset();
    EXPECT_NE(::access((folder_ / "feed").c_str(), F_OK), 0);
    EXPECT_EQ(ConnectPipe("feed", error), nullptr);
    EXPECT_EQ(error, static_cast<SystemError>(ENOENT));
    EXPECT_EQ(pipe.server->Write("x", 1), 1);
    EXPECT_EQ(ReadAll(*pipe.client, 1), "x");
    EXPECT_NE(waiting->PollConnect(error), ConnectState::Connected);
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

// Method: a server with room for one more than none in its queue.
TEST_F(NamedPipeTest, AFullQueueIsToldAsBusy) {
    SystemError error = 0;
    PipeAddress address;
    ASSERT_TRUE(PipeAddress::Make("feed", address, error));
    const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(server, address.Get(), sizeof address.address), 0);
    ASSERT_EQ(::listen(server, 0), 0);
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
    PipeAddress address;
    ASSERT_TRUE(PipeAddress::Make("feed", address, error));
    const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(server, address.Get(), sizeof address.address), 0);
    ASSERT_EQ(::listen(server, 0), 0);
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
    PipeAddress address;
    ASSERT_TRUE(PipeAddress::Make("feed", address, error));
    const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(server, address.Get(), sizeof address.address), 0);
    ASSERT_EQ(::listen(server, 1), 0);
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

TEST_F(NamedPipeTest, NoTwoConnectionsHaveOneId) {
    const auto endpoint = CreatePipeEndpoint("feed");
    std::vector<PipeId> ids;
    for (int i = 0; i < 3; ++i) {
        const Connection pipe = Connect(*endpoint, "feed");
        ids.push_back(pipe.client->Id());
        ids.push_back(pipe.server->Id());
    }
    std::sort(ids.begin(), ids.end());
    EXPECT_GT(ids.front(), 0u);
    EXPECT_EQ(std::adjacent_find(ids.begin(), ids.end()), ids.end());
}

// Goal: what many channels do at once. Method: eight threads serve a pipe each, in one folder, with a client each,
// over and over; no creation may fail, since nobody else is there.
TEST_F(NamedPipeTest, ManyThreadsServeTheirPipesSideBySide) {
    std::atomic<int> good{0};
    std::vector<Thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back("serves", [&, i] {
            const std::string name = "feed" + std::to_string(i);
            for (int round = 0; round < 20; ++round) {
                SystemError error = 0;
                const auto endpoint = CreatePipeEndpoint(name);
                const auto server = endpoint->CreateInstance(error);
                const auto client = server ? ConnectPipe(name, error) : nullptr;
                if (!client || server->PollConnect(error) != ConnectState::Connected) continue;
                if (server->Write(name.data(), name.size()) != static_cast<i64>(name.size())) continue;
                if (ReadAll(*client, name.size()) == name) good.fetch_add(1, std::memory_order_relaxed);
            }
        });
    }
    for (Thread& thread : threads) thread.Join();
    EXPECT_EQ(good.load(std::memory_order_relaxed), 8 * 20);
}

}  // namespace
}  // namespace Platform
