// The server's end: who is taken, what a write waits for, and the end of a pipe.
#include "Platform/NamedPipe.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <string>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/Thread.h"
#include "tests/Platform/linux/NamedPipeFixture.h"

namespace Platform {
namespace {

using OrvTest::Eventually;

i64 Microseconds(const timeval& time) {
    return i64{time.tv_sec} * 1'000'000 + time.tv_usec;
}

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
