// Goal: pace, gaps and ends. Method: the publisher on a simulated thread, with clients that read as they please.
#include "Tools/orv-publish/Publisher.h"

#include <gtest/gtest.h>

#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"
#include "tests/Tools/orv-publish/Fakes.h"

namespace Orv {
namespace {

using PublishTest::Connect;
using PublishTest::Messages;
using PublishTest::RatedSource;
using PublishTest::ReadNow;
using PublishTest::Same;

class PublisherTest : public testing::Test {
protected:
    // Runs the publisher as one thread and `listen` as another; gives the publisher's result.
    i32 Publish(ISource& source, const PublishPlan& plan, const std::function<void()>& listen) {
        i32 result = -1;
        sim_.Run([&] {
            auto broadcast = OpenBroadcast("radio", [this](const std::string& text) { told_.push_back(text); });
            Platform::Thread publisher("publisher", [&] {
                result = RunPublisher(*broadcast, source, plan, stop_);
                ended_ = Now();
                broadcast.reset();
            });
            listen();
            publisher.Join();
        });
        return result;
    }
    // Reads each 50 ms until the end.
    static std::string Listen(Platform::IPipeClient& client) {
        std::string heard;
        for (bool ended = false; !ended; Platform::SleepMilliseconds(50)) heard += ReadNow(client, ended);
        return heard;
    }
    u64 Now() const { return sim_.Elapsed() / 1'000'000; }

    Platform::Sim::Simulation sim_;
    std::atomic<bool> stop_{false};
    Messages told_;
    u64 ended_ = 0;
};

TEST_F(PublisherTest, AFastSourceGoesOutInRealTimeAndItsClientHearsAllOfItAndThenTheEnd) {
    RatedSource source(80000, 0);  // five seconds
    std::string heard;
    EXPECT_EQ(Publish(source, {}, [&] { heard = Listen(*Connect("radio")); }), 0);
    EXPECT_TRUE(Same(heard, source.Whole()));
    EXPECT_GE(ended_, 4750u) << "all but the head start of a quarter of a second has waited for its time";
    EXPECT_LE(ended_, 4750u + 20 + 50 + 20);
}

TEST_F(PublisherTest, WithoutClientsTheSourceIsDrainedAtItsPace) {
    RatedSource source(80000, 0);
    EXPECT_EQ(Publish(source, {},
                      [&] {
                          Platform::SleepMilliseconds(2000);
                          EXPECT_GE(source.Given(), 4000u + 1980 * 16);
                          EXPECT_LE(source.Given(), 4000u + 2000 * 16);
                      }),
              0);
    EXPECT_LE(ended_, 4800u);
}

TEST_F(PublisherTest, ALateClientHearsTheLiveEdge) {
    RatedSource source(80000, 0);
    std::string heard;
    Publish(source, {}, [&] {
        Platform::SleepMilliseconds(3000);
        heard = Listen(*Connect("radio"));
    });
    ASSERT_GT(heard.size(), 4000u);
    EXPECT_TRUE(source.Whole().ends_with(heard));
    // 3 s have passed, and the stream runs a quarter of a second ahead, which is where the client begins.
    const u64 begin = source.Whole().size() - heard.size();
    EXPECT_GE(begin, 48000u - 640);
    EXPECT_LE(begin, 48000u + 640);
}

TEST_F(PublisherTest, ASlowSourceLeavesGapsAndNothingIsPutIntoThem) {
    RatedSource source(16000, 8);  // half of real time
    std::string heard;
    Publish(source, {}, [&] { heard = Listen(*Connect("radio")); });
    EXPECT_TRUE(Same(heard, source.Whole()));
    EXPECT_GE(ended_, 2000u);
    EXPECT_LE(ended_, 2100u);
}

TEST_F(PublisherTest, WithoutPaceWhatIsThereGoesOnAtOnce) {
    RatedSource source(64000, 64);  // four times real time
    std::string heard;
    Publish(source, {false, false}, [&] {
        const auto client = Connect("radio");
        for (bool ended = false; !ended; Platform::SleepMilliseconds(5)) heard += ReadNow(*client, ended);
    });
    EXPECT_TRUE(Same(heard, source.Whole()));
    EXPECT_LE(ended_, 1100u);
}

TEST_F(PublisherTest, WaitingBeginsTheSourceWithItsFirstClient) {
    RatedSource source(32000, 0);
    std::string heard;
    Publish(source, {true, true}, [&] {
        Platform::SleepMilliseconds(10000);
        EXPECT_EQ(source.Given(), 0u);
        heard = Listen(*Connect("radio"));
    });
    EXPECT_TRUE(Same(heard, source.Whole()));
}

TEST_F(PublisherTest, AStuckClientKeepsTheEndForTwoSecondsAndNoLonger) {
    RatedSource source(32000, 0);
    std::string heard;
    Publish(source, {}, [&] {
        const auto stuck = Connect("radio");
        heard = Listen(*Connect("radio"));
        EXPECT_LE(Now(), 1750u + 150) << "who has had everything sees the end at once";
        Platform::SleepMilliseconds(5000);
    });
    EXPECT_TRUE(Same(heard, source.Whole()));
    EXPECT_GE(ended_, 1750u + 2000);
    EXPECT_LE(ended_, 1750u + 2000 + 100);
    ASSERT_FALSE(told_.empty());
    EXPECT_NE(told_[0].find("have lost "), std::string::npos) << told_[0];
}

TEST_F(PublisherTest, AStopEndsItWithinATickWithCodeZero) {
    RatedSource source(800000, 0, 4);
    EXPECT_EQ(Publish(source, {},
                      [&] {
                          Platform::SleepMilliseconds(1005);
                          stop_.store(true);
                      }),
              0);
    EXPECT_LE(ended_, 1025u);
}

TEST_F(PublisherTest, AStopIsHeardWhileTheFirstClientIsWaitedForToo) {
    RatedSource source(800000, 0, 4);
    EXPECT_EQ(Publish(source, {true, true},
                      [&] {
                          Platform::SleepMilliseconds(1005);
                          stop_.store(true);
                      }),
              0);
    EXPECT_EQ(source.Given(), 0u);
}

TEST_F(PublisherTest, TheResultIsTheSources) {
    RatedSource source(320, 0, 4);
    EXPECT_EQ(Publish(source, {}, [] {}), 4);
}

}  // namespace
}  // namespace Orv
