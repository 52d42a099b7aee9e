// Goal: no peer, however hostile, slow or broken, gets in without credentials or hurts the others. Method: clients
// that speak the protocol by hand, and plain sockets.

#include <algorithm>
#include <atomic>
#include <system_error>

#include "tests/VX/GrpcFixture.h"
#include "tests/VX/TcpRelay.h"
#include "tests/faults/Http2Peer.h"
#include "tests/support/SpareFiles.h"

using VX::GrpcOptions;
using VX::ParamListHolder;

namespace {

class GrpcServerTest : public GrpcFixture {
protected:
    // An ordinary client is served.
    void ExpectServed() {
        TestEvents events;
        const auto link = Connect(events);
        ASSERT_NE(link, nullptr);
        ParamListHolder reply;
        ASSERT_TRUE(link->Call(5, TextEvent("x"), reply));
        EXPECT_EQ(VXGetInt32Value(reply.Get(), "number"), 5);
        server_->Raise("S", TextEvent("event"));
        EXPECT_TRUE(events.WaitForCount(1));
        EXPECT_EQ(events.Notes(), Lines{"S:event"});
    }
    // What the server has to say is read until it has closed; then the socket is.
    static bool WaitForTheEnd(int socket) {
        char answer[4096];
        pollfd polled = {socket, POLLIN, 0};
        ssize_t count = 1;
        while (count > 0 && poll(&polled, 1, 10'000) == 1) count = recv(socket, answer, sizeof(answer), 0);
        close(socket);
        return count <= 0;
    }
};

}  // namespace

TEST_F(GrpcServerTest, ACallWithoutASessionOrWithAGuessedTokenIsRefused) {
    Listen();
    std::atomic<u32> calls = 0;
    service_.onCall = [&](VX::SessionId, u32, const ParamListHolder& request) {
        calls++;
        return request;
    };
    RawClient client(server_->Port());
    EXPECT_EQ(client.Call("", ""), grpc::StatusCode::UNAUTHENTICATED);
    EXPECT_EQ(client.Call(std::string(32, '\0'), ""), grpc::StatusCode::UNAUTHENTICATED);
    std::string token = client.Open(credentials_);
    ASSERT_EQ(token.size(), 32u);
    EXPECT_EQ(client.Call(token, ""), grpc::StatusCode::OK);
    token.back() = static_cast<char>(token.back() ^ 1);
    EXPECT_EQ(client.Call(token, ""), grpc::StatusCode::UNAUTHENTICATED);
    EXPECT_EQ(calls, 1u);
}

TEST_F(GrpcServerTest, ATokenIsGoodOnItsOwnConnectionOnly) {
    Listen();
    RawClient owner(server_->Port());
    RawClient thief(server_->Port());
    const std::string token = owner.Open(credentials_);
    ASSERT_NE(token, "");
    EXPECT_EQ(thief.Call(token, ""), grpc::StatusCode::UNAUTHENTICATED);
    ASSERT_NE(thief.Open(credentials_), "");
    EXPECT_EQ(thief.Call(token, ""), grpc::StatusCode::UNAUTHENTICATED);
    EXPECT_EQ(owner.Call(token, ""), grpc::StatusCode::OK);
}

TEST_F(GrpcServerTest, ATokenEndsWithItsStream) {
    Listen();
    RawClient client(server_->Port());
    const std::string token = client.Open(credentials_);
    ASSERT_NE(token, "");
    client.End();
    ASSERT_TRUE(service_.WaitFor("disconnected 1"));
    EXPECT_EQ(client.Call(token, ""), grpc::StatusCode::UNAUTHENTICATED);
}

TEST_F(GrpcServerTest, EverySessionHasATokenOfItsOwn) {
    Listen();
    std::vector<std::unique_ptr<RawClient>> clients;
    std::vector<std::string> tokens;
    for (int i = 0; i < 30; i++) {
        clients.push_back(std::make_unique<RawClient>(server_->Port()));
        tokens.push_back(clients.back()->Open(credentials_));
        ASSERT_NE(tokens.back(), "");
        for (int other = 0; other < i; other++) EXPECT_NE(tokens[static_cast<u64>(other)], tokens.back());
    }
    for (u64 i = 0; i < clients.size(); i++) EXPECT_EQ(clients[i]->Call(tokens[i], ""), grpc::StatusCode::OK);
    clients.clear();
    for (int i = 1; i <= 30; i++) EXPECT_TRUE(service_.WaitFor("disconnected " + std::to_string(i)));
}

TEST_F(GrpcServerTest, WrongCredentialsGetNoSession) {
    Listen();
    RawClient client(server_->Port());
    EXPECT_EQ(client.Open("user:wrong"), "");
    EXPECT_EQ(client.Drain(), grpc::StatusCode::UNAUTHENTICATED);
    EXPECT_EQ(service_.Notes(), Lines{"login from somewhere"});
}

TEST_F(GrpcServerTest, BytesThatAreNoListAreRefusedAndTheSessionStands) {
    Listen();
    RawClient client(server_->Port());
    const std::string token = client.Open(credentials_);
    ASSERT_NE(token, "");
    EXPECT_EQ(client.Call(token, "\xFF\xFF\xFF"), grpc::StatusCode::INVALID_ARGUMENT);
    EXPECT_EQ(client.Call(token, std::string(100'000, '\x0A')), grpc::StatusCode::INVALID_ARGUMENT);
    EXPECT_EQ(client.Call(token, ""), grpc::StatusCode::OK);
}

TEST_F(GrpcServerTest, AnOversizedRequestIsRefusedAndTheServerStands) {
    Listen();
    RawClient client(server_->Port());
    const std::string token = client.Open(credentials_);
    ASSERT_NE(token, "");
    EXPECT_EQ(client.Call(token, std::string(65u << 20, 'x')), grpc::StatusCode::RESOURCE_EXHAUSTED);
    ExpectServed();
}

TEST_F(GrpcServerTest, AnExceptionOfTheServiceFailsItsCallOnly) {
    service_.onCall = [](VX::SessionId, u32 number, const ParamListHolder&) -> ParamListHolder {
        if (number == 0) throw std::runtime_error("from a test");
        ParamListHolder reply;
        reply.NewList();
        VXSetInt32Value(reply.Get(), "number", static_cast<i32>(number));
        return reply;
    };
    Listen();
    RawClient client(server_->Port());
    const std::string token = client.Open(credentials_);
    EXPECT_EQ(client.Call(token, ""), grpc::StatusCode::INTERNAL);
    ExpectServed();
}

TEST_F(GrpcServerTest, AClientThatDoesNotReadIsDisconnectedAndHoldsUpNobody) {
    GrpcOptions options;
    options.queueBytes = 4u << 20;
    Listen(options);
    TestEvents events;
    const auto link = Connect(events);
    ASSERT_NE(link, nullptr);
    RawClient slow(server_->Port());
    ASSERT_NE(slow.Open(credentials_), "");
    const std::string large(256u << 10, 'x');
    Lines expected;
    for (u64 i = 0; i < 100; i++) {  // 25 MB, far beyond what the transport itself takes
        server_->Raise(std::to_string(i), TextEvent(large));
        expected.push_back(std::to_string(i) + ":" + large);
        ASSERT_TRUE(events.WaitForCount(i + 1));
    }
    EXPECT_TRUE(service_.WaitFor("disconnected 2"));
    const Lines told = service_.Notes();
    EXPECT_EQ(std::find(told.begin(), told.end(), "fallen behind 2") + 1,
              std::find(told.begin(), told.end(), "disconnected 2"))
        << "the service is told why, in front of the end";
    EXPECT_NE(slow.Drain(), grpc::StatusCode::OK);
    EXPECT_LT(slow.Messages(), 100u);
    EXPECT_EQ(events.Notes(), expected);
}

TEST_F(GrpcServerTest, ManySmallSignalsCountForWhatTheyTakeInMemory) {
    // A signal of a few bytes takes some hundred in memory. When only the bytes on the wire counted, what waited for
    // one client could take several times the limit.
    GrpcOptions options;
    options.queueBytes = 8u << 20;
    Listen(options);
    RawClient slow(server_->Port());
    ASSERT_NE(slow.Open(credentials_), "");
    // First what the transport itself takes, so that nothing more leaves; there is room for it all.
    for (u32 i = 0; i < 24; ++i) server_->Raise("L", TextEvent(std::string(256u << 10, 'x')));
    const Lines told = service_.Notes();
    EXPECT_EQ(std::find(told.begin(), told.end(), "fallen behind 1"), told.end());
    // At 256 bytes of memory or more each, these have not; on the wire they would.
    for (u32 i = 0; i < (8u << 20) / 256 + 20'000; ++i) server_->Raise("S", TextEvent("x"));
    EXPECT_TRUE(service_.WaitFor("fallen behind 1"));
    EXPECT_TRUE(service_.WaitFor("disconnected 1"));
    ExpectServed();
}

TEST_F(GrpcServerTest, AClientThatHasHungIsGivenUpWhetherSignalsWaitForItOrNot) {
    GrpcOptions options;
    options.keepaliveMilliseconds = 300;
    options.keepaliveTimeoutMilliseconds = 300;
    Listen(options);
    TcpRelay relay(server_->Port());
    TestEvents first;
    TestEvents second;
    const auto idle = Connect(first, {}, relay.Port());
    ASSERT_NE(idle, nullptr);
    relay.Freeze();
    EXPECT_TRUE(service_.WaitFor("disconnected 1"));

    TcpRelay other(server_->Port());
    const auto told = Connect(second, {}, other.Port());
    ASSERT_NE(told, nullptr);
    other.Freeze();
    for (u32 i = 0; i < 100; i++) server_->Raise("S", TextEvent(std::string(10'000, 'x')));
    EXPECT_TRUE(service_.WaitFor("disconnected 2"));
    ExpectServed();
}

TEST_F(GrpcServerTest, ASignalThatIsTooLargeEndsTheSessionsInsteadOfBeingLost) {
    Listen();
    TestEvents events;
    const auto link = Connect(events);
    ASSERT_NE(link, nullptr);
    server_->Raise("S", TextEvent(std::string(65u << 20, 'x')));
    EXPECT_TRUE(events.WaitForCount(1));
    EXPECT_EQ(events.Notes(), Lines{"closed"});
    ExpectServed();
}

TEST_F(GrpcServerTest, GarbageAndHalfOpenConnectionsAreDroppedAndHurtNobody) {
    GrpcOptions options;
    options.handshakeMilliseconds = 500;
    Listen(options);
    const int silent = ConnectSocket(server_->Port());
    const int garbage = ConnectSocket(server_->Port());
    ASSERT_TRUE(silent >= 0 && garbage >= 0);
    const std::string bytes(10'000, '\xA5');
    EXPECT_GT(send(garbage, bytes.data(), bytes.size(), MSG_NOSIGNAL), 0);
    ExpectServed();
    EXPECT_TRUE(WaitForTheEnd(silent));
    EXPECT_TRUE(WaitForTheEnd(garbage));
}

// Found with the real program: gRPC takes in a message of any length as a whole before it looks at its limit, and so
// one stranger's half message of two gigabytes took as much memory.
TEST_F(GrpcServerTest, AStrangerWhoSendsMuchIsCutOffAndAClientIsNot) {
    GrpcOptions options;
    options.strangerBytes = 64u << 10;
    Listen(options);
    const int stranger = ConnectSocket(server_->Port());
    ASSERT_GE(stranger, 0);
    std::string bytes = "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" + std::string("\0\0\0\4\0\0\0\0\0", 9);
    for (int ping = 0; ping < 5000; ping++) bytes += std::string("\0\0\x08\6\1\0\0\0\0abcdefgh", 17);
    EXPECT_GT(send(stranger, bytes.data(), bytes.size(), MSG_NOSIGNAL), 0);
    EXPECT_TRUE(WaitForTheEnd(stranger));
    RawClient client(server_->Port());
    const std::string token = client.Open(credentials_);
    ASSERT_NE(token, "");
    EXPECT_EQ(client.Call(token, std::string(8u << 20, '\xFF')), grpc::StatusCode::INVALID_ARGUMENT);
    ExpectServed();
}

TEST_F(GrpcServerTest, AStrangerWhoDoesNotLogInIsCutOffAndAClientStays) {
    GrpcOptions options;
    options.strangerMilliseconds = 500;
    Listen(options);
    TestEvents events;
    const auto link = Connect(events);
    ASSERT_NE(link, nullptr);
    const int half = ConnectSocket(server_->Port());
    ASSERT_GE(half, 0);
    const std::string preface = "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" + std::string("\0\0\0\4\0\0\0\0\0", 9);
    EXPECT_EQ(send(half, preface.data(), preface.size(), MSG_NOSIGNAL), static_cast<ssize_t>(preface.size()));
    EXPECT_TRUE(WaitForTheEnd(half));
    ParamListHolder reply;
    EXPECT_TRUE(link->Call(1, ParamListHolder(), reply));
}

TEST_F(GrpcServerTest, AStrangerWhoSendsALoginByteByByteIsCutOffTooWhenHisTimeIsOver) {
    GrpcOptions options;
    options.strangerMilliseconds = 500;
    Listen(options);
    const auto start = std::chrono::steady_clock::now();
    OrvTest::Http2Peer slow(static_cast<int>(server_->Port()));
    const std::string login = OrvTest::Http2Peer::LoginRequest("user:" + std::string(120, 'x'));
    ASSERT_TRUE(slow.Send(OrvTest::Http2Peer::Preface()));
    bool ended = false;
    for (std::size_t at = 0; at + 1 < login.size() && !ended; at++) {
        slow.Send(login.substr(at, 1));
        ended = slow.Receive(20).type == -1;
    }
    EXPECT_TRUE(ended || slow.WaitForEnd(10'000));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(450)) << "what he sent was right";
    ExpectServed();
}

TEST_F(GrpcServerTest, SlowLoginsHoldUpNoCallsAndTooManyAreTurnedAwayUnrefused) {
    Platform::Event open;
    std::atomic<u32> guesses = 0;
    service_.authenticate = [&](const std::string& credentials) {
        if (credentials != "guess") return true;
        guesses++;
        open.WaitFor(20'000);
        return false;
    };
    GrpcOptions options;
    options.loginThreads = 2;
    options.maxWaitingLogins = 1;
    Listen(options);
    TestEvents events;
    const auto link = Connect(events);
    ASSERT_NE(link, nullptr);

    std::vector<Platform::Thread> guessing;
    for (u32 i = 1; i <= 2; i++) {
        guessing.emplace_back("guessing", [this] {
            RawClient client(server_->Port());
            EXPECT_EQ(client.Open("guess"), "");
            EXPECT_EQ(client.Drain(), grpc::StatusCode::UNAUTHENTICATED);
        });
        for (int tries = 0; tries < 500 && guesses != i; tries++) Platform::SleepMilliseconds(10);
        ASSERT_EQ(guesses, i);
    }
    // One more waits for its turn, until it gives up; its place stays taken. There is none for the next.
    GrpcOptions quick;
    quick.connectMilliseconds = 500;
    TestEvents none;
    EXPECT_EQ(Connect(none, quick), nullptr);
    EXPECT_FALSE(authFailed_);
    RawClient next(server_->Port());
    EXPECT_EQ(next.Open(credentials_), "");
    EXPECT_EQ(next.Drain(), grpc::StatusCode::UNAVAILABLE);
    ParamListHolder reply;
    EXPECT_TRUE(link->Call(1, ParamListHolder(), reply));
    open.Set();
    for (Platform::Thread& thread : guessing) thread.Join();
}

TEST_F(GrpcServerTest, AClientThatLeavesDuringItsLoginIsNoSession) {
    Platform::Event entered;
    Platform::Event open;
    service_.authenticate = [&](const std::string&) {
        entered.Set();
        return open.WaitFor(20'000);
    };
    Listen();
    GrpcOptions quick;
    quick.connectMilliseconds = 200;
    TestEvents events;
    EXPECT_EQ(Connect(events, quick), nullptr);
    EXPECT_TRUE(entered.WaitFor(10'000));
    // The server learns of it on a thread of its own.
    Platform::SleepMilliseconds(300);
    open.Set();
    EXPECT_TRUE(service_.WaitFor("connected 1 user"));
    EXPECT_TRUE(service_.WaitFor("disconnected 1"));
}

TEST_F(GrpcServerTest, StopWaitsForTheCallsUnderWayAndMayBeRepeated) {
    Platform::Event entered;
    std::atomic<bool> answered = false;
    service_.onCall = [&](VX::SessionId, u32, const ParamListHolder& request) {
        entered.Set();
        Platform::SleepMilliseconds(300);
        answered = true;
        return request;
    };
    Listen();
    TestEvents events;
    const auto link = Connect(events);
    ASSERT_NE(link, nullptr);
    Platform::Thread calling("calling", [&] {
        ParamListHolder reply;
        EXPECT_FALSE(link->Call(1, ParamListHolder(), reply));
    });
    ASSERT_TRUE(entered.WaitFor(10'000));
    const u32 port = server_->Port();
    server_->Stop();
    EXPECT_TRUE(answered);
    EXPECT_EQ(service_.Notes().back(), "disconnected 1");
    calling.Join();
    server_->Stop();
    server_->Raise("S", TextEvent("nobody"));
    EXPECT_EQ(server_->Port(), port);
    EXPECT_EQ(Connect(events), nullptr);
}

TEST_F(GrpcServerTest, APortThatIsTakenIsRefusedWithAReason) {
    Listen();
    std::string reason;
    EXPECT_EQ(VX::CreateGrpcServer("127.0.0.1", server_->Port(), service_, reason), nullptr);
    EXPECT_EQ(reason, "cannot listen on 127.0.0.1:" + std::to_string(server_->Port()) + ": Address already in use");
    EXPECT_EQ(VX::CreateGrpcServer("127.0.0.1", 70'000, service_, reason), nullptr);
    EXPECT_EQ(reason, "there is no port 70000");
    ExpectServed();
}

// gRPC ended the process.
TEST_F(GrpcServerTest, WhereDescriptorsAreTooFewThereIsAnExceptionAndNoServer) {
    {
        // Far from enough: what the tests before have left is closed any time.
        const OrvTest::SpareFiles few(2);
        std::string reason;
        EXPECT_THROW(VX::CreateGrpcServer("127.0.0.1", 0, service_, reason), std::system_error);
    }
    Listen();
    ExpectServed();
}

TEST_F(GrpcServerTest, AddressesAreWrittenForPeople) {
    EXPECT_EQ(VX::JoinAddress("127.0.0.1", 5480), "127.0.0.1:5480");
    EXPECT_EQ(VX::JoinAddress("::1", 5480), "[::1]:5480");
    EXPECT_EQ(VX::JoinAddress("[::1]", 5480), "[::1]:5480");
    EXPECT_EQ(VX::PeerAddress("ipv4:127.0.0.1:7"), "127.0.0.1:7");
    EXPECT_EQ(VX::PeerAddress("ipv6:%5B::1%5D:7"), "[::1]:7");
    EXPECT_EQ(VX::PeerAddress("unix:/x"), "unix:/x");
}
