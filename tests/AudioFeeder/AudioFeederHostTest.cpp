// The life of the service on simulated time, as the service manager and the log see it.
#include "AudioFeeder/AudioFeederHost.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "ConfigClient/ConfigConnection.h"
#include "tests/AudioFeeder/AudioFeederHostFixture.h"

namespace {

using namespace FeederTest;

TEST_F(HostTest, TheStatesAreStartPendingRunningAndThenTwiceStopPendingAndStopped) {
    sim_.Files().AddFile(kSettings, kNoConnection);
    Serve([&] {
        Sleep(1'000);
        EXPECT_EQ(States(), (std::vector<u32>{2, 4})) << "it runs while the Configuration service is away";
        Stop();
    });
    EXPECT_EQ(States(), (std::vector<u32>{2, 4, 3, 3, 1}));
}

TEST_F(HostTest, TheLogBeginsBehindTheTwoLinesThatReachNoFile) {
    sim_.Files().AddFile(kSettings, kNoConnection);
    Serve([&] {
        Sleep(1'000);
        Stop();
    });
    ASSERT_GE(log_.size(), 2U);
    EXPECT_EQ(log_[0].text, "New log file has started");
    EXPECT_EQ(log_[1].text, "Starting service");
    EXPECT_EQ(HostLines(), (Texts{" Info|Starting service", " Info|Shutdown service"}));
    EXPECT_EQ(Count("Set default prompts path from ini."), 0U);
    EXPECT_EQ(Count("Root path updated"), 0U);
}

TEST_F(HostTest, AStopDuringTheTenSecondsEndsTheWaitAtOnceWithoutTheDeletionOfTheConfiguration) {
    sim_.Files().AddFile(kSettings, kNoConnection);
    Serve([&] {
        Sleep(13'700);
        Stop();
    });
    EXPECT_LE(ended_ - stopped_, kBoxTick);
    // The deletion would be a first StopAll, and the second one would not find the default set any more.
    EXPECT_EQ(Count("is not registered entity"), 0U);
    EXPECT_EQ(Count("Shutdown service"), 1U);
}

TEST_F(HostTest, AShutdownOfTheMachineIsAStopToo) {
    sim_.Files().AddFile(kSettings, kNoConnection);
    Serve([&] {
        Sleep(500);
        Stop(5);
    });
    EXPECT_EQ(States(), (std::vector<u32>{2, 4, 3, 3, 1}));
}

TEST_F(HostTest, AnyOtherControlIsAnsweredWithRunningAndDoesNothing) {
    sim_.Files().AddFile(kSettings, kNoConnection);
    Serve([&] {
        Sleep(500);
        for (const u32 control : {2U, 3U, 4U, 0U}) sim_.Service().SendControl(control);
        Sleep(500);
        EXPECT_EQ(States(), (std::vector<u32>{2, 4, 4, 4, 4, 4}));
        Stop();
    });
}

TEST_F(HostTest, OnceConnectedTheTablesAreIndexedReadInTheirOrderAndEverythingIsBuilt) {
    sim_.Files().AddFile(kSettings, kConnection);
    config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "3");
    config_.Put("AUDIOFEED", 1, {{"idaudiofeed", 1}, {"pipename", "p"}, {"thename", "x"}, {"feedtype", 3}});
    Serve([&] {
        Sleep(1'000);
        EXPECT_TRUE(sim_.Pipes().IsServed("p"));
        Stop();
    });
    const Texts expected{" Info|Starting service",
                         " Info|Connecting to Configuration service on 10.0.0.1:5060...",
                         " Info|[EC200001]: Configuration server is connected:\n    application:ConfigService\n"
                         "    local:in process\n    remote:10.0.0.1:5060",
                         " Info|Connected to Configuration service 'ConfigService'",
                         "Trace|Pre-cache 'ANNOUNCEMENT'",
                         "Trace|Pre-cache 'AUDIOFEED'",
                         "Trace|Pre-cache 'AUDIOFEEDCONTENT'",
                         "Trace|Pre-cache 'PARAMETER'",
                         " Info|Change log verbosity to 3",
                         " Info|Shutdown service"};
    EXPECT_EQ(HostLines(), expected);
    // Ids at the subscription, in one order; rows at the pre-cache, in the other; and no search leaves the process.
    EXPECT_EQ(config_.calls, (Texts{"9 AUDIOFEED", "9 AUDIOFEEDCONTENT", "9 ANNOUNCEMENT", "9 PARAMETER", "7 AUDIOFEED",
                                    "7 PARAMETER"}));
}

TEST_F(HostTest, AStopOfTheConnectedServiceTakesEverythingDownAndTheSecondStopAllFindsNothing) {
    sim_.Files().AddFile(kSettings, kConnection);
    config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "3");
    config_.Put("AUDIOFEED", 1, {{"idaudiofeed", 1}, {"pipename", "p"}, {"thename", "x"}, {"feedtype", 3}});
    Serve([&] {
        Sleep(2'000);
        Stop();
    });
    EXPECT_LE(ended_ - stopped_, kBoxTick) << "nothing waits";
    EXPECT_EQ(Count("is not registered entity"), 1U);
    EXPECT_EQ(Count("]:Destroyed"), 1U);
    EXPECT_TRUE(sim_.Pipes().ServedNames().empty());
    EXPECT_STREQ(ConfigConnection::GetServerName(), "");
    // The channel is gone before the service says that it shuts down.
    std::size_t destroyed = 0;
    std::size_t shutdown = 0;
    for (std::size_t line = 0; line < log_.size(); ++line) {
        if (log_[line].text.find("]:Destroyed") != std::string::npos) destroyed = line;
        if (log_[line].text == "Shutdown service") shutdown = line;
    }
    EXPECT_LT(destroyed, shutdown);
}

// The exception went through the whole reload: no feed was built, and none until its row changed.
TEST_F(HostTest, AMissingThreadOfTheDefaultStreamTakesNoFeedWithIt) {
    sim_.Files().AddFile(kSettings, kConnection);
    config_.PutParameter(1, "DEFAULTAUDIOFILE", "/root/a.raw");
    config_.Put("AUDIOFEED", 1, {{"idaudiofeed", 1}, {"pipename", "p"}, {"thename", "x"}, {"feedtype", 0}});
    sim_.Files().AddFile("/root/a.raw", RawBytes(Noise(24'000, 1)));
    sim_.FailThreadStarts(1, 5);  // behind those and that of the events
    Serve([&] {
        Sleep(1'000);
        Samples heard = Client("p").ReadBlocks(12);
        EXPECT_EQ(Count("Cannot start thread of musicbox 'defaultset:'"), 1U);
        // It starts with the file that it gets next; its first chunk comes a second later.
        heard.erase(heard.begin(), std::find_if(heard.begin(), heard.end(), [](i16 sample) { return sample != 0; }));
        EXPECT_GT(heard.size(), 1'000U) << "the default stream is heard";
        Stop();
    });
}

TEST_F(HostTest, AChangeOfARowReachesItsChannelAndARemovedRowEndsIt) {
    sim_.Files().AddFile(kSettings, kConnection);
    config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "3");
    Serve([&] {
        Sleep(1'000);
        config_.Put("AUDIOFEED", 7, {{"idaudiofeed", 7}, {"pipename", "p"}, {"thename", "x"}, {"nonstop", 1}});
        config_.Tell("AUDIOFEED", "Inserted", 7);
        Sleep(500);
        EXPECT_TRUE(sim_.Pipes().IsServed("p"));
        config_.Put("AUDIOFEED", 7,
                    {{"idaudiofeed", 7}, {"pipename", "p"}, {"thename", "x"}, {"nonstop", 1}, {"maxvolume", 50}});
        config_.Tell("AUDIOFEED", "Updated", 7);
        Sleep(500);
        EXPECT_EQ(Count("MaxVolume=50%, autogain disabled"), 1U);
        EXPECT_EQ(Count("]:Destroyed"), 0U);
        config_.Erase("AUDIOFEED", 7);
        config_.Tell("AUDIOFEED", "Deleted", 7);
        Sleep(500);
        EXPECT_FALSE(sim_.Pipes().IsServed("p"));
        Stop();
    });
}

}  // namespace
