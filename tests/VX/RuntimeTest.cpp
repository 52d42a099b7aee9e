// Goal: connecting, calling, disconnecting and shutting down, as told in VX.h. Method: simulated threads over a
// scripted link, so that a wait that never ends fails the test as a deadlock instead of hanging it.

#include "VX/VX.h"

#include <gtest/gtest.h>

#include "tests/VX/RuntimeFixture.h"

namespace {

class RuntimeTest : public RuntimeFixture {};

}  // namespace

TEST_F(RuntimeTest, ConnectGivesTheApplicationsNameAndTellsTheConnectListenerFirst) {
    Run([&] {
        char name[256] = "";
        EXPECT_EQ(VXConnect("127.0.0.1", 5480, name, 256, "user:pass", 10), 0u);
        EXPECT_STREQ(name, "ConfigService");
        EXPECT_EQ(log_, Lines{connected_});
    });
    EXPECT_EQ(script_.host, "127.0.0.1");
    EXPECT_EQ(script_.port, 5480u);
}

TEST_F(RuntimeTest, CredentialsArePassedOnByteForByteWithTheirNul) {
    Run([&] { Connect(); });
    EXPECT_EQ(script_.credentials, std::string("user:pass\0", 10));
}

TEST_F(RuntimeTest, NameIsCutToTheRoomThereIs) {
    Run([&] {
        char name[7] = "......";
        EXPECT_EQ(VXConnect("h", 1, name, 7, nullptr, 0), 0u);
        EXPECT_STREQ(name, "Config");
        char untouched[2] = {'x', 'x'};
        EXPECT_EQ(VXConnect("h", 1, untouched, 0, nullptr, 0), 0u);
        EXPECT_EQ(untouched[0], 'x');
        EXPECT_EQ(VXConnect("h", 1, nullptr, 256, nullptr, 0), 0u);
    });
}

TEST_F(RuntimeTest, ConnectWithoutAnAnswerIsResult1AndTellsNobody) {
    script_.answers = false;
    Run([&] {
        EXPECT_EQ(Connect(1), "");
        Settle();
        EXPECT_EQ(log_, Lines{});
    });
}

TEST_F(RuntimeTest, RefusedCredentialsAreResult2AndTellTheAuthFailedListenerOnTheLibrarysThread) {
    script_.refuses = true;
    Run([&] {
        EXPECT_EQ(Connect(2), "");
        Settle();
        EXPECT_EQ(log_, Lines{"refused 127.0.0.1:5480"});
        ASSERT_EQ(eventThreads_.size(), 1u);
        EXPECT_NE(eventThreads_[0], Platform::CurrentThreadId());
    });
}

TEST_F(RuntimeTest, APeerWithoutANameIsNotConnectedAndTellsTheUnknownConnectListener) {
    script_.peer.application = "";
    Run([&] {
        EXPECT_EQ(Connect(1), "");
        EXPECT_EQ(script_.closed, 1u);
        Settle();
        EXPECT_EQ(log_, Lines{"unknown 127.0.0.1:5480"});
    });
}

TEST_F(RuntimeTest, ListenersThatAreClearedAreNotCalled) {
    Run([&] {
        VXSetConnectListener(nullptr);
        VXSetDisconnectListener(nullptr);
        VXSetAuthFailedListener(nullptr);
        VXSetUnknownConnectListener(nullptr);
        Connect();
        script_.events[0]->OnClosed();
        script_.refuses = true;
        Connect(2);
        script_.refuses = false;
        script_.peer.application = "";
        Connect(1);
        Settle();
        EXPECT_EQ(log_, Lines{});
        EXPECT_EQ(script_.closed, 2u);
    });
}

TEST_F(RuntimeTest, WithoutAConnectorNobodyAnswers) {
    Run([&] {
        VXSetConnector(nullptr);
        Connect(1);
    });
}

TEST_F(RuntimeTest, EachLiveConnectionHasANameOfItsOwn) {
    Run([&] {
        EXPECT_EQ(Connect(), "ConfigService");
        EXPECT_EQ(Connect(), "ConfigService-2");
        EXPECT_EQ(Connect(), "ConfigService-3");
        VXDisconnect("ConfigService-2");
        EXPECT_EQ(Connect(), "ConfigService-2");
    });
}

TEST_F(RuntimeTest, NamesOfMoreThan255BytesAreCut) {
    script_.peer.application = std::string(400, 'n');
    script_.onCall = [](u32, const auto&, auto&) { return true; };
    Run([&] {
        const std::string first = Connect();
        EXPECT_EQ(first, std::string(255, 'n'));
        EXPECT_EQ(Connect(), std::string(253, 'n') + "-2");
        const HVXPARAMLIST reply = VXCall(first.c_str(), 9, nullptr);
        EXPECT_NE(reply, nullptr);
        VXCloseHandle(reply);
    });
}

TEST_F(RuntimeTest, CallBringsTheReplyWithAReferenceForTheCaller) {
    u32 asked = 0;
    std::string table;
    script_.onCall = [&](u32 number, const VX::ParamListHolder& request, VX::ParamListHolder& reply) {
        asked = number;
        table = VXGetStringValue(request.Get(), "OC");
        reply.NewList();
        VXSetInt32Value(reply.Get(), "answer", 42);
        return true;
    };
    Run([&] {
        Connect();
        VX::ParamListHolder request;
        request.NewList();
        VXSetStringValue(request.Get(), "OC", "AUDIOFEED");
        const auto reply = VX::ParamListHolder::FromRefHandle(VXCall("ConfigService", 9, request.Get()));
        EXPECT_EQ(VXGetInt32Value(reply.Get(), "answer"), 42);
    });
    EXPECT_EQ(asked, 9u);
    EXPECT_EQ(table, "AUDIOFEED");
}

TEST_F(RuntimeTest, ANullRequestIsSentAsAnEmptyListAndAnEmptyReplyIsAList) {
    bool wasList = false;
    script_.onCall = [&](u32, const VX::ParamListHolder& request, VX::ParamListHolder&) {
        wasList = request.Get() != nullptr && VXGetParamCount(request.Get()) == 0;
        return true;
    };
    Run([&] {
        Connect();
        const auto reply = VX::ParamListHolder::FromRefHandle(VXCall("ConfigService", 1, nullptr));
        EXPECT_NE(reply.Get(), nullptr);
        EXPECT_EQ(VXGetParamCount(reply.Get()), 0u);
    });
    EXPECT_TRUE(wasList);
}

TEST_F(RuntimeTest, CallsToUnknownAndEmptyNamesGiveNull) {
    script_.onCall = [](u32, const auto&, auto&) { return true; };
    Run([&] {
        Connect();
        EXPECT_EQ(VXCall("Nobody", 1, nullptr), nullptr);
        EXPECT_EQ(VXCall("", 1, nullptr), nullptr);
        EXPECT_EQ(VXCall(nullptr, 1, nullptr), nullptr);
    });
}

TEST_F(RuntimeTest, ACallThatFailsEndsTheConnectionAndTellsTheDisconnectListener) {
    u32 calls = 0;
    script_.onCall = [&](u32, const auto&, auto&) {
        calls++;
        return false;
    };
    Run([&] {
        Connect();
        EXPECT_EQ(VXCall("ConfigService", 1, nullptr), nullptr);
        EXPECT_EQ(VXCall("ConfigService", 1, nullptr), nullptr);
        EXPECT_EQ(calls, 1u);
        Settle();
        EXPECT_EQ(log_, (Lines{connected_, "lost ConfigService,11,12"}));
        EXPECT_EQ(script_.destroyed, 1u);
    });
}

TEST_F(RuntimeTest, DisconnectClosesTheConnectionWithoutAWordToTheListener) {
    Run([&] {
        Connect();
        VXDisconnect("Nobody");
        VXDisconnect("");
        VXDisconnect(nullptr);
        EXPECT_EQ(script_.closed, 0u);
        VXDisconnect("ConfigService");
        EXPECT_EQ(script_.closed, 1u);
        EXPECT_EQ(script_.destroyed, 1u);
        EXPECT_EQ(VXCall("ConfigService", 1, nullptr), nullptr);
        VXDisconnect("ConfigService");
        Settle();
        EXPECT_EQ(log_, Lines{connected_});
    });
}

TEST_F(RuntimeTest, DisconnectInsideAHandlerWorks) {
    Run([&] {
        Record();
        Connect();
        VXConnectSignal("ConfigService", "S", Slot);
        inHandler_ = [&] {
            VXDisconnect("ConfigService");
            log_.emplace_back("closed " + std::to_string(script_.closed));
        };
        script_.Signal("S", "one");
        script_.Signal("S", "two");
        Settle();
        EXPECT_EQ(log_, (Lines{connected_, "one", "closed 1"}));
    });
}

TEST_F(RuntimeTest, DisconnectInsideTheListenersWorks) {
    Run([&] {
        inConnect_ = [] { VXDisconnect("ConfigService"); };
        Connect();
        EXPECT_EQ(script_.closed, 1u);
        inConnect_ = nullptr;
        inDisconnect_ = [] { VXDisconnect("ConfigService"); };
        Connect();
        script_.events[1]->OnClosed();
        Settle();
        EXPECT_EQ(script_.closed, 2u);
        EXPECT_EQ(log_, (Lines{connected_, connected_, "lost ConfigService,11,12"}));
    });
}

TEST_F(RuntimeTest, TheDisconnectListenerMayConnectAgainUnderTheSameName) {
    Run([&] {
        inDisconnect_ = [this] {
            inDisconnect_ = nullptr;
            EXPECT_EQ(Connect(), "ConfigService");
        };
        Connect();
        script_.events[0]->OnClosed();
        Settle();
        EXPECT_EQ(log_, (Lines{connected_, "lost ConfigService,11,12", connected_}));
    });
}

TEST_F(RuntimeTest, ALossDuringConnectIsToldAfterTheConnectListenerHasReturned) {
    script_.duringConnect = [](VX::ILinkEvents& events) { events.OnClosed(); };
    inConnect_ = [this] {
        Settle();
        log_.emplace_back("end of the connect listener");
    };
    Run([&] {
        EXPECT_EQ(Connect(), "ConfigService");
        EXPECT_EQ(VXCall("ConfigService", 1, nullptr), nullptr);
        Settle();
        EXPECT_EQ(log_, (Lines{connected_, "end of the connect listener", "lost ConfigService,11,12"}));
    });
}

TEST_F(RuntimeTest, SlotsAreRegisteredOnceAndNotAsZeroOrAllOnesOrWithoutADispatcher) {
    Run([&] {
        EXPECT_EQ(VXRegisterSlot(Slot, &OnEvent, this), Slot);
        EXPECT_EQ(VXRegisterSlot(Slot, &OnEvent, this), VXInvalidSlot);
        EXPECT_EQ(VXRegisterSlot(0, &OnEvent, this), VXInvalidSlot);
        EXPECT_EQ(VXRegisterSlot(VXInvalidSlot, &OnEvent, this), VXInvalidSlot);
        EXPECT_EQ(VXRegisterSlot(7, nullptr, this), VXInvalidSlot);
        EXPECT_EQ(VXRegisterSlot(7, &OnEvent, this), 7u);
    });
}

TEST_F(RuntimeTest, NothingWorksBeforeInitializeAndAfterShutdown) {
    const auto tryAll = [&] {
        EXPECT_EQ(VXRegisterSlot(Slot, &OnEvent, this), VXInvalidSlot);
        EXPECT_EQ(VXConnect("h", 1, nullptr, 0, nullptr, 0), 1u);
        EXPECT_EQ(VXCall("ConfigService", 1, nullptr), nullptr);
        VXConnectSignal("ConfigService", "S", Slot);
        VXDisconnect("ConfigService");
        VXShutdown(0);
    };
    VXSetConnector(&connector_);
    tryAll();
    Run([&] {});
    tryAll();
    EXPECT_TRUE(script_.events.empty());
}

TEST_F(RuntimeTest, InitializeFailsWhileTheLibraryRunsAndWhenThereIsNoThread) {
    Run([&] {
        EXPECT_NE(VXInitialize("again", 0, 0), 0u);
        VXShutdown(0);
        simulation_->FailThreadStarts(1);
        EXPECT_NE(VXInitialize("no thread", 0, 0), 0u);
        EXPECT_EQ(VXInitialize("now", 0, 0), 0u);
    });
}

TEST_F(RuntimeTest, TheLibraryHasOneThreadAndItEndsWithShutdown) {
    Run([&] {
        EXPECT_EQ(simulation_->ThreadNames(), (Lines{"main", "vx-events"}));
        VXShutdown(0);
        EXPECT_EQ(simulation_->ThreadNames(), Lines{"main"});
        VXShutdown(0);
    });
}

TEST_F(RuntimeTest, ShutdownEndsEveryConnectionWithoutAWordToTheListeners) {
    Run([&] {
        Connect();
        Connect();
        script_.events[1]->OnClosed();
        VXShutdown(0);
        EXPECT_EQ(script_.destroyed, 2u);
        Settle();
        EXPECT_EQ(log_.size(), 2u);  // the two that tell of the connecting
    });
}

TEST_F(RuntimeTest, TheLibraryStartsAgainAfterShutdownWithoutItsOldSlots) {
    Run([&] {
        Record();
        Connect();
        VXShutdown(0);
        EXPECT_EQ(VXInitialize("again", 21, 22), 0u);
        EXPECT_EQ(VXRegisterSlot(Slot, &OnEvent, this), Slot);
        log_.clear();
        Connect();
        EXPECT_EQ(log_, Lines{"connected local,remote,ConfigService,21,22,DBProvider"});
        VXConnectSignal("ConfigService", "S", Slot);
        script_.Signal("S", "event", 1);
        Settle();
        EXPECT_EQ(log_.back(), "event");
    });
}

TEST_F(RuntimeTest, ShutdownWaitsForAHandlerThatRuns) {
    Run([&] {
        Record();
        Connect();
        VXConnectSignal("ConfigService", "S", Slot);
        inHandler_ = [&] {
            Platform::SleepMilliseconds(500);
            log_.emplace_back("end of the handler");
        };
        script_.Signal("S", "event");
        script_.Signal("S", "never delivered");
        Settle();
        VXShutdown(0);
        EXPECT_EQ(log_, (Lines{connected_, "event", "end of the handler"}));
    });
}

// Regression guard for the order inside the shutdown: the links are closed before the thread is waited for, so that a
// call whose answer never comes does not hold up the end.
TEST_F(RuntimeTest, ShutdownEndsTheCallOfAHandlerThatRuns) {
    script_.onCall = [&](u32, const auto&, auto&) {
        for (int tries = 0; tries < 1000 && script_.closed == 0; tries++) Platform::SleepMilliseconds(10);
        EXPECT_EQ(script_.closed, 1u);
        return false;
    };
    Run([&] {
        Record();
        Connect();
        VXConnectSignal("ConfigService", "S", Slot);
        inHandler_ = [&] {
            EXPECT_EQ(VXCall("ConfigService", 1, nullptr), nullptr);
            log_.emplace_back("call has ended");
        };
        script_.Signal("S", "event");
        Settle();
        VXShutdown(0);
        EXPECT_EQ(log_, (Lines{connected_, "event", "call has ended"}));
    });
}

TEST_F(RuntimeTest, ShutdownWaitsForAConnectAndLeavesNothingOfIt) {
    script_.duringConnect = [](VX::ILinkEvents&) { Platform::SleepMilliseconds(5000); };
    Run([&] {
        u32 result = 0;
        Platform::Thread connecting("connecting", [&] { result = VXConnect("h", 1, nullptr, 0, nullptr, 0); });
        Settle();
        VXShutdown(0);
        EXPECT_EQ(script_.destroyed, 1u);
        connecting.Join();
        EXPECT_EQ(result, 1u);
        EXPECT_EQ(log_, Lines{});
    });
}

TEST_F(RuntimeTest, TwoShutdownsAtATimeBothReturnWhenTheLibraryHasEnded) {
    Run([&] {
        Record();
        Connect();
        VXConnectSignal("ConfigService", "S", Slot);
        bool ended = false;
        inHandler_ = [&] {
            Platform::SleepMilliseconds(300);
            ended = true;
        };
        script_.Signal("S", "event");
        Settle();
        Platform::Thread other("other", [&] {
            VXShutdown(0);
            EXPECT_TRUE(ended);
        });
        VXShutdown(0);
        EXPECT_TRUE(ended);
        other.Join();
    });
}
