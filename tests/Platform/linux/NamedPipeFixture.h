// Pipes in a folder of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Platform/NamedPipe.h"
#include "tests/support/Process.h"

namespace Platform {

class NamedPipeTest : public testing::Test {
protected:
    using Outcome = IPipeClient::Outcome;
    static constexpr u64 kBlock = 2000;

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

    OrvTest::TempFolder folder_;
};

}  // namespace Platform
