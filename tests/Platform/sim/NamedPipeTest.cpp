// Goal: simulated pipes keep the contract of Platform/NamedPipe.h: a client may lag by two blocks, a writer waits for
// no longer than its client stays, and a name has one server.
#include "Platform/NamedPipe.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"
#include "tests/Platform/sim/PipeEnds.h"

namespace {

using namespace PipeTest;
using Platform::Thread;
using Platform::Sim::Simulation;

TEST(NamedPipeTest, BytesArriveInOrderWhateverTheSizesOfWritesAndReads) {
    Simulation sim;
    std::string sent;
    std::string received;
    sim.Run([&] {
        Pair pair;
        Thread reader("reader", [&] {
            for (u64 size = 1;; size = size * 3 % 1009) {
                const std::string bytes = Read(*pair.client, size, 1000);
                if (bytes == "closed 0") break;
                received += bytes;
            }
        });
        u64 state = 1;
        for (int i = 0; i < 500; ++i) {
            state = state * 6364136223846793005u + 1442695040888963407u;
            std::string bytes((state >> 33) % 3000 + 1, ' ');
            for (char& c : bytes) c = static_cast<char>((state >> 20) + sent.size());
            ASSERT_EQ(pair.instance->Write(bytes.data(), bytes.size()), static_cast<i64>(bytes.size()));
            sent += bytes;
        }
        pair.instance.reset();
        reader.Join();
    });
    EXPECT_GT(sent.size(), 500'000u);
    EXPECT_EQ(received, sent);
}

TEST(NamedPipeTest, AWriteThatDoesNotWaitGivesWhatTheClientCanTakeAndTellsWhenItHasLeft) {
    Simulation sim;
    sim.Run([&] {
        Pair pair;
        const std::string block(kBlock, 'x');
        EXPECT_EQ(pair.instance->TryWrite(block.data(), kBlock), 2000);
        EXPECT_EQ(pair.instance->TryWrite(block.data(), kBlock), 2000);
        EXPECT_EQ(pair.instance->TryWrite(block.data(), kBlock), 96);
        EXPECT_EQ(pair.instance->TryWrite(block.data(), kBlock), 0);
        EXPECT_EQ(pair.instance->TryWrite(block.data(), 0), 0);
        EXPECT_EQ(Read(*pair.client, 5000), std::string(4096, 'x'));
        sim.Pipes().SetWriteLimit(3);
        EXPECT_EQ(pair.instance->TryWrite(block.data(), kBlock), 3);
        pair.client.reset();
        EXPECT_EQ(pair.instance->TryWrite(block.data(), 0), -1);
        EXPECT_EQ(pair.instance->TryWrite(block.data(), kBlock), -1);
    });
}

TEST(NamedPipeTest, AClientMayLagByTwoBlocksAndTheThirdWaitsUntilItReads) {
    Simulation sim;
    sim.Run([&] {
        Pair pair;
        const std::string block(kBlock, 'x');
        Thread reader("reader", [&] {
            Platform::SleepMilliseconds(700);
            EXPECT_EQ(sim.Pipes().Counters().writersBlocked, 1u);
            EXPECT_EQ(Read(*pair.client, 1), "x");
            Platform::SleepMilliseconds(100);
            EXPECT_EQ(Read(*pair.client, kBlock - 1).size(), kBlock - 1);
        });
        EXPECT_EQ(pair.instance->Write(block.data(), kBlock), 2000);
        EXPECT_EQ(pair.instance->Write(block.data(), kBlock), 2000);
        EXPECT_EQ(sim.Elapsed(), 0u);
        EXPECT_EQ(pair.instance->Write(block.data(), kBlock), 2000);
        EXPECT_EQ(sim.Elapsed(), 800'000'000u);
        EXPECT_EQ(sim.Pipes().Counters().writersBlocked, 0u);
        reader.Join();
    });
    EXPECT_EQ(sim.Pipes().Counters().bytesWritten, 6000u);
    EXPECT_EQ(sim.Pipes().Counters().writes, 3u);
}

TEST(NamedPipeTest, AWriteWithADeadlineGivesUpThenAndNotBefore) {
    Simulation sim;
    sim.Run([&] {
        Pair pair;
        const std::string block(kBlock, 'x');
        const u64 start = Platform::SteadyMilliseconds();
        EXPECT_EQ(pair.instance->Write(block.data(), kBlock, start), 2000) << "one that has passed still tries";
        EXPECT_EQ(pair.instance->Write(block.data(), kBlock, start + 500), 2000);
        EXPECT_EQ(pair.instance->Write(block.data(), kBlock, start + 500), 0);
        EXPECT_EQ(Platform::SteadyMilliseconds(), start + 500);
        EXPECT_EQ(pair.instance->Write(block.data(), kBlock, start + 500), 0);
        EXPECT_EQ(Platform::SteadyMilliseconds(), start + 500);
        Thread reader("reader", [&] {
            Platform::SleepMilliseconds(100);
            EXPECT_EQ(Read(*pair.client, kBlock).size(), kBlock);
            Platform::SleepMilliseconds(100);
            pair.client.reset();
        });
        EXPECT_EQ(pair.instance->Write(block.data(), kBlock, start + 1000), 2000);
        EXPECT_EQ(Platform::SteadyMilliseconds(), start + 600);
        EXPECT_EQ(pair.instance->Write(block.data(), kBlock, start + 1000), -1);
        EXPECT_EQ(Platform::SteadyMilliseconds(), start + 700);
        reader.Join();
    });
    EXPECT_EQ(sim.Pipes().Counters().writersBlocked, 0u);
}

TEST(NamedPipeTest, AClientThatLeavesEndsABlockedWrite) {
    Simulation sim;
    sim.Run([&] {
        Pair pair;
        const std::string block(kBlock, 'x');
        Thread leaver("leaver", [&] {
            Platform::SleepMilliseconds(60'000);
            pair.client.reset();
        });
        EXPECT_EQ(pair.instance->Write(block.data(), kBlock), 2000);
        EXPECT_EQ(pair.instance->Write(block.data(), kBlock), 2000);
        EXPECT_EQ(pair.instance->Write(block.data(), kBlock), -1);
        EXPECT_EQ(sim.Elapsed(), 60'000'000'000u);
        EXPECT_EQ(pair.instance->Write(block.data(), kBlock), -1);
        leaver.Join();
    });
}

TEST(NamedPipeTest, TheClientOfAServerThatLeavesReadsTheRestAndThenTheEnd) {
    Simulation sim;
    Pair pair;
    EXPECT_EQ(pair.instance->Write("hello", 5), 5);
    pair.instance.reset();
    u64 bytes = 0;
    EXPECT_TRUE(pair.client->Available(bytes));
    EXPECT_EQ(bytes, 5u);
    EXPECT_EQ(Read(*pair.client, 100), "hello");
    EXPECT_FALSE(pair.client->Available(bytes));
    EXPECT_EQ(Read(*pair.client, 100), "closed 0");
}

TEST(NamedPipeTest, AReadWaitsNoLongerThanTold) {
    Simulation sim;
    sim.Run([&] {
        Pair pair;
        u64 bytes = 99;
        EXPECT_TRUE(pair.client->Available(bytes));
        EXPECT_EQ(bytes, 0u);
        EXPECT_EQ(Read(*pair.client, 10), "timed out");
        EXPECT_EQ(sim.Elapsed(), 0u);
        EXPECT_EQ(Read(*pair.client, 10, 300), "timed out");
        EXPECT_EQ(sim.Elapsed(), 300'000'000u);
        Thread writer("writer", [&] {
            Platform::SleepMilliseconds(50);
            pair.instance->Write("abc", 3);
        });
        EXPECT_EQ(Read(*pair.client, 10, 300), "abc");
        EXPECT_EQ(sim.Elapsed(), 350'000'000u);
        writer.Join();
    });
}

TEST(NamedPipeTest, AnInstanceTakesTheClientsInTheOrderOfTheirComing) {
    Simulation sim;
    auto endpoint = CreatePipeEndpoint("feed");
    EXPECT_EQ(Connect("feed"), nullptr);
    auto first = NewInstance(*endpoint);
    EXPECT_EQ(Poll(*first), ConnectState::Pending);
    auto a = Connect("FEED");
    auto b = Connect("Feed");
    EXPECT_EQ(sim.Pipes().Counters().clientsQueued, 2u);
    EXPECT_EQ(Poll(*first), ConnectState::Connected);
    EXPECT_EQ(Poll(*first), ConnectState::Connected);
    auto second = NewInstance(*endpoint);
    EXPECT_EQ(Poll(*second), ConnectState::Connected);
    first->Write("1", 1);
    second->Write("2", 1);
    EXPECT_EQ(Read(*a, 9), "1");
    EXPECT_EQ(Read(*b, 9), "2");
    EXPECT_EQ(sim.Pipes().Counters().clientsQueued, 0u);
    EXPECT_EQ(sim.Pipes().Counters().connects, 2u);
}

TEST(NamedPipeTest, AClientThatHasLeftTheQueueIsTakenAndThenFoundGone) {
    Simulation sim;
    auto endpoint = CreatePipeEndpoint("feed");
    auto instance = NewInstance(*endpoint);
    Connect("feed").reset();
    EXPECT_EQ(Poll(*instance), ConnectState::Connected);
    EXPECT_EQ(instance->Write("1", 1), -1);
}

TEST(NamedPipeTest, AFullQueueIsBusy) {
    Simulation sim;
    sim.Pipes().SetQueueLength(2);
    auto endpoint = CreatePipeEndpoint("feed");
    auto instance = NewInstance(*endpoint);
    auto a = Connect("feed");
    auto b = Connect("feed");
    SystemError error = 0;
    EXPECT_EQ(ConnectPipe("feed", error), nullptr);
    EXPECT_EQ(error, Platform::PipeBusyError());
    EXPECT_EQ(Poll(*instance), ConnectState::Connected);
    EXPECT_NE(ConnectPipe("feed", error), nullptr);
}

TEST(NamedPipeTest, AConnectMayWaitForAPlaceInAFullQueueAndForNothingElse) {
    Simulation sim;
    sim.Run([&] {
        SystemError error = 0;
        EXPECT_EQ(Platform::ConnectPipeWithin("feed", 100, error), nullptr);
        EXPECT_EQ(error, static_cast<u32>(ENOENT));
        EXPECT_EQ(sim.Elapsed(), 0u);
        sim.Pipes().SetQueueLength(1);
        auto endpoint = CreatePipeEndpoint("feed");
        auto instance = NewInstance(*endpoint);
        auto first = Connect("feed");
        EXPECT_EQ(Platform::ConnectPipeWithin("feed", 100, error), nullptr);
        EXPECT_EQ(error, Platform::PipeBusyError());
        EXPECT_EQ(sim.Elapsed(), 100'000'000u);
        Thread server("server", [&] {
            Platform::SleepMilliseconds(40);
            EXPECT_EQ(Poll(*instance), ConnectState::Connected);
            Platform::SleepMilliseconds(20);
            endpoint.reset();
        });
        const auto second = Platform::ConnectPipeWithin("FEED", 100, error);
        EXPECT_NE(second, nullptr);
        EXPECT_EQ(error, 0u);
        EXPECT_EQ(sim.Elapsed(), 140'000'000u);
        EXPECT_EQ(Platform::ConnectPipeWithin("feed", 100, error), nullptr);
        EXPECT_EQ(error, static_cast<u32>(ENOENT)) << "the server went meanwhile";
        EXPECT_EQ(sim.Elapsed(), 160'000'000u);
        server.Join();
    });
}

TEST(NamedPipeTest, APipeGoesOneWaySoThatAServerTakesNothing) {
    Simulation sim;
    Pair pair;
    EXPECT_EQ(pair.client->Write("hello", 5), 0u);
}

TEST(NamedPipeTest, ANameHasOneServerCaseAside) {
    Simulation sim;
    auto first = CreatePipeEndpoint("Feed");
    auto second = CreatePipeEndpoint("fEED");
    auto instance = NewInstance(*first);
    SystemError error = 0;
    EXPECT_EQ(second->CreateInstance(error), nullptr);
    EXPECT_EQ(error, static_cast<u32>(EADDRINUSE));
    EXPECT_TRUE(sim.Pipes().IsServed("FEED"));
    EXPECT_EQ(sim.Pipes().ServedNames(), std::vector<std::string>{"Feed"});
    // The name goes with the endpoint, though its instance is still there.
    first.reset();
    EXPECT_FALSE(sim.Pipes().IsServed("feed"));
    EXPECT_NE(second->CreateInstance(error), nullptr);
}

TEST(NamedPipeTest, WhoWaitsAtTheEndOfTheEndpointSeesAResetAndWhoIsConnectedNothing) {
    Simulation sim;
    Pair pair;
    auto waiting = Connect("feed");
    pair.endpoint.reset();
    EXPECT_EQ(Read(*waiting, 9), "closed " + std::to_string(ECONNRESET));
    EXPECT_EQ(Connect("feed"), nullptr);
    EXPECT_EQ(pair.instance->Write("x", 1), 1);
    EXPECT_EQ(Read(*pair.client, 9), "x");
}

TEST(NamedPipeTest, ANameThatIsEmptyOrTooLongForAnAddressCannotBeServed) {
    Simulation sim;
    SystemError error = 0;
    EXPECT_EQ(CreatePipeEndpoint("")->CreateInstance(error), nullptr);
    EXPECT_EQ(error, static_cast<u32>(EINVAL));
    // "/run/Orv/pipe/" takes 14 of the 107 bytes.
    EXPECT_NE(CreatePipeEndpoint(std::string(93, 'x'))->CreateInstance(error), nullptr);
    EXPECT_EQ(CreatePipeEndpoint(std::string(94, 'x'))->CreateInstance(error), nullptr);
    EXPECT_EQ(error, static_cast<u32>(ENAMETOOLONG));
    EXPECT_EQ(ConnectPipe(std::string(94, 'x'), error), nullptr);
    EXPECT_EQ(error, static_cast<u32>(ENAMETOOLONG));
    EXPECT_EQ(Platform::PipeFolder(), "/run/Orv/pipe");
    Platform::SetPipeFolder("/p");
    EXPECT_EQ(Platform::PipeFolder(), "/p");
    EXPECT_NE(CreatePipeEndpoint(std::string(94, 'x'))->CreateInstance(error), nullptr);
}

}  // namespace
