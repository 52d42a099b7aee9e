// The host under a simulated service manager: what it finds, what it tells, what a control does.
#include "ServiceProcess/ServiceHost.h"

#include <gtest/gtest.h>

#include "HostProbe.h"
#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"

namespace {

using Events = std::vector<std::string>;

class ServiceHostTest : public testing::Test {
protected:
    void TearDown() override { Orv::ClearServices(); }

    // Runs the registered hosts as services and sends `controls` meanwhile, one after the other.
    void RunAsService(std::vector<u32> controls) {
        sim_.Service().RunAsService(true);
        sim_.Run([&] {
            Platform::Thread manager("manager", [&] {
                Platform::SleepMilliseconds(1000);
                for (const u32 control : controls) answers_.push_back(sim_.Service().SendControl(control));
            });
            Orv::RunServices();
            manager.Join();
        });
    }
    static void Enter(const char* name) {
        std::string text = name;
        char* args[] = {text.data(), nullptr};
        Orv::ServiceEntry(1, args);
    }
    void RunUntilStopped() {
        record_.run = [this](Orv::ServiceHost& host, u32, void*) {
            host.ReportStatus(Orv::ServiceState::StartPending, 0, 0, 0);
            host.ReportStatus(Orv::ServiceState::Running, 0, 0, 0);
            while (!record_.stopped.WaitFor(10'000)) {
            }
            host.ReportStatus(Orv::ServiceState::Stopped, 0, 0, 0);
        };
    }

    Platform::Sim::Simulation sim_;
    HostRecord record_;
    std::vector<u32> answers_;
};

TEST_F(ServiceHostTest, ANewHostIsInTheRegistryWhichOwnsIt) {
    new HostProbe("Orv Audio Feed", record_);
    EXPECT_EQ(Orv::ServiceHostRegistry::Instance().Count(), 1u);
    EXPECT_EQ(Orv::ServiceHostRegistry::Instance().Find("Orv Audio Feed")->Name(), "Orv Audio Feed");
    EXPECT_EQ(record_.alive, 1);
    Orv::ClearServices();
    EXPECT_EQ(record_.alive, 0);
    EXPECT_EQ(Orv::ServiceHostRegistry::Instance().Count(), 0u);
}

TEST_F(ServiceHostTest, AHostOfTheSameNameReplacesTheFirst) {
    HostRecord second;
    new HostProbe("a", record_);
    new HostProbe("a", second);
    EXPECT_EQ(record_.alive, 0);
    EXPECT_EQ(second.alive, 1);
    EXPECT_EQ(Orv::ServiceHostRegistry::Instance().Count(), 1u);
    Orv::ClearServices();
}

TEST_F(ServiceHostTest, TheRegistryIsOrderedByTheBytesOfTheNames) {
    new HostProbe("b", record_);
    new HostProbe("\xC3\xA4", record_);
    new HostProbe("B", record_);
    Events names;
    for (const auto& host : Orv::ServiceHostRegistry::Instance().All()) names.push_back(host->Name());
    EXPECT_EQ(names, (Events{"B", "b", "\xC3\xA4"}));
    EXPECT_EQ(Orv::ServiceHostRegistry::Instance().First()->Name(), "B");
}

TEST_F(ServiceHostTest, TheOwnStopOfAHostDoesNothing) {
    auto* host = new HostProbe("a", record_);
    host->Stop();
    EXPECT_TRUE(record_.events.empty());
}

TEST_F(ServiceHostTest, AServiceIsToldItsStatesAndAcceptsNoControlOnlyInStateTwo) {
    new HostProbe("Orv Audio Feed", record_);
    RunUntilStopped();
    RunAsService({1});
    ASSERT_EQ(sim_.Service().Statuses().size(), 4u);
    const u32 states[] = {2, 4, 3, 1};
    const u32 accepted[] = {0, 5, 5, 5};
    for (int i = 0; i < 4; ++i) {
        const Platform::ServiceStatus& status = sim_.Service().Statuses()[i];
        EXPECT_EQ(status.serviceType, 16u);
        EXPECT_EQ(status.currentState, states[i]);
        EXPECT_EQ(status.controlsAccepted, accepted[i]);
        EXPECT_EQ(status.exitCode, 0u);
        EXPECT_EQ(status.serviceExitCode, 0u);
        EXPECT_EQ(status.checkPoint, 0u);
        EXPECT_EQ(status.waitHint, 0u);
    }
    EXPECT_EQ(answers_, std::vector<u32>{0});
    EXPECT_EQ(record_.events, (Events{"run Orv Audio Feed", "control 1 0"}));
}

TEST_F(ServiceHostTest, ReportStatusHandsOnItsArguments) {
    new HostProbe("a", record_);
    record_.run = [](Orv::ServiceHost& host, u32, void*) { host.ReportStatus(3, 7, 8, 9); };
    RunAsService({});
    ASSERT_EQ(sim_.Service().Statuses().size(), 1u);
    const Platform::ServiceStatus& status = sim_.Service().Statuses()[0];
    EXPECT_EQ(status.currentState, 3u);
    EXPECT_EQ(status.exitCode, 7u);
    EXPECT_EQ(status.serviceExitCode, 0u);
    EXPECT_EQ(status.checkPoint, 8u);
    EXPECT_EQ(status.waitHint, 9u);
}

TEST_F(ServiceHostTest, EveryControlReportsTheStateThatTheHostAnswersAndReturnsZero) {
    new HostProbe("a", record_);
    record_.answer = 4;
    RunUntilStopped();
    RunAsService({4, 128, 5});
    EXPECT_EQ(answers_, (std::vector<u32>{0, 0, 0}));
    EXPECT_EQ(record_.events, (Events{"run a", "control 4 0", "control 128 0", "control 5 0"}));
    std::vector<u32> states;
    for (const auto& status : sim_.Service().Statuses()) states.push_back(status.currentState);
    EXPECT_EQ(states, (std::vector<u32>{2, 4, 4, 4, 4, 1}));
}

TEST_F(ServiceHostTest, AServiceStartedUnderAnotherNameRunsTheOnlyHost) {
    new HostProbe("Orv Audio Feed", record_);
    sim_.Run([] { Enter("orv-audio-feed.service"); });
    EXPECT_EQ(record_.events, Events{"run Orv Audio Feed"});
}

TEST_F(ServiceHostTest, OfTwoHostsTheOneWithTheServicesNameRuns) {
    new HostProbe("a", record_);
    new HostProbe("b", record_);
    sim_.Run([] { Enter("b"); });
    EXPECT_EQ(record_.events, Events{"run b"});
}

TEST_F(ServiceHostTest, WithTwoHostsAnUnknownNameRunsNothing) {
    new HostProbe("a", record_);
    new HostProbe("b", record_);
    sim_.Run([] { Enter("c"); });
    EXPECT_TRUE(record_.events.empty());
}

TEST_F(ServiceHostTest, WithTwoHostsAnInvalidOneOfThatNameRunsNothing) {
    new HostProbe("a", record_);
    new HostProbe("b", record_, false);
    sim_.Run([] { Enter("b"); });
    EXPECT_TRUE(record_.events.empty());
}

TEST_F(ServiceHostTest, TheOnlyHostRunsAsAServiceEvenWhenItIsNotValid) {
    new HostProbe("a", record_, false);
    sim_.Run([] { Enter("a"); });
    EXPECT_EQ(record_.events, Events{"run a"});
}

TEST_F(ServiceHostTest, AnEmptyRegistryRunsNothing) {
    sim_.Run([] {
        Enter("a");
        Orv::RunServices();
    });
    EXPECT_TRUE(record_.events.empty());
}

TEST_F(ServiceHostTest, RunGetsTheArgumentsOfTheServicesMain) {
    new HostProbe("a", record_);
    u32 count = 0;
    std::string second;
    record_.run = [&](Orv::ServiceHost&, u32 argCount, void* args) {
        count = argCount;
        second = static_cast<char**>(args)[1];
    };
    sim_.Run([] {
        char name[] = "a";
        char more[] = "more";
        char* args[] = {name, more, nullptr};
        Orv::ServiceEntry(2, args);
    });
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(second, "more");
}

TEST_F(ServiceHostTest, WithoutAServiceManagerTheFirstHostRunsInTheForegroundWithOneArgumentTheTable) {
    new HostProbe("b", record_);
    new HostProbe("a", record_);
    u32 count = 0;
    std::string thread;
    Events table;
    record_.run = [&](Orv::ServiceHost&, u32 argCount, void* args) {
        count = argCount;
        thread = sim_.ThreadNames().front();
        const auto* entry = static_cast<const Platform::ServiceTableEntry*>(args);
        for (; entry->name != nullptr; ++entry) {
            table.push_back(entry->name);
            EXPECT_EQ(entry->main, Orv::ServiceEntry);
        }
        EXPECT_EQ(entry->main, nullptr);
    };
    sim_.Run([] { Orv::RunServices(); });
    EXPECT_EQ(record_.events, Events{"run a"});
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(thread, "main");
    EXPECT_EQ(table, (Events{"a", "b"}));
}

TEST_F(ServiceHostTest, AnInvalidHostDoesNotRunInTheForeground) {
    new HostProbe("a", record_, false);
    sim_.Run([] { Orv::RunServices(); });
    EXPECT_TRUE(record_.events.empty());
}

TEST_F(ServiceHostTest, AValidHostBehindAnInvalidFirstOneDoesNotRunInTheForegroundEither) {
    new HostProbe("a", record_, false);
    new HostProbe("b", record_);
    sim_.Run([] { Orv::RunServices(); });
    EXPECT_TRUE(record_.events.empty());
}

TEST_F(ServiceHostTest, AForegroundRunReportsNothingAndEndsOnAStopSignalAsByControlOne) {
    new HostProbe("a", record_);
    RunUntilStopped();
    sim_.Run([&] {
        Platform::Thread user("user", [&] {
            Platform::SleepMilliseconds(25'000);
            sim_.SendStopSignal();
        });
        Orv::RunServices();
        user.Join();
    });
    EXPECT_EQ(record_.events, (Events{"run a", "control 1 0"}));
    EXPECT_TRUE(sim_.Service().Statuses().empty());
    EXPECT_GE(sim_.Elapsed(), 25'000'000'000u);
    EXPECT_LT(sim_.Elapsed(), 26'000'000'000u);
    EXPECT_TRUE(sim_.ThreadNames().empty());
}

TEST_F(ServiceHostTest, TheHostLivesWhileItRunsThoughTheRegistryIsEmptied) {
    new HostProbe("a", record_);
    int aliveInside = 0;
    record_.run = [&](Orv::ServiceHost&, u32, void*) {
        Orv::ClearServices();
        aliveInside = record_.alive;
    };
    sim_.Run([] { Enter("a"); });
    EXPECT_EQ(aliveInside, 1);
    EXPECT_EQ(record_.alive, 0);
}

TEST_F(ServiceHostTest, TheHostLivesWhileAControlIsHandledThoughTheRegistryIsEmptied) {
    auto* host = new HostProbe("a", record_);
    int aliveInside = 0;
    record_.control = [&] {
        Orv::ClearServices();
        aliveInside = record_.alive;
    };
    EXPECT_EQ(Orv::ControlEntry(4, 0, nullptr, static_cast<Orv::ServiceHost*>(host)), 0u);
    EXPECT_EQ(aliveInside, 1);
    EXPECT_EQ(record_.alive, 0);
}

}  // namespace
