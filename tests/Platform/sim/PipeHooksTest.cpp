// What a test may order of simulated pipes and see of them.
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"
#include "tests/Platform/sim/PipeEnds.h"

namespace {

using namespace PipeTest;
using Platform::Sim::Simulation;

TEST(NamedPipeTest, FaultsComeAsOrdered) {
    Simulation sim;
    sim.Pipes().FailInstances("FEED", EMFILE, 1);
    auto endpoint = CreatePipeEndpoint("feed");
    SystemError error = 0;
    EXPECT_EQ(endpoint->CreateInstance(error), nullptr);
    EXPECT_EQ(error, static_cast<u32>(EMFILE));
    auto instance = NewInstance(*endpoint);
    sim.Pipes().FailConnects("feed", ECONNREFUSED, 1);
    EXPECT_EQ(ConnectPipe("feed", error), nullptr);
    EXPECT_EQ(error, static_cast<u32>(ECONNREFUSED));
    auto client = Connect("feed");
    ASSERT_NE(client, nullptr);
    sim.Pipes().FailPolls("feed", ENFILE, 1);
    EXPECT_EQ(instance->PollConnect(error), ConnectState::Failed);
    EXPECT_EQ(error, static_cast<u32>(ENFILE));
    EXPECT_EQ(Poll(*instance), ConnectState::Connected);
    sim.Pipes().FailClientReads("feed", EIO);
    EXPECT_EQ(Read(*client, 9), "closed " + std::to_string(EIO));
    EXPECT_EQ(Read(*client, 9), "closed " + std::to_string(EIO));
    sim.Pipes().ClearFaults();
    EXPECT_EQ(Read(*client, 9), "timed out");
}

TEST(NamedPipeTest, AWriteMayBeTakenInPieces) {
    Simulation sim;
    sim.Pipes().SetWriteLimit(700);
    Pair pair;
    const std::string block(kBlock, 'x');
    EXPECT_EQ(pair.instance->Write(block.data(), kBlock), 700);
    EXPECT_EQ(pair.instance->Write(block.data(), 600), 600);
    sim.Pipes().SetWriteLimit(0);
    EXPECT_EQ(Read(*pair.client, 9999).size(), 1300u);
    const std::string large(10'000, 'x');
    EXPECT_EQ(pair.instance->Write(large.data(), large.size()), 4096);
}

TEST(NamedPipeTest, WhatIsAliveIsCounted) {
    Simulation sim;
    {
        Pair pair;
        EXPECT_EQ(sim.Pipes().Counters().endpointsAlive, 1u);
        EXPECT_EQ(sim.Pipes().Counters().instancesAlive, 1u);
        EXPECT_EQ(sim.Pipes().Counters().clientsAlive, 1u);
        EXPECT_NE(pair.instance->Id(), 0u);
        EXPECT_NE(pair.instance->Id(), pair.client->Id());
    }
    EXPECT_EQ(sim.Pipes().Counters().endpointsAlive, 0u);
    EXPECT_EQ(sim.Pipes().Counters().instancesAlive, 0u);
    EXPECT_EQ(sim.Pipes().Counters().clientsAlive, 0u);
}

TEST(NamedPipeTest, WithoutASimulationAFullPipeThrowsAndATimedReadMovesTheClock) {
    Platform::Sim::ResetProcessWorld();
    {
        Pair pair;
        EXPECT_EQ(Read(*pair.client, 9, 30), "timed out");
        EXPECT_EQ(Platform::Sim::Clock().SteadyNanoseconds(),
                  Platform::Sim::SimClock::SteadyStartNanoseconds + 30'000'000);
        const std::string block(kBlock, 'x');
        EXPECT_EQ(pair.instance->Write(block.data(), kBlock), 2000);
        EXPECT_EQ(pair.instance->Write(block.data(), kBlock), 2000);
        EXPECT_THROW(pair.instance->Write(block.data(), kBlock), std::logic_error);
    }
    EXPECT_EQ(Platform::Sim::Pipes().Counters().instancesAlive, 0u);
}

// Writes down what it is told.
class Notes : public Platform::Sim::PipeObserver {
public:
    void OnEndpoint(const std::string& name) override { lines.push_back("endpoint " + name); }
    void OnEndpointGone(const std::string& name) override { lines.push_back("gone " + name); }
    void OnWriting(const std::string& name, Platform::PipeId) override { lines.push_back("writing " + name); }
    void OnInstance(const std::string& name, Platform::PipeId id) override {
        lines.push_back("instance " + name + (id == 0 ? " failed" : ""));
    }
    void OnPoll(const std::string& name, Platform::PipeId, ConnectState state, Platform::PipeId client) override {
        lines.push_back("poll " + name + (state == ConnectState::Connected ? " connected" : " not"));
        if (client != 0) lastClient = client;
    }
    void OnConnect(const std::string& name, Platform::PipeId client, SystemError error) override {
        lines.push_back("connect " + name + (client == 0 ? " failed " + std::to_string(error) : ""));
        if (client != 0) lastConnect = client;
    }
    void OnWrite(const std::string& name, Platform::PipeId, const u8* data, i64 taken) override {
        const std::string bytes(reinterpret_cast<const char*>(data), taken > 0 ? static_cast<size_t>(taken) : 0);
        lines.push_back("write " + name + " " + std::to_string(taken) + " " + bytes);
    }

    std::vector<std::string> lines;
    Platform::PipeId lastClient = 0;
    Platform::PipeId lastConnect = 0;
};

TEST(NamedPipeTest, AnObserverIsToldWhatServersDoAndWhoConnects) {
    Simulation sim;
    Notes notes;
    sim.Pipes().SetObserver(&notes);
    sim.Run([&] {
        sim.Pipes().FailInstances("p", EMFILE, 1);
        auto endpoint = CreatePipeEndpoint("p");
        SystemError error = 0;
        EXPECT_EQ(endpoint->CreateInstance(error), nullptr);
        auto instance = NewInstance(*endpoint);
        EXPECT_EQ(Poll(*instance), ConnectState::Pending);
        sim.Pipes().FailConnects("p", ECONNREFUSED, 1);
        EXPECT_EQ(Platform::ConnectPipe("P", error), nullptr);
        auto client = Connect("p");
        EXPECT_EQ(notes.lastConnect, client->Id());
        EXPECT_EQ(Poll(*instance), ConnectState::Connected);
        EXPECT_EQ(notes.lastClient, client->Id());
        EXPECT_EQ(instance->Write("abc", 3), 3);
        client.reset();
        EXPECT_EQ(instance->Write("d", 1), -1);
        instance.reset();
        endpoint.reset();
        sim.Pipes().SetObserver(nullptr);
        EXPECT_NE(CreatePipeEndpoint("q"), nullptr);
    });
    EXPECT_EQ(notes.lines,
              (std::vector<std::string>{"endpoint p", "instance p failed", "instance p", "poll p not",
                                        "connect P failed 111", "connect p", "poll p connected", "writing p",
                                        "write p 3 abc", "writing p", "write p -1 ", "gone p"}));
}

}  // namespace
