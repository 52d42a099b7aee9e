// Goal: the in-process link behaves as one over the network does, without a thread of its own.

#include <gtest/gtest.h>

#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"
#include "VX/Link.h"
#include "VX/VX.h"
#include "tests/VX/TestService.h"

using VX::InProcessExchange;
using VX::ParamListHolder;
using Lines = std::vector<std::string>;

namespace {

const std::string kCredentials("user:pass\0", 10);

std::unique_ptr<VX::ILink> Connect(InProcessExchange& exchange, TestEvents& events,
                                   const std::string& credentials = kCredentials) {
    VX::PeerInfo peer;
    bool authFailed = false;
    return exchange.Connect("host", 5480, credentials, events, peer, authFailed);
}

}  // namespace

TEST(InProcessExchangeTest, ConnectTellsWhoIsAtTheOtherEnd) {
    TestService service;
    TestEvents events;
    InProcessExchange exchange(service, "TheName");
    VX::PeerInfo peer;
    bool authFailed = true;
    const auto link = exchange.Connect("host", 5480, kCredentials, events, peer, authFailed);
    ASSERT_NE(link, nullptr);
    EXPECT_FALSE(authFailed);
    EXPECT_EQ(peer.application, "TheName");
    EXPECT_EQ(peer.peerType, "DBProvider");
    EXPECT_EQ(peer.remote, "host:5480");
    EXPECT_NE(exchange.Port(), 0u);
    EXPECT_EQ(service.Notes(), (Lines{"login from somewhere", "connected 1 user"}));
}

TEST(InProcessExchangeTest, WrongCredentialsAreRefused) {
    TestService service;
    TestEvents events;
    InProcessExchange exchange(service);
    VX::PeerInfo peer;
    bool authFailed = false;
    EXPECT_EQ(exchange.Connect("host", 1, "user:wrong", events, peer, authFailed), nullptr);
    EXPECT_TRUE(authFailed);
    EXPECT_EQ(service.Notes(), Lines{"login from somewhere"});
}

TEST(InProcessExchangeTest, CallsCarryTheirListsBothWaysAsCopies) {
    TestService service;
    TestEvents events;
    InProcessExchange exchange(service);
    const auto link = Connect(exchange, events);
    ParamListHolder kept;
    service.onCall = [&](VX::SessionId session, u32 number, const ParamListHolder& request) {
        EXPECT_EQ(session, 1u);
        EXPECT_EQ(number, 7u);
        kept = request;
        return request;
    };
    const ParamListHolder request = TextEvent("asked");
    ParamListHolder reply;
    ASSERT_TRUE(link->Call(7, request, reply));
    EXPECT_STREQ(VXGetStringValue(reply.Get(), "text"), "asked");
    VXSetStringValue(request.Get(), "text", "changed by the caller");
    EXPECT_STREQ(VXGetStringValue(kept.Get(), "text"), "asked");
    EXPECT_NE(reply.Get(), kept.Get());
}

TEST(InProcessExchangeTest, ANullReplyOfTheServiceIsAnEmptyList) {
    TestService service;
    TestEvents events;
    InProcessExchange exchange(service);
    const auto link = Connect(exchange, events);
    service.onCall = [](VX::SessionId, u32, const ParamListHolder&) { return ParamListHolder(); };
    ParamListHolder reply;
    EXPECT_TRUE(link->Call(1, ParamListHolder(), reply));
    EXPECT_TRUE(static_cast<bool>(reply));
}

TEST(InProcessExchangeTest, SignalsReachEveryClientInTheOrderOfTheRaising) {
    TestService service;
    TestEvents first;
    TestEvents second;
    InProcessExchange exchange(service);
    exchange.Raise("S", TextEvent("before"));
    const auto firstLink = Connect(exchange, first);
    exchange.Raise("S", TextEvent("1"));
    const auto secondLink = Connect(exchange, second);
    exchange.Raise("T", TextEvent("2"));
    EXPECT_EQ(first.Notes(), (Lines{"S:1", "T:2"}));
    EXPECT_EQ(second.Notes(), Lines{"T:2"});
}

TEST(InProcessExchangeTest, AfterCloseNoEventComesAndNoCallIsAnswered) {
    TestService service;
    TestEvents events;
    InProcessExchange exchange(service);
    const auto link = Connect(exchange, events);
    link->Close();
    exchange.Raise("S", TextEvent("late"));
    exchange.Stop();
    ParamListHolder reply = TextEvent("old");
    EXPECT_FALSE(link->Call(1, ParamListHolder(), reply));
    EXPECT_FALSE(static_cast<bool>(reply));
    link->Close();
    EXPECT_EQ(events.Notes(), Lines{});
    EXPECT_EQ(service.Notes().back(), "disconnected 1");
}

TEST(InProcessExchangeTest, StopEndsEveryConnectionAndRefusesNewOnesUntilResume) {
    TestService service;
    TestEvents first;
    TestEvents second;
    InProcessExchange exchange(service);
    const auto firstLink = Connect(exchange, first);
    const auto secondLink = Connect(exchange, second);
    exchange.Stop();
    EXPECT_EQ(first.Notes(), Lines{"closed"});
    EXPECT_EQ(second.Notes(), Lines{"closed"});
    ParamListHolder reply;
    EXPECT_FALSE(firstLink->Call(1, ParamListHolder(), reply));
    EXPECT_EQ(Connect(exchange, first), nullptr);
    exchange.Resume();
    EXPECT_FALSE(firstLink->Call(1, ParamListHolder(), reply));
    EXPECT_NE(Connect(exchange, second), nullptr);
}

TEST(InProcessExchangeTest, AReplyThatComesAfterTheEndIsNotDelivered) {
    TestService service;
    TestEvents events;
    InProcessExchange exchange(service);
    const auto link = Connect(exchange, events);
    service.onCall = [&](VX::SessionId, u32, const ParamListHolder& request) {
        exchange.Stop();
        return request;
    };
    ParamListHolder reply;
    EXPECT_FALSE(link->Call(1, TextEvent("x"), reply));
    EXPECT_FALSE(static_cast<bool>(reply));
    EXPECT_EQ(events.Notes(), Lines{"closed"});
}

TEST(InProcessExchangeTest, OversizedRequestsRepliesAndSignalsEndTheConnection) {
    const std::string half(33u << 20, 'x');
    ParamListHolder oversized;
    oversized.NewList();
    VXSetStringValue(oversized.Get(), "a", half.c_str());
    VXSetStringValue(oversized.Get(), "b", half.c_str());
    TestService service;
    ParamListHolder reply;
    InProcessExchange exchange(service);
    {
        TestEvents events;
        const auto link = Connect(exchange, events);
        EXPECT_FALSE(link->Call(1, oversized, reply));
        EXPECT_EQ(events.Notes(), Lines{"closed"});
    }
    {
        TestEvents events;
        const auto link = Connect(exchange, events);
        service.onCall = [&](VX::SessionId, u32, const ParamListHolder&) { return oversized; };
        EXPECT_FALSE(link->Call(1, ParamListHolder(), reply));
        EXPECT_EQ(events.Notes(), Lines{"closed"});
    }
    {
        TestEvents events;
        const auto link = Connect(exchange, events);
        exchange.Raise("S", oversized);
        EXPECT_EQ(events.Notes(), Lines{"closed"});
    }
}

TEST(InProcessExchangeTest, ALinkOutlivesItsExchangeWithoutHarm) {
    TestService service;
    TestEvents events;
    auto exchange = std::make_unique<InProcessExchange>(service);
    const auto link = Connect(*exchange, events);
    exchange.reset();
    ParamListHolder reply;
    EXPECT_FALSE(link->Call(1, ParamListHolder(), reply));
    EXPECT_EQ(events.Notes(), Lines{"closed"});
}

TEST(InProcessExchangeTest, TheEndOfAnExchangeWaitsForACallUnderWay) {
    Platform::Sim::Simulation simulation;
    simulation.Run([] {
        TestService service;
        TestEvents events;
        bool answered = false;
        service.onCall = [&](VX::SessionId, u32, const ParamListHolder& request) {
            Platform::SleepMilliseconds(100);
            answered = true;
            return request;
        };
        auto exchange = std::make_unique<InProcessExchange>(service);
        const auto link = Connect(*exchange, events);
        Platform::Thread calling("calling", [&] {
            ParamListHolder reply;
            EXPECT_FALSE(link->Call(1, ParamListHolder(), reply));
        });
        Platform::SleepMilliseconds(10);
        exchange.reset();
        EXPECT_TRUE(answered);
        calling.Join();
    });
}

// The whole road inside one process: service, exchange, library, slot.
TEST(InProcessExchangeTest, TheLibraryRunsOverIt) {
    Platform::Sim::Simulation simulation;
    simulation.Run([] {
        static Lines log;
        log.clear();
        TestService service;
        InProcessExchange exchange(service);
        VXSetConnector(&exchange);
        VXSetDisconnectListener([](const char* application, u64, u64) -> i32 {
            log.emplace_back(std::string("lost ") + application);
            return 0;
        });
        ASSERT_EQ(VXInitialize("AudioProvider", 0, 0), 0u);
        EXPECT_EQ(VXConnect("host", exchange.Port(), nullptr, 0, "user:wrong", 11), 2u);
        char name[256];
        ASSERT_EQ(VXConnect("host", exchange.Port(), name, 256, "user:pass", 10), 0u);
        exchange.Raise("UPDOfAUDIOFEED", TextEvent("kept"));
        VXRegisterSlot(
            1,
            [](HVXPARAMLIST request, HVXPARAMLIST, VXSlotRecord*) -> i32 {
                const auto reply = ParamListHolder::FromRefHandle(VXCall("ConfigService", 6, request));
                log.emplace_back(VXGetStringValue(reply.GetHandle("request").Get(), "text"));
                return 0;
            },
            nullptr);
        VXConnectSignal(name, "UPDOfAUDIOFEED", 1);
        exchange.Raise("UPDOfAUDIOFEED", TextEvent("second"));
        Platform::SleepMilliseconds(1);
        exchange.Stop();
        Platform::SleepMilliseconds(1);
        VXShutdown(0);
        VXSetDisconnectListener(nullptr);
        VXSetConnector(nullptr);
        EXPECT_EQ(log, (Lines{"kept", "second", "lost ConfigService"}));
    });
}
