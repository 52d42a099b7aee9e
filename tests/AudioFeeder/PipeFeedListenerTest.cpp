// A channel's door and its log: pipes that cannot be created, connects that fail, ids, and channels that cannot play.
#include <gtest/gtest.h>

#include "tests/AudioFeeder/PipeFeedFixture.h"
#include "tests/AudioFeeder/SetModel.h"

namespace {

using namespace FeederTest;
using Orv::IPipeFeed;

constexpr u32 kEmpty = 11;  // some system error numbers
constexpr u32 kDenied = 13;

using ListenerTest = PipeFeedFixture;

TEST_F(ListenerTest, ListenerLinesPrintTheIdInHexadecimalAndTheCloseLineInDecimal) {
    AddLongFile();
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Client client("p");
        client.ReadBlocks(3);
        client.Leave();
        Sleep(1'000);
    });
    const auto waits = world_.LogOf("Wait for new connection. ID = ");
    ASSERT_GE(waits.size(), 2U) << "a further instance waits once the client has been taken";
    const std::string& wait = waits.front();
    const std::string prefix = wait.substr(6, wait.find("]:") - 4);
    const std::string hex = wait.substr(wait.find("ID = ") + 5);
    ASSERT_EQ(hex.substr(0, 2), "0x");
    const i32 decimal = static_cast<i32>(std::stoull(hex, nullptr, 16));
    EXPECT_EQ(wait, " Info|" + prefix + "Wait for new connection. ID = " + hex);
    EXPECT_EQ(
        world_.LogOf("New pipe connected"),
        std::vector<std::string>{" Info|" + prefix + "New pipe connected ID=" + hex + ". 1 connection(s) active"});
    EXPECT_EQ(world_.LogOf("Connection closed"),
              std::vector<std::string>{" Info|" + prefix + "Connection closed. ID=" + std::to_string(decimal) +
                                       ". 0 connection(s) active"});
    EXPECT_TRUE(prefix.starts_with("Channel x as p[")) << prefix;
}

TEST_F(ListenerTest, APipeThatCannotBeCreatedIsLoggedAtThePaceOfThePumpAndTriedAgain) {
    AddLongFile();
    world_.Pipes().FailInstances("p", kDenied, 5);
    world_.Run([&] {
        const u64 start = Now();
        FeedHolder feed = Sorted();
        Sleep(450);
        EXPECT_EQ(world_.CountLog("Cannot create new listener for connection. error=13"), 5U);
        Client client("p");
        EXPECT_GE(Now() - start, 500U);
        EXPECT_EQ(client.ReadBlocks(3).size(), 3'000U);
        const auto lines = world_.LogOf("Cannot create new listener");
        ASSERT_EQ(lines.size(), 5U);
        EXPECT_EQ(lines[0].substr(0, 6), "Error|");
    });
}

TEST_F(ListenerTest, AChannelGoesOnForItsClientsWhileNoNewInstanceCanBeCreated) {
    const Samples sound = AddLongFile();
    world_.Run([&] {
        FeedHolder feed = Sorted();
        world_.Pipes().FailInstances("p", kDenied);
        Sleep(50);
        Client client("p");
        EXPECT_EQ(client.ReadBlocks(30), ExpectedStream({sound}, 30));
        EXPECT_GT(world_.CountLog("error=13"), 10U);
    });
}

TEST_F(ListenerTest, AConnectThatFailsAtItsStartIsLoggedWithTheErrorInDecimalAndANewInstanceFollows) {
    AddLongFile();
    world_.Pipes().FailPolls("p", kEmpty, 1);
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Sleep(50);
        const auto waits = world_.LogOf("Wait for new connection. ID = ");
        ASSERT_EQ(waits.size(), 1U);
        const std::string id = waits[0].substr(waits[0].find("ID = ") + 5);
        const auto failures = world_.LogOf("ConnectNamedPipe failed");
        ASSERT_EQ(failures.size(), 1U);
        EXPECT_EQ(failures[0].substr(0, 6), " Info|");
        EXPECT_NE(failures[0].find("]:ConnectNamedPipe failed (11). ID=" + id), std::string::npos) << failures[0];
        Client client("p");
        EXPECT_EQ(client.ReadBlocks(3).size(), 3'000U);
    });
}

TEST_F(ListenerTest, AConnectThatFailsWhileItWaitsIsLoggedAndANewInstanceFollows) {
    AddLongFile();
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Sleep(50);
        world_.Pipes().FailPolls("p", kEmpty, 1);
        Sleep(100);
        const auto waits = world_.LogOf("Wait for new connection. ID = ");
        const std::string id = waits[0].substr(waits[0].find("ID = ") + 5);
        const auto failures = world_.LogOf("Connection failed on ID=");
        ASSERT_EQ(failures.size(), 1U);
        EXPECT_NE(failures[0].find("]:Connection failed on ID=" + id), std::string::npos) << failures[0];
        EXPECT_EQ(failures[0].substr(0, 6), " Info|");
        Client client("p");
        EXPECT_EQ(client.ReadBlocks(3).size(), 3'000U);
    });
}

// Whatever the platform makes of the bare prefix, the channel lives on and plays.
TEST_F(ListenerTest, AnEmptyPipeNameIsTriedLikeAnyOtherAndAFailureIsACreationFailure) {
    for (int file = 0; file < 3; ++file) {
        world_.Files().AddFile("/root/Playlist/x/" + std::to_string(file) + ".raw", RawBytes(Noise(500, 1)));
    }
    world_.Run([&] {
        FeedHolder feed = Sorted({{"pipename", ""}, {"nonstop", 1}});
        Sleep(1'000);
        EXPECT_GE(world_.CountLog("Channel x as ["), 5U);
        EXPECT_GE(world_.CountLog("Cannot create new listener") + world_.CountLog("Wait for new connection"), 1U);
        EXPECT_GE(world_.CountLog("Start next audio file"), 3U);
    });
}

TEST_F(ListenerTest, AFeedTypeOutsideZeroToThreeServesItsPipeAndSendsSilence) {
    AddLongFile();
    for (const i32 type : {4, -1, 2147483647}) {
        world_.Run([&] {
            FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", type}, {"playannouncements", 1}})));
            Client client("p");
            EXPECT_EQ(client.ReadBlocks(10), Constant(10'000, 0));
            feed->Start();
            EXPECT_EQ(client.ReadBlocks(2), Constant(2'000, 0));
        });
    }
}

TEST_F(ListenerTest, AThreadThatCannotBeStartedIsLoggedAndTheChannelStaysWithoutOne) {
    world_.Run([&] {
        world_.Sim().FailThreadStarts(1);
        FeedHolder feed = Sorted();
        Sleep(1'000);
        EXPECT_FALSE(world_.Pipes().IsServed("p")) << "the pipe comes with the pump's first pass";
        ASSERT_EQ(world_.CountLog("Cannot start thread"), 1U);
        EXPECT_EQ(world_.LogOf("Cannot start thread")[0].substr(0, 6), "Error|");
        feed->Shutdown();
        feed = nullptr;
        EXPECT_EQ(world_.CountLog("]:closed"), 0U);
        EXPECT_EQ(world_.CountLog("]:Destroyed"), 1U);
    });
}

TEST_F(ListenerTest, AGoodStartIsLoggedAtErrorToo) {
    world_.Run([&] { FeedHolder feed = Sorted(); });
    ASSERT_EQ(world_.CountLog("]:Started"), 1U);
    EXPECT_EQ(world_.LogOf("]:Started")[0].substr(0, 6), "Error|");
}

TEST_F(ListenerTest, EveryLineOfAChannelCarriesItsPrefixAndItsSourceName) {
    AddLongFile();
    std::string prefix;
    world_.Run([&] {
        FeedHolder feed = Sorted({{"playannouncements", 1}});
        prefix = "Channel x as p[" + std::to_string(feed->InstanceId()) + "]:";
        Client client("p");
        client.ReadBlocks(5);
    });
    u64 lines = 0;
    for (const LogLine& line : world_.Log()) {
        if (line.text.find("Channel ") == std::string::npos) continue;
        EXPECT_EQ(line.source, "PipeManager");
        EXPECT_TRUE(line.text.starts_with(prefix)) << line.text;
        ++lines;
    }
    EXPECT_GT(lines, 8U);
}

TEST_F(ListenerTest, EachChannelHasTheNextInstanceNumber) {
    world_.Run([&] {
        FeedHolder first = Sorted();
        FeedHolder second = Sorted({{"pipename", "q"}});
        EXPECT_EQ(second->InstanceId(), first->InstanceId() + 1);
    });
}

TEST_F(ListenerTest, ABlockWithoutAFrameIsSentAsZerosAndTheStreamGoesOn) {
    const Samples sound = Noise(2'500, 3);
    world_.Files().AddFile("/root/Playlist/x/short.raw", RawBytes(sound));
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Client client("p");
        const Samples heard = client.ReadBlocks(8);
        EXPECT_EQ(heard, ExpectedStream({sound, sound}, 8));
        EXPECT_EQ(Blocks(heard, 3, 1), Constant(1000, 0)) << "the change of file costs one null block";
    });
}

}  // namespace
