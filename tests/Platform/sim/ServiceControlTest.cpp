// Goal: the simulated service manager starts, controls and stops a service, and stop signals find their way.
#include "Platform/ServiceControl.h"

#include <gtest/gtest.h>

#include <string>
#include <system_error>
#include <vector>

#include "Platform/Sync.h"
#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"

namespace {

using Platform::Event;
using Platform::ForegroundStop;
using Platform::ServiceStatus;
using Platform::ServiceTableEntry;
using Platform::Thread;
using Platform::Sim::SimService;
using Platform::Sim::Simulation;

// What the service of these tests does: it reports a state, waits for control 1, and reports another.
struct Service {
    Event stop;
    std::vector<u32> controls;
    u64 handlerThread = 0;
    u64 mainThread = 0;
    std::string name;
    u32 answer = 0;
};

Service* service = nullptr;

u32 HandleControl(u32 control, u32, void*, void* context) {
    auto* self = static_cast<Service*>(context);
    self->controls.push_back(control);
    self->handlerThread = Platform::CurrentThreadId();
    if (control == 1) self->stop.Set();
    return self->answer;
}

void ServiceMain(u32 count, char** args) {
    ASSERT_EQ(count, 1u);
    service->name = args[0];
    service->mainThread = Platform::CurrentThreadId();
    Platform::SleepMilliseconds(20);
    const auto handle = Platform::RegisterControlHandler(args[0], &HandleControl, service);
    ASSERT_NE(handle, nullptr);
    Platform::SetServiceStatus(handle, ServiceStatus{16, 4, 5, 0, 0, 0, 0});
    while (!service->stop.WaitFor(1000)) {
    }
    Platform::SetServiceStatus(handle, ServiceStatus{16, 1, 5, 0, 0, 0, 0});
}

const ServiceTableEntry kTable[] = {{"Feed Service", &ServiceMain}, {nullptr, nullptr}};

class ServiceControlTest : public testing::Test {
protected:
    ServiceControlTest() { service = &service_; }
    ~ServiceControlTest() override { service = nullptr; }

    std::vector<u32> States() {
        std::vector<u32> states;
        for (const ServiceStatus& status : sim_.Service().Statuses()) states.push_back(status.currentState);
        return states;
    }

    Service service_;
    Simulation sim_;
};

TEST_F(ServiceControlTest, TheDispatcherFailsAtOnceInTheForeground) {
    sim_.Run([] { EXPECT_FALSE(Platform::StartServiceDispatcher(kTable)); });
    EXPECT_EQ(sim_.ThreadsStarted(), 1u);
    EXPECT_EQ(Platform::RegisterControlHandler("x", &HandleControl, nullptr), nullptr);
    Platform::SetServiceStatus(nullptr, ServiceStatus{});
    EXPECT_TRUE(States().empty());
}

TEST_F(ServiceControlTest, AServiceRunsOnItsOwnThreadUntilItEndsAndControlsComeOnTheDispatchers) {
    sim_.Service().RunAsService(true);
    service_.answer = 120;
    sim_.Run([&] {
        Thread manager("manager", [&] {
            EXPECT_EQ(sim_.Service().SendControl(4), SimService::NotDelivered);
            Platform::SleepMilliseconds(100);
            EXPECT_EQ(sim_.Service().SendControl(4), 120u);
            service_.answer = 0;
            EXPECT_EQ(sim_.Service().SendControl(1), 0u);
            Platform::SleepMilliseconds(1);
            EXPECT_EQ(sim_.Service().SendControl(4), SimService::NotDelivered);
        });
        EXPECT_TRUE(Platform::StartServiceDispatcher(kTable));
        EXPECT_EQ(service_.handlerThread, Platform::CurrentThreadId());
        manager.Join();
    });
    EXPECT_EQ(service_.name, "Feed Service");
    EXPECT_NE(service_.mainThread, service_.handlerThread);
    EXPECT_EQ(service_.controls, (std::vector<u32>{4, 1}));
    EXPECT_EQ(States(), (std::vector<u32>{4, 1}));
}

TEST_F(ServiceControlTest, AStopSignalIsControlOneToAServiceAndWaitsForItsHandler) {
    sim_.Service().RunAsService(true);
    sim_.SendStopSignal();
    sim_.Run([&] { EXPECT_TRUE(Platform::StartServiceDispatcher(kTable)); });
    EXPECT_EQ(service_.controls, std::vector<u32>{1});
    EXPECT_EQ(States(), (std::vector<u32>{4, 1}));
    EXPECT_EQ(sim_.Elapsed(), 20'000'000u);
}

TEST_F(ServiceControlTest, AServiceWhoseThreadCannotStartThrows) {
    sim_.Service().RunAsService(true);
    sim_.FailThreadStarts(1);
    sim_.Run([&] { EXPECT_THROW(Platform::StartServiceDispatcher(kTable), std::system_error); });
    EXPECT_EQ(service_.name, "");
}

TEST_F(ServiceControlTest, AStopSignalInTheForegroundComesOnTheControlThread) {
    sim_.Run([&] {
        Event stopped;
        std::vector<std::string> names;
        u64 thread = 0;
        const ForegroundStop stop([&] {
            thread = Platform::CurrentThreadId();
            names = sim_.ThreadNames();
            stopped.Set();
        });
        Thread sender("sender", [&] {
            Platform::SleepMilliseconds(400);
            sim_.SendStopSignal();
        });
        EXPECT_TRUE(stopped.WaitFor(10'000));
        EXPECT_EQ(sim_.Elapsed(), 400'000'000u);
        EXPECT_NE(thread, Platform::CurrentThreadId());
        EXPECT_EQ(names[1], "control");
        sender.Join();
    });
}

TEST_F(ServiceControlTest, AStopSignalBeforeAnybodyCanTakeItIsKept) {
    sim_.SendStopSignal();
    sim_.Run([&] {
        Event stopped;
        const ForegroundStop stop([&] { stopped.Set(); });
        EXPECT_TRUE(stopped.WaitFor(1000));
        EXPECT_EQ(sim_.Elapsed(), 0u);
    });
}

TEST_F(ServiceControlTest, WithoutARunAStopSignalCallsAtOnce) {
    u32 calls = 0;
    {
        const ForegroundStop stop([&] { ++calls; });
        sim_.SendStopSignal();
        EXPECT_EQ(calls, 1u);
    }
    EXPECT_FALSE(sim_.Service().Prepared());
    Platform::PrepareProcess();
    EXPECT_TRUE(sim_.Service().Prepared());
}

}  // namespace
