// Goal: a link over the network tells its end once, and ends the calls under way with it. Method: a real server that is
// stopped, cut off or frozen, and links that are closed while something goes on.

#include <atomic>

#include "tests/VX/GrpcFixture.h"
#include "tests/VX/TcpRelay.h"

using VX::GrpcOptions;
using VX::ParamListHolder;
using GrpcLinkTest = GrpcFixture;

namespace {

// The service's call waits in here until the test lets it go.
class Gate {
public:
    auto Call() {
        return [this](VX::SessionId, u32, const ParamListHolder& request) {
            entered_.Set();
            open_.WaitFor(20'000);
            return request;
        };
    }
    bool WaitEntered() { return entered_.WaitFor(10'000); }
    void Open() { open_.Set(); }

private:
    Platform::Event entered_;
    Platform::Event open_;
};

}  // namespace

TEST_F(GrpcLinkTest, AStoppedServerIsNoticedAtOnce) {
    Listen();
    TestEvents events;
    const auto link = Connect(events);
    ASSERT_NE(link, nullptr);
    server_->Stop();
    EXPECT_TRUE(events.WaitForCount(1));
    EXPECT_EQ(events.Notes(), Lines{"closed"});
    ParamListHolder reply = TextEvent("old");
    EXPECT_FALSE(link->Call(1, ParamListHolder(), reply));
    EXPECT_FALSE(static_cast<bool>(reply));
}

TEST_F(GrpcLinkTest, AKilledServerIsNoticedAtOnceAndEndsACallUnderWay) {
    Gate gate;
    service_.onCall = gate.Call();
    Listen();
    TcpRelay relay(server_->Port());
    TestEvents events;
    const auto link = Connect(events, {}, relay.Port());
    ASSERT_NE(link, nullptr);
    std::atomic<bool> answered = true;
    Platform::Thread calling("calling", [&] {
        ParamListHolder reply;
        answered = link->Call(1, ParamListHolder(), reply);
    });
    ASSERT_TRUE(gate.WaitEntered());
    const u64 start = Platform::SteadyMilliseconds();
    relay.Cut();
    calling.Join();
    EXPECT_FALSE(answered);
    EXPECT_TRUE(events.WaitForCount(1));
    EXPECT_LT(Platform::SteadyMilliseconds() - start, 5'000u);
    EXPECT_EQ(events.Notes(), Lines{"closed"});
    EXPECT_TRUE(service_.WaitFor("disconnected 1"));
    gate.Open();
}

TEST_F(GrpcLinkTest, AHungServerIsNoticedByKeepalive) {
    Listen();
    TcpRelay relay(server_->Port());
    GrpcOptions options;
    options.keepaliveMilliseconds = 300;
    options.keepaliveTimeoutMilliseconds = 300;
    TestEvents events;
    const auto link = Connect(events, options, relay.Port());
    ASSERT_NE(link, nullptr);
    Platform::SleepMilliseconds(1'500);  // pings that are answered do no harm
    EXPECT_EQ(events.Notes(), Lines{});
    relay.Freeze();
    EXPECT_TRUE(events.WaitForCount(1));
    EXPECT_EQ(events.Notes(), Lines{"closed"});
}

TEST_F(GrpcLinkTest, ACallThatTimesOutEndsTheConnection) {
    Gate gate;
    service_.onCall = gate.Call();
    Listen();
    GrpcOptions options;
    options.callMilliseconds = 300;
    TestEvents events;
    const auto link = Connect(events, options);
    ASSERT_NE(link, nullptr);
    const u64 start = Platform::SteadyMilliseconds();
    ParamListHolder reply;
    EXPECT_FALSE(link->Call(1, ParamListHolder(), reply));
    EXPECT_GE(Platform::SteadyMilliseconds() - start, 300u);
    EXPECT_TRUE(events.WaitForCount(1));
    EXPECT_EQ(events.Notes(), Lines{"closed"});
    EXPECT_FALSE(link->Call(2, ParamListHolder(), reply));
    gate.Open();
}

TEST_F(GrpcLinkTest, CloseEndsACallUnderWayAndNoEventComesAfterIt) {
    Gate gate;
    service_.onCall = gate.Call();
    Listen();
    TestEvents events;
    const auto link = Connect(events);
    ASSERT_NE(link, nullptr);
    std::atomic<bool> answered = true;
    Platform::Thread calling("calling", [&] {
        ParamListHolder reply;
        answered = link->Call(1, ParamListHolder(), reply);
    });
    ASSERT_TRUE(gate.WaitEntered());
    link->Close();
    const Lines before = events.Notes();
    calling.Join();
    EXPECT_FALSE(answered);
    server_->Raise("S", TextEvent("late"));
    gate.Open();
    EXPECT_TRUE(service_.WaitFor("disconnected 1"));
    server_->Stop();
    link->Close();
    EXPECT_EQ(before, Lines{});
    EXPECT_EQ(events.Notes(), Lines{});
}

TEST_F(GrpcLinkTest, CloseWaitsForAnEventThatIsBeingTold) {
    Listen();
    TestEvents events;
    std::atomic<bool> told = false;
    Platform::Event entered;
    events.inSignal = [&] {
        entered.Set();
        Platform::SleepMilliseconds(200);
        told = true;
    };
    const auto link = Connect(events);
    ASSERT_NE(link, nullptr);
    server_->Raise("S", TextEvent("1"));
    ASSERT_TRUE(entered.WaitFor(10'000));
    link->Close();
    EXPECT_TRUE(told);
}
