// Goal: a link over the network keeps the promises of VX/Link.h, whoever answers, or does not, and whatever it carries.
// Method: a real server on a free port of this machine, with limits shortened where a test has to reach them.

#include <atomic>

#include "tests/VX/GrpcFixture.h"
#include "tests/VX/TcpRelay.h"
#include "tests/faults/RawServer.h"
#include "tests/support/SpareFiles.h"

using VX::GrpcOptions;
using VX::ParamListHolder;
using GrpcLinkTest = GrpcFixture;

TEST_F(GrpcLinkTest, ConnectTellsWhoIsAtTheOtherEnd) {
    Listen();
    TestEvents events;
    const auto link = Connect(events);
    ASSERT_NE(link, nullptr);
    EXPECT_FALSE(authFailed_);
    EXPECT_EQ(peer_.application, "ConfigService");
    EXPECT_EQ(peer_.peerType, "DBProvider");
    EXPECT_EQ(peer_.remote, "127.0.0.1:" + std::to_string(server_->Port()));
    EXPECT_EQ(peer_.local.compare(0, 10, "127.0.0.1:"), 0);
    EXPECT_EQ(service_.Notes(), (Lines{"login from somewhere", "connected 1 user"}));
}

TEST_F(GrpcLinkTest, CredentialsArriveByteForByteWithTheirNul) {
    std::string seen;
    service_.authenticate = [&](const std::string& credentials) {
        seen = credentials;
        return true;
    };
    credentials_ = std::string(
        "us\xFF"
        "er:p\0ss\0",
        11);
    Listen();
    TestEvents events;
    EXPECT_NE(Connect(events), nullptr);
    EXPECT_EQ(seen, credentials_);
}

TEST_F(GrpcLinkTest, WrongCredentialsAreRefused) {
    Listen();
    TestEvents events;
    credentials_ = "user:wrong";
    EXPECT_EQ(Connect(events), nullptr);
    EXPECT_TRUE(authFailed_);
    EXPECT_EQ(service_.Notes(), Lines{"login from somewhere"});
    EXPECT_EQ(events.Notes(), Lines{});
}

TEST_F(GrpcLinkTest, WhereNobodyListensConnectFailsAtOnce) {
    u32 port = 0;
    {
        TcpRelay gone;
        port = gone.Port();
    }
    TestEvents events;
    authFailed_ = true;
    const u64 start = Platform::SteadyMilliseconds();
    EXPECT_EQ(Connect(events, {}, port), nullptr);
    EXPECT_FALSE(authFailed_);
    EXPECT_LT(Platform::SteadyMilliseconds() - start, 5'000u);
}

TEST_F(GrpcLinkTest, NonsenseAddressesAreNotConnected) {
    GrpcOptions quick;
    quick.connectMilliseconds = 1'000;
    TestEvents events;
    const auto connector = VX::CreateGrpcConnector(quick);
    EXPECT_EQ(connector->Connect("", 5480, credentials_, events, peer_, authFailed_), nullptr);
    EXPECT_EQ(connector->Connect("127.0.0.1", 0, credentials_, events, peer_, authFailed_), nullptr);
    EXPECT_EQ(connector->Connect("127.0.0.1", 65536, credentials_, events, peer_, authFailed_), nullptr);
    EXPECT_EQ(connector->Connect("unix:/tmp/x", 1, credentials_, events, peer_, authFailed_), nullptr);
    EXPECT_EQ(connector->Connect("not a host", 1, credentials_, events, peer_, authFailed_), nullptr);
}

TEST_F(GrpcLinkTest, APeerThatDoesNotAnswerEndsConnectAtItsTimeLimit) {
    TcpRelay silent;
    GrpcOptions options;
    options.connectMilliseconds = 400;
    TestEvents events;
    const u64 start = Platform::SteadyMilliseconds();
    EXPECT_EQ(Connect(events, options, silent.Port()), nullptr);
    EXPECT_FALSE(authFailed_);
    EXPECT_GE(Platform::SteadyMilliseconds() - start, 400u);
    EXPECT_LT(Platform::SteadyMilliseconds() - start, 5'000u);
}

// The library takes in a message of any length as a whole before it looks at the length: one of 2 GB took 2 GB. That it
// is the limit which ends it shows in that as much is taken as it lets, and without it all.
TEST_F(GrpcLinkTest, OfAMessageWithoutAnEndAsMuchIsTakenAsMayBeUnderWay) {
    constexpr u64 offered = 128u << 20;
    constexpr u64 inTheSockets = 12u << 20;
    const auto taken = [&](u64 limit, u32 milliseconds) {
        GrpcOptions options;
        options.transportBytes = limit;
        options.connectMilliseconds = milliseconds;
        OrvTest::EndlessMessage endless(offered);
        {
            const OrvTest::RawServer server(std::ref(endless));
            TestEvents events;
            EXPECT_EQ(Connect(events, options, static_cast<u32>(server.Port())), nullptr);
            EXPECT_FALSE(authFailed_);
        }
        return endless.Tries().empty() ? 0 : endless.Tries().front().bytes;
    };
    for (const u64 limit : {2u << 20, 8u << 20, 32u << 20}) {
        const u64 bytes = taken(limit, 10'000);
        EXPECT_GT(bytes, limit / 2);
        EXPECT_LT(bytes, limit + limit / 4 + inTheSockets);
    }
    // All the time that a slow machine may need.
    EXPECT_GE(taken(8 * offered, 25'000), offered);
}

// It was asked for until the library had begun, and no more after that.
TEST_F(GrpcLinkTest, EachTryIsMadeOnlyWhereThereIsRoomForItsDescriptors) {
    Listen();
    TcpRelay silent;
    GrpcOptions options;
    options.connectMilliseconds = 4'000;
    TestEvents events;
    const auto connector = VX::CreateGrpcConnector(options);
    const auto connect = [&](u32 port) {
        return connector->Connect("127.0.0.1", port, credentials_, events, peer_, authFailed_);
    };
    ASSERT_NE(connect(server_->Port()), nullptr);
    {
        // Far from enough: what the connections before have left is closed any time.
        const OrvTest::SpareFiles few(2);
        const u64 start = Platform::SteadyMilliseconds();
        EXPECT_EQ(connect(silent.Port()), nullptr);
        EXPECT_LT(Platform::SteadyMilliseconds() - start, 4'000u) << "nobody was asked";
    }
    EXPECT_NE(connect(server_->Port()), nullptr);
}

TEST_F(GrpcLinkTest, CallsCarryTheirListsBothWays) {
    Listen();
    TestEvents events;
    const auto link = Connect(events);
    ASSERT_NE(link, nullptr);
    ParamListHolder reply;
    ASSERT_TRUE(link->Call(4'000'000'000, TextEvent("na\xEFve"), reply));
    EXPECT_EQ(VXGetInt32Value(reply.Get(), "number"), static_cast<i32>(4'000'000'000));
    EXPECT_EQ(TextOf(reply.GetHandle("request")), "na\xEFve");
}

TEST_F(GrpcLinkTest, ANullRequestAndANullReplyAreEmptyLists) {
    Listen();
    std::atomic<bool> wasEmptyList{false};  // set on a thread of the server
    service_.onCall = [&](VX::SessionId, u32, const ParamListHolder& request) {
        wasEmptyList = request.Get() != nullptr && VXGetParamCount(request.Get()) == 0;
        return ParamListHolder();
    };
    TestEvents events;
    const auto link = Connect(events);
    ASSERT_NE(link, nullptr);
    ParamListHolder reply;
    ASSERT_TRUE(link->Call(1, ParamListHolder(), reply));
    EXPECT_TRUE(wasEmptyList);
    EXPECT_NE(reply.Get(), nullptr);
    EXPECT_EQ(VXGetParamCount(reply.Get()), 0u);
}

TEST_F(GrpcLinkTest, AReplyOf20000RowsArrivesWhole) {
    constexpr u32 Rows = 20'000;
    ParamListHolder table;
    table.NewList();
    {
        std::vector<ParamListHolder> rows(Rows);
        std::vector<HVXPARAMLIST> handles;
        for (u32 i = 0; i < Rows; i++) {
            rows[i].NewList();
            VXSetInt32Value(rows[i].Get(), "id", static_cast<i32>(i));
            VXSetStringValue(rows[i].Get(), "thename", std::string(250, static_cast<char>('a' + i % 26)).c_str());
            handles.push_back(rows[i].Get());
        }
        VXSetHandleArray(table.Get(), "OD", handles.data(), Rows);
    }
    service_.onCall = [&](VX::SessionId, u32, const ParamListHolder&) { return table; };
    Listen();
    TestEvents events;
    const auto link = Connect(events);
    ASSERT_NE(link, nullptr);
    ParamListHolder reply;
    ASSERT_TRUE(link->Call(7, ParamListHolder(), reply));
    VXHandleArray array = {};
    VXGetHandleArray(&array, reply.Get(), "OD");
    ASSERT_EQ(array.count, Rows);
    const u8* ids = reinterpret_cast<const u8*>(array.ids);
    for (u32 i = 0; i < Rows; i++) {
        const HVXPARAMLIST row = VXGetHandleById(reply.Get(), VXReadInt32(ids + 4ull * i));
        ASSERT_EQ(VXGetInt32Value(row, "id"), static_cast<i32>(i));
        ASSERT_EQ(VXGetStringValue(row, "thename"), std::string(250, static_cast<char>('a' + i % 26)));
    }
}

TEST_F(GrpcLinkTest, AnOversizedReplyEndsTheConnectionAndHarmsNobodyElse) {
    const std::string half(33u << 20, 'x');
    service_.onCall = [&](VX::SessionId, u32 number, const ParamListHolder& request) {
        if (number != 7) return request;
        ParamListHolder reply = TextEvent(half);
        VXSetStringValue(reply.Get(), "more", half.c_str());
        return reply;
    };
    Listen();
    TestEvents events;
    TestEvents otherEvents;
    const auto link = Connect(events);
    const auto other = Connect(otherEvents);
    ASSERT_TRUE(link != nullptr && other != nullptr);
    ParamListHolder reply;
    EXPECT_FALSE(link->Call(7, ParamListHolder(), reply));
    EXPECT_TRUE(events.WaitForCount(1));
    EXPECT_EQ(events.Notes(), Lines{"closed"});
    EXPECT_TRUE(other->Call(1, TextEvent("well"), reply));
    EXPECT_EQ(TextOf(reply), "well");
}

TEST_F(GrpcLinkTest, AReplyOfAlmost64MegabytesIsTaken) {
    const std::string large((64u << 20) - 100, 'x');
    service_.onCall = [&](VX::SessionId, u32, const ParamListHolder&) { return TextEvent(large); };
    Listen();
    TestEvents events;
    const auto link = Connect(events);
    ASSERT_NE(link, nullptr);
    ParamListHolder reply;
    ASSERT_TRUE(link->Call(7, ParamListHolder(), reply));
    EXPECT_EQ(TextOf(reply).size(), large.size());
}

TEST_F(GrpcLinkTest, ARequestThatIsTooLargeOrTooDeepEndsTheConnection) {
    Listen();
    ParamListHolder deep = TextEvent("x");
    for (int i = 0; i < 16; i++) {
        ParamListHolder outer;
        outer.NewList();
        VXSetHandleValue(outer.Get(), "in", deep.Get());
        deep = outer;
    }
    for (const ParamListHolder& request : {deep, TextEvent(std::string(65u << 20, 'x'))}) {
        TestEvents events;
        const auto link = Connect(events);
        ASSERT_NE(link, nullptr);
        ParamListHolder reply;
        EXPECT_FALSE(link->Call(1, request, reply));
        EXPECT_TRUE(events.WaitForCount(1));
        EXPECT_EQ(events.Notes(), Lines{"closed"});
    }
}

TEST_F(GrpcLinkTest, SignalsReachEveryClientInTheOrderOfTheRaising) {
    Listen();
    server_->Raise("S", TextEvent("before anybody"));
    TestEvents events[3];
    std::unique_ptr<VX::ILink> links[3];
    Lines expected[3];
    for (int i = 0; i < 300; i++) {
        if (i % 100 == 0) links[i / 100] = Connect(events[i / 100]);
        const std::string name = i % 2 == 0 ? "even" : "odd";
        server_->Raise(name, TextEvent(std::to_string(i)));
        for (int client = 0; client <= i / 100; client++) {
            expected[client].push_back(name + ":" + std::to_string(i));
        }
    }
    for (int client = 0; client < 3; client++) {
        EXPECT_TRUE(events[client].WaitForCount(expected[client].size()));
        EXPECT_EQ(events[client].Notes(), expected[client]);
    }
}

TEST_F(GrpcLinkTest, ManyThreadsMayCallAtATime) {
    Listen();
    TestEvents events;
    const auto link = Connect(events);
    ASSERT_NE(link, nullptr);
    std::atomic<u32> good = 0;
    std::vector<Platform::Thread> threads;
    for (i32 t = 0; t < 6; t++) {
        threads.emplace_back("calling", [&, t] {
            for (i32 i = 0; i < 30; i++) {
                ParamListHolder reply;
                const std::string text = std::to_string(t * 100 + i);
                if (link->Call(static_cast<u32>(i), TextEvent(text), reply) &&
                    VXGetInt32Value(reply.Get(), "number") == i && TextOf(reply.GetHandle("request")) == text) {
                    good++;
                }
            }
        });
    }
    for (Platform::Thread& thread : threads) thread.Join();
    EXPECT_EQ(good, 180u);
}
