#include "ServiceProcess/CommandLine.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "Arguments.h"

namespace {

class CommandLineTest : public testing::Test {
protected:
    // Parses, and keeps what went to standard error.
    Orv::CommandLineOptions Parse(std::initializer_list<const char*> arguments) {
        Arguments list(arguments);
        testing::internal::CaptureStderr();
        Orv::CommandLineOptions options;
        try {
            options = Orv::ParseCommandLine(list.Count(), list.Values());
        } catch (...) {
            told_ = testing::internal::GetCapturedStderr();
            throw;
        }
        told_ = testing::internal::GetCapturedStderr();
        return options;
    }
    std::string Apply(std::initializer_list<const char*> arguments) {
        Arguments list(arguments);
        testing::internal::CaptureStderr();
        EXPECT_EQ(Orv::ApplyCommandLine(list.Count(), list.Values()), 0);
        return testing::internal::GetCapturedStderr();
    }

    std::string told_;
};

// Read before main(), so before any test has applied a command line.
const Orv::CommandLineOptions atStart = Orv::ProcessOptions();

TEST_F(CommandLineTest, TheProcessWideRecordHoldsTheDefaultsBeforeAnythingWasParsed) {
    EXPECT_EQ(atStart.configFile, "./Bin/OrvPhoneSystem.ini");
    EXPECT_EQ(atStart.pidFile, "");
    EXPECT_FALSE(atStart.daemon);
    EXPECT_FALSE(atStart.notify);
}

TEST_F(CommandLineTest, WithoutArgumentsTheDefaultsStand) {
    const auto options = Parse({});
    EXPECT_EQ(options.configFile, "./Bin/OrvPhoneSystem.ini");
    EXPECT_EQ(options.pidFile, "");
    EXPECT_FALSE(options.daemon);
    EXPECT_FALSE(options.notify);
    EXPECT_EQ(told_, "");
}

TEST_F(CommandLineTest, EachOptionHasAShortAndALongForm) {
    for (const char* option : {"-c", "--config"}) EXPECT_EQ(Parse({option, "/x.ini"}).configFile, "/x.ini");
    EXPECT_EQ(told_, "Instance configuration file: /x.ini\n");
    for (const char* option : {"-p", "--pid"}) EXPECT_EQ(Parse({option, "/x.pid"}).pidFile, "/x.pid");
    EXPECT_EQ(told_, "");
    for (const char* option : {"-d", "--daemon"}) EXPECT_TRUE(Parse({option}).daemon);
    for (const char* option : {"-n", "--notify"}) EXPECT_TRUE(Parse({option}).notify);
}

TEST_F(CommandLineTest, OptionsAreCaseSensitiveAndMatchExactly) {
    const auto options = Parse({"-C", "x", "-D", "--daemonize", "--config=x", "-cx", "--Notify", "d"});
    EXPECT_EQ(options.configFile, "./Bin/OrvPhoneSystem.ini");
    EXPECT_FALSE(options.daemon);
    EXPECT_FALSE(options.notify);
    EXPECT_EQ(told_, "");
}

TEST_F(CommandLineTest, ConfigAsTheLastArgumentKeepsTheDefaultAndTellsNothing) {
    EXPECT_EQ(Parse({"-d", "-c"}).configFile, "./Bin/OrvPhoneSystem.ini");
    EXPECT_EQ(told_, "");
    EXPECT_EQ(Parse({"-c", "x", "--config"}).configFile, "x");
    EXPECT_EQ(told_, "Instance configuration file: x\n");
    EXPECT_EQ(Parse({"-p", "x", "--pid"}).pidFile, "x");
}

TEST_F(CommandLineTest, TheSecondOfTwoConfigsCountsAndBothAreTold) {
    EXPECT_EQ(Parse({"-c", "a.ini", "--config", "b.ini"}).configFile, "b.ini");
    EXPECT_EQ(told_, "Instance configuration file: a.ini\nInstance configuration file: b.ini\n");
}

TEST_F(CommandLineTest, AnOptionsValueIsTakenWhateverItLooksLike) {
    const auto options = Parse({"-c", "-d", "-p", "--notify"});
    EXPECT_EQ(options.configFile, "-d");
    EXPECT_EQ(options.pidFile, "--notify");
    EXPECT_FALSE(options.daemon);
    EXPECT_FALSE(options.notify);
}

TEST_F(CommandLineTest, HelpAmongOtherArgumentsIsIgnoredLikeAnyUnknownOne) {
    EXPECT_TRUE(Parse({"-h", "--help", "what", "-d"}).daemon);
    EXPECT_EQ(told_, "");
}

TEST_F(CommandLineTest, HelpIsAskedForByExactlyOneArgument) {
    const auto asks = [](std::initializer_list<const char*> arguments) {
        Arguments list(arguments);
        return Orv::IsUsageRequest(list.Count(), list.Values());
    };
    EXPECT_TRUE(asks({"-h"}));
    EXPECT_TRUE(asks({"--help"}));
    EXPECT_FALSE(asks({}));
    EXPECT_FALSE(asks({"-h", "x"}));
    EXPECT_FALSE(asks({"x", "-h"}));
    EXPECT_FALSE(asks({"-H"}));
}

TEST_F(CommandLineTest, DaemonAndNotifyExcludeEachOther) {
    for (const auto& arguments : {std::initializer_list<const char*>{"-d", "-n"}, {"--notify", "--daemon"}}) {
        try {
            Parse(arguments);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::logic_error& error) {
            EXPECT_STREQ(error.what(), "Both daemon & notify are set. They are mutually exclusive!");
        }
    }
}

TEST_F(CommandLineTest, ApplyingStoresTheRecordAndTellsTwoLines) {
    EXPECT_EQ(Apply({"-c", "/x.ini", "-p", "/x.pid"}),
              "Instance configuration file: /x.ini\nStarting without forking\nconfig=/x.ini\n");
    EXPECT_EQ(Orv::ProcessOptions().configFile, "/x.ini");
    EXPECT_EQ(Orv::ProcessOptions().pidFile, "/x.pid");
    EXPECT_EQ(Apply({"--daemon"}), "Starting with forking\nconfig=./Bin/OrvPhoneSystem.ini\n");
    EXPECT_TRUE(Orv::ProcessOptions().daemon);
    EXPECT_EQ(Apply({}), "Starting without forking\nconfig=./Bin/OrvPhoneSystem.ini\n");
    EXPECT_FALSE(Orv::ProcessOptions().daemon);
}

TEST_F(CommandLineTest, TheUsageGoesToStandardOutputWithItsBracketOpen) {
    testing::internal::CaptureStdout();
    Orv::PrintUsage();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Usage: OrvMediaServer [[-d|--daemon -p pidfile] [-c|--config common_settings_file]\n");
}

}  // namespace
