// Whole processes, in a simulated world.
#include "ServiceProcess/ProcessEntry.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "Arguments.h"
#include "HostProbe.h"
#include "Platform/sim/Simulation.h"
#include "ServiceProcess/CommandLine.h"

namespace {

using Events = std::vector<std::string>;

class ProcessEntryTest : public testing::Test {
protected:
    void SetUp() override {
        record_ = &ownRecord_;
        sim_.Files().AddFolder("/var/lib/Orv");
    }
    void TearDown() override { Orv::ClearServices(); }

    i32 Run(std::initializer_list<const char*> arguments) {
        Arguments list(arguments);
        i32 code = 99;
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        sim_.Run([&] { code = Orv::ProcessEntry(list.Count(), list.Values(), Make); });
        out_ = testing::internal::GetCapturedStdout();
        err_ = testing::internal::GetCapturedStderr();
        return code;
    }
    static void Make(i32 argc, char** argv) {
        record_->events.push_back("make " + std::to_string(argc) + " " + argv[argc - 1]);
        new HostProbe("Orv Audio Feed", *record_);
    }

    static inline HostRecord* record_ = nullptr;
    Platform::Sim::Simulation sim_;
    HostRecord ownRecord_;
    std::string out_;
    std::string err_;
};

TEST_F(ProcessEntryTest, WithoutArgumentsTheHostRunsInTheDataDirectoryWithTheDefaultSettingsFile) {
    std::string folder;
    std::string file;
    record_->run = [&](Orv::ServiceHost&, u32, void*) {
        folder = sim_.Files().WorkingDirectory();
        file = Orv::ProcessOptions().configFile;
    };
    EXPECT_EQ(Run({}), 0);
    EXPECT_EQ(record_->events, (Events{"make 1 orv-audio-feed", "run Orv Audio Feed"}));
    EXPECT_EQ(folder, "/var/lib/Orv");
    EXPECT_EQ(file, "./Bin/OrvPhoneSystem.ini");
    EXPECT_EQ(out_, "");
    EXPECT_EQ(err_, "Starting without forking\nconfig=./Bin/OrvPhoneSystem.ini\n");
    EXPECT_EQ(record_->alive, 0);
}

TEST_F(ProcessEntryTest, HelpAlonePrintsTheUsageAndTouchesNothing) {
    for (const char* option : {"-h", "--help"}) {
        EXPECT_EQ(Run({option}), 0);
        EXPECT_EQ(out_, "Usage: OrvMediaServer [[-d|--daemon -p pidfile] [-c|--config common_settings_file]\n");
        EXPECT_EQ(err_, "");
        EXPECT_TRUE(record_->events.empty());
        EXPECT_EQ(sim_.Files().WorkingDirectory(), "/");
    }
}

TEST_F(ProcessEntryTest, HelpWithAFurtherArgumentStartsTheService) {
    EXPECT_EQ(Run({"-h", "x"}), 0);
    EXPECT_EQ(record_->events, (Events{"make 3 x", "run Orv Audio Feed"}));
    EXPECT_EQ(out_, "");
}

TEST_F(ProcessEntryTest, DaemonWithNotifyEndsWithMinusThreeAndNoHost) {
    for (const auto& arguments : {std::initializer_list<const char*>{"-d", "-n"}, {"--notify", "--daemon"}}) {
        EXPECT_EQ(Run(arguments), -3);
        EXPECT_EQ(err_, "Both daemon & notify are set. They are mutually exclusive!\n");
        EXPECT_TRUE(record_->events.empty());
    }
}

TEST_F(ProcessEntryTest, DaemonAloneOnlyChangesTheStartLine) {
    EXPECT_EQ(Run({"-d", "-c", "x.ini"}), 0);
    EXPECT_EQ(err_, "Instance configuration file: x.ini\nStarting with forking\nconfig=x.ini\n");
    EXPECT_EQ(record_->events.back(), "run Orv Audio Feed");
}

TEST_F(ProcessEntryTest, ADataDirectoryThatCannotBeEnteredIsToldAndTheProcessGoesOn) {
    sim_.Files().Remove("/var/lib/Orv");
    EXPECT_EQ(Run({}), 0);
    EXPECT_EQ(err_,
              "Failed to set current dir to /var/lib\\Orv, error: 2\n"
              "Starting without forking\nconfig=./Bin/OrvPhoneSystem.ini\n");
    EXPECT_EQ(record_->events.back(), "run Orv Audio Feed");
}

TEST_F(ProcessEntryTest, AnExceptionOutOfAForegroundRunIsToldAndEndsWithMinusThree) {
    record_->run = [](Orv::ServiceHost&, u32, void*) { throw std::runtime_error("no thread to give"); };
    EXPECT_EQ(Run({}), -3);
    EXPECT_TRUE(err_.ends_with("\nno thread to give\n"));
}

TEST_F(ProcessEntryTest, AsAServiceTheHostRunsAndTheProcessEndsWithZero) {
    sim_.Service().RunAsService(true);
    record_->run = [](Orv::ServiceHost& host, u32, void*) { host.ReportStatus(1, 0, 0, 0); };
    EXPECT_EQ(Run({}), 0);
    EXPECT_EQ(record_->events.back(), "run Orv Audio Feed");
    ASSERT_EQ(sim_.Service().Statuses().size(), 1u);
    EXPECT_EQ(record_->alive, 0);
}

}  // namespace
