// Both ends of a simulated pipe in the hands of a test.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Platform/NamedPipe.h"

namespace PipeTest {

using Platform::ConnectPipe;
using Platform::ConnectState;
using Platform::CreatePipeEndpoint;
using Platform::IPipeClient;
using Platform::IPipeInstance;
using Platform::SystemError;

inline constexpr u64 kBlock = 2000;
using Outcome = IPipeClient::Outcome;

inline std::unique_ptr<IPipeInstance> NewInstance(Platform::IPipeEndpoint& endpoint) {
    SystemError error = 99;
    auto instance = endpoint.CreateInstance(error);
    EXPECT_NE(instance, nullptr);
    EXPECT_EQ(error, 0u);
    return instance;
}

inline ConnectState Poll(IPipeInstance& instance) {
    SystemError error = 99;
    const ConnectState state = instance.PollConnect(error);
    EXPECT_EQ(error != 0, state == ConnectState::Failed);
    return state;
}

inline std::unique_ptr<IPipeClient> Connect(const std::string& name) {
    SystemError error = 99;
    auto client = ConnectPipe(name, error);
    EXPECT_EQ(client == nullptr, error != 0);
    return client;
}

// What one read of up to `size` bytes gives; "closed" with its error or "timed out" otherwise.
inline std::string Read(IPipeClient& client, u64 size, u32 timeout = 0) {
    std::string bytes(size, '?');
    u64 taken = 99;
    SystemError error = 99;
    const Outcome outcome = client.Read(bytes.data(), size, timeout, taken, error);
    if (outcome == Outcome::TimedOut) return "timed out";
    if (outcome == Outcome::Closed) return "closed " + std::to_string(error);
    bytes.resize(taken);
    return bytes;
}

// A connection of which both ends are in the test's hands.
struct Pair {
    std::unique_ptr<Platform::IPipeEndpoint> endpoint = CreatePipeEndpoint("feed");
    std::unique_ptr<IPipeInstance> instance = NewInstance(*endpoint);
    std::unique_ptr<IPipeClient> client = Connect("feed");

    Pair() { EXPECT_EQ(Poll(*instance), ConnectState::Connected); }
};

}  // namespace PipeTest
