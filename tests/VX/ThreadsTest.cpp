// Goal: the library, its lists and both links are free of races and deadlocks under real threads. Method: much at the
// same time, for the thread sanitizer; what can be told from outside is asserted.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Sync.h"
#include "Platform/Thread.h"
#include "VX/GrpcLink.h"
#include "VX/VX.h"
#include "tests/VX/TestService.h"

using VX::ParamListHolder;

namespace {

// What the slot's handler sees.
struct Seen {
    std::atomic<u32> events{0};
    std::atomic<u32> disordered{0};
    std::atomic<u32> unanswered{0};
    std::atomic<i64> last{-1};
    std::string application;  // set before the slot is registered
    std::atomic<bool> disconnect{false};
};

std::atomic<u32> losses{0};

i32 OnEvent(HVXPARAMLIST request, HVXPARAMLIST, VXSlotRecord* record) {
    Seen& seen = *static_cast<Seen*>(record->user);
    const i64 number = std::stoi(VXGetStringValue(request, "text"));
    if (number != seen.last.exchange(number) + 1) seen.disordered++;
    const auto reply = ParamListHolder::FromRefHandle(VXCall(seen.application.c_str(), 6, request));
    if (VXGetInt32Value(reply.Get(), "number") != 6) seen.unanswered++;
    if (seen.disconnect) VXDisconnect(seen.application.c_str());
    seen.events++;
    return 0;
}

i32 OnLost(const char*, u64, u64) {
    losses++;
    return 0;
}

// Calls until nobody answers any more.
void CallToTheEnd(const std::string& application) {
    HVXPARAMLIST reply = nullptr;
    do {
        reply = VXCall(application.c_str(), 9, nullptr);
        VXCloseHandle(reply);
    } while (reply != nullptr);
}

bool Until(const std::function<bool()>& condition) {
    for (u32 tries = 0; tries < 1000 && !condition(); tries++) Platform::SleepMilliseconds(10);
    return condition();
}

enum class Kind { InProcess, Network };

class ThreadsTest : public ::testing::TestWithParam<Kind> {
protected:
    ThreadsTest() {
        if (GetParam() == Kind::InProcess) {
            auto exchange = std::make_unique<VX::InProcessExchange>(service_);
            connector_ = exchange.get();
            server_ = std::move(exchange);
        } else {
            std::string reason;
            server_ = VX::CreateGrpcServer("127.0.0.1", 0, service_, reason);
            ownConnector_ = VX::CreateGrpcConnector();
            connector_ = ownConnector_.get();
        }
        losses = 0;
        VXSetConnector(connector_);
        VXSetDisconnectListener(&OnLost);
        EXPECT_EQ(VXInitialize("AudioProvider", 0, 0), 0u);
    }
    ~ThreadsTest() override {
        VXShutdown(0);
        VXSetDisconnectListener(nullptr);
        VXSetConnector(nullptr);
    }
    std::string Connect() {
        char name[256] = "";
        EXPECT_EQ(VXConnect("127.0.0.1", server_->Port(), name, 256, "user:pass", 10), 0u);
        return name;
    }

    TestService service_;
    std::unique_ptr<VX::ILinkServer> server_;
    std::unique_ptr<VX::ILinkConnector> ownConnector_;
    VX::ILinkConnector* connector_ = nullptr;
};

}  // namespace

TEST_P(ThreadsTest, EventsArriveInOrderWhileOtherThreadsCall) {
    Seen seen;
    seen.application = Connect();
    Platform::Thread raising("raising", [this] {
        for (int i = 0; i < 200; i++) server_->Raise("S", TextEvent(std::to_string(i)));
    });
    std::atomic<u32> answered = 0;
    std::vector<Platform::Thread> calling;
    for (int t = 0; t < 3; t++) {
        calling.emplace_back("calling", [&] {
            for (int i = 0; i < 100; i++) {
                const auto reply = ParamListHolder::FromRefHandle(VXCall(seen.application.c_str(), 9, nullptr));
                answered += VXGetInt32Value(reply.Get(), "number") == 9;
            }
        });
    }
    VXConnectSignal(seen.application.c_str(), "S", 1);
    EXPECT_EQ(VXRegisterSlot(1, &OnEvent, &seen), 1u);
    raising.Join();
    for (Platform::Thread& thread : calling) thread.Join();
    EXPECT_TRUE(Until([&] { return seen.events == 200; }));
    EXPECT_EQ(seen.disordered, 0u);
    EXPECT_EQ(seen.unanswered, 0u);
    EXPECT_EQ(answered, 300u);
}

TEST_P(ThreadsTest, AServerThatDiesUnderLoadIsToldOnceAndCallsReturn) {
    Seen seen;
    seen.application = Connect();
    VXConnectSignal(seen.application.c_str(), "S", 1);
    VXRegisterSlot(1, &OnEvent, &seen);
    std::atomic<bool> ending = false;
    std::vector<Platform::Thread> threads;
    threads.emplace_back("raising", [&] {
        for (int i = 0; !ending; i++) {
            server_->Raise("S", TextEvent(std::to_string(i)));
            Platform::SleepMilliseconds(1);
        }
    });
    for (int t = 0; t < 3; t++) {
        threads.emplace_back("calling", [&] { CallToTheEnd(seen.application); });
    }
    EXPECT_TRUE(Until([&] { return seen.events > 20; }));
    server_->Stop();
    EXPECT_TRUE(Until([&] { return losses == 1; }));
    ending = true;
    for (Platform::Thread& thread : threads) thread.Join();
    EXPECT_EQ(VXCall(seen.application.c_str(), 9, nullptr), nullptr);
    EXPECT_EQ(seen.disordered, 0u);
    EXPECT_EQ(losses, 1u);
}

TEST_P(ThreadsTest, DisconnectInsideAHandlerUnderLoadEndsTheEvents) {
    Seen seen;
    seen.disconnect = true;
    seen.application = Connect();
    VXConnectSignal(seen.application.c_str(), "S", 1);
    VXRegisterSlot(1, &OnEvent, &seen);
    for (int i = 0; i < 50; i++) server_->Raise("S", TextEvent(std::to_string(i)));
    EXPECT_TRUE(Until([&] { return seen.events == 1; }));
    EXPECT_TRUE(service_.WaitFor("disconnected 1"));
    EXPECT_EQ(VXCall(seen.application.c_str(), 9, nullptr), nullptr);
    EXPECT_EQ(seen.events, 1u);
    EXPECT_EQ(losses, 0u);
}

TEST_P(ThreadsTest, ConnectionsComeAndGoOnManyThreads) {
    std::vector<Platform::Thread> threads;
    std::atomic<u32> good = 0;
    for (int t = 0; t < 4; t++) {
        threads.emplace_back("client", [&] {
            for (int i = 0; i < 5; i++) {
                const std::string name = Connect();
                const auto reply = ParamListHolder::FromRefHandle(VXCall(name.c_str(), 9, nullptr));
                good += VXGetInt32Value(reply.Get(), "number") == 9;
                VXConnectSignal(name.c_str(), "S", 0);
                server_->Raise("S", TextEvent("0"));
                VXDisconnect(name.c_str());
            }
        });
    }
    for (Platform::Thread& thread : threads) thread.Join();
    EXPECT_EQ(good, 20u);
    EXPECT_EQ(losses, 0u);
    for (int i = 1; i <= 20; i++) EXPECT_TRUE(service_.WaitFor("disconnected " + std::to_string(i)));
}

TEST_P(ThreadsTest, ShutdownUnderLoadReturnsAndTheLibraryStartsAgain) {
    for (int round = 0; round < 3; round++) {
        Seen seen;
        seen.application = Connect();
        VXConnectSignal(seen.application.c_str(), "S", 1);
        VXRegisterSlot(1, &OnEvent, &seen);
        std::vector<Platform::Thread> threads;
        for (int t = 0; t < 2; t++) {
            threads.emplace_back("calling", [&] { CallToTheEnd(seen.application); });
        }
        for (int i = 0; i < 100; i++) server_->Raise("S", TextEvent(std::to_string(i)));
        EXPECT_TRUE(Until([&] { return seen.events > 3; }));
        VXShutdown(0);
        const u32 events = seen.events;
        for (Platform::Thread& thread : threads) thread.Join();
        EXPECT_EQ(seen.events, events);
        EXPECT_EQ(VXInitialize("AudioProvider", 0, 0), 0u);
    }
    EXPECT_EQ(losses, 0u);
}

// Lists are read by many threads at a time once they have been handed on.
TEST(ListThreadsTest, AListIsReadAndItsReferencesAreCountedOnManyThreads) {
    ParamListHolder list;
    list.NewList();
    for (int i = 0; i < 40; i++) VXSetStringValue(list.Get(), ("key" + std::to_string(i)).c_str(), "value");
    VXSetHandleValue(list.Get(), "nested", list.Get());
    std::atomic<u32> good = 0;
    std::vector<Platform::Thread> threads;
    for (int t = 0; t < 4; t++) {
        threads.emplace_back("reading", [&good, held = list] {
            for (int i = 0; i < 1000; i++) {
                const ParamListHolder copy = held;
                u32 count = 0;
                for (VXParamRecord r = VXGetFirstParam(copy.Get()); r != nullptr; r = VXGetNextParam(copy.Get(), r)) {
                    count++;
                }
                const bool whole = count == 41 && copy.GetHandle("nested") &&
                                   VXGetStringValue(copy.Get(), "key39") == std::string("value");
                good += whole;
            }
        });
    }
    list = ParamListHolder();
    for (Platform::Thread& thread : threads) thread.Join();
    EXPECT_EQ(good, 4000u);
}

INSTANTIATE_TEST_SUITE_P(Links, ThreadsTest, ::testing::Values(Kind::InProcess, Kind::Network),
                         [](const auto& info) { return info.param == Kind::InProcess ? "InProcess" : "Network"; });
