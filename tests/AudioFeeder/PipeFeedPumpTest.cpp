// The pump of a channel on simulated time: when blocks go out, to whom, and how clients come and go.
#include <gtest/gtest.h>

#include "AudioFeeder/PipeFeed.h"
#include "AudioFeeder/SharedValues.h"
#include "tests/AudioFeeder/FeederWorld.h"
#include "tests/AudioFeeder/SetModel.h"

namespace {

using namespace FeederTest;
using Orv::IPipeFeed;
using FeedHolder = MTObjects::THolder<IPipeFeed>;

constexpr u32 kEmpty = 11;  // some system error numbers
constexpr u32 kDenied = 13;

// When block `number`, counted from 0, is there, in milliseconds after the first one: it falls due 125 ms after the
// one before, the first one 400 ms early, and the pump looks each 100 ms.
u64 ArrivalOf(u64 number) {
    const i64 due = static_cast<i64>(125 * (number + 1)) - 400;
    return due <= 0 ? 0 : static_cast<u64>((due + 99) / 100 * 100);
}

class PumpTest : public testing::Test {
protected:
    // A raw file whose end is far away.
    Samples AddLongFile(u32 blocks = 400) {
        const Samples sound = Noise(blocks * 1000 + 500, 1);
        world_.Files().AddFile("/root/Playlist/x/long.raw", RawBytes(sound));
        return sound;
    }
    static FeedHolder Sorted(std::initializer_list<Field> fields = {}) {
        Orv::FeedRow row = MakeFeed(fields);
        VXSetInt32Value(row.base.Get(), "feedtype", 3);
        return new IPipeFeed(row);
    }

    FeederWorld world_;
};

TEST_F(PumpTest, AClientThatConnectsToAChannelAtRestGetsThreeBlocksAtOnceAndThenOneEach125Milliseconds) {
    const Samples sound = AddLongFile();
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Sleep(10'000);
        Listener client("p");
        Sleep(20'000);
        client.Stop();
        const auto& arrivals = client.Arrivals();
        ASSERT_GT(arrivals.size(), 150U);
        for (std::size_t block = 0; block < arrivals.size(); ++block) {
            ASSERT_EQ(arrivals[block] - arrivals[0], ArrivalOf(block)) << block;
        }
        EXPECT_EQ(client.Heard(), ExpectedStream({sound}, arrivals.size()));
    });
}

TEST_F(PumpTest, ThePaceHoldsOverTenMinutesWithoutDrift) {
    world_.Files().AddFile("/root/Playlist/x/short.raw", RawBytes(Noise(10'500, 2)));
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Sleep(300);
        Listener client("p");
        Sleep(600'000);
        client.Stop();
        ASSERT_GT(client.Arrivals().size(), 4800U);
        for (std::size_t block = 0; block < client.Arrivals().size(); ++block) {
            ASSERT_EQ(client.Arrivals()[block] - client.Arrivals()[0], ArrivalOf(block)) << block;
        }
    });
}

TEST_F(PumpTest, ThePaceHoldsWhereTheMillisecondsOfTheClockWrapAround) {
    AddLongFile();
    const u64 wrap = u64{1} << 32;
    world_.Sim().Clock().Advance((wrap - 5000) * 1'000'000 - world_.Sim().Clock().SteadyNanoseconds());
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Sleep(1000);
        Listener client("p");
        Sleep(15'000);
        client.Stop();
        ASSERT_LT(client.Arrivals().front(), wrap);
        ASSERT_GT(client.Arrivals().back(), wrap + 10'000);
        for (std::size_t block = 0; block < client.Arrivals().size(); ++block) {
            ASSERT_EQ(client.Arrivals()[block] - client.Arrivals()[0], ArrivalOf(block)) << block;
        }
    });
}

TEST_F(PumpTest, AChannelWithoutClientsReadsNothingAfterItsStart) {
    AddLongFile();
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Sleep(1000);
        const u64 reads = world_.Files().Counters().reads;
        Sleep(60'000);
        EXPECT_EQ(world_.Files().Counters().reads, reads);
    });
}

// The write that fails takes its block with it; everything else stands still until the next client.
TEST_F(PumpTest, AfterTheLastClientHasLeftThePumpIdlesAndTheNextClientGoesOnBehindTheBlockWhoseWriteFailed) {
    const Samples sound = AddLongFile();
    const Samples stream = ExpectedStream({sound}, 30);
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Client first("p");
        EXPECT_EQ(first.ReadBlocks(3), Blocks(stream, 0, 3));
        first.Leave();
        EXPECT_EQ(world_.CountLog("Connection closed"), 0U) << "nothing is noticed until the next write fails";
        Sleep(30'000);
        EXPECT_EQ(world_.CountLog("0 connection(s) active"), 1U);
        Client second("p");
        EXPECT_EQ(second.ReadBlocks(6), Blocks(stream, 4, 6));
    });
}

TEST_F(PumpTest, EachMoveFromIdleToRunningGivesTheHeadStartAgain) {
    AddLongFile();
    world_.Run([&] {
        FeedHolder feed = Sorted();
        for (int round = 0; round < 3; ++round) {
            Listener client("p");
            Sleep(2'000);
            client.Stop();
            ASSERT_GT(client.Arrivals().size(), 5U);
            EXPECT_EQ(client.Arrivals()[2] - client.Arrivals()[0], 0U);
            EXPECT_EQ(client.Arrivals()[3] - client.Arrivals()[0], 100U);
            Sleep(5'000);
        }
    });
}

TEST_F(PumpTest, ANonstopChannelPlaysOnWithoutClientsAndAClientJoinsAtTheNextBlockWithoutAHeadStart) {
    const Samples sound = AddLongFile();
    const Samples stream = ExpectedStream({sound}, 120);
    world_.Run([&] {
        const u64 start = Now();
        FeedHolder feed = Sorted({{"nonstop", 1}});
        Sleep(10'150);
        Client client("p");
        const u64 connected = Now() - start;
        const Samples heard = client.ReadBlocks(8);
        // The client is taken at the pump's next look, which is when the next block that is due goes out.
        std::size_t next = 0;
        while (ArrivalOf(next) < (connected + 99) / 100 * 100) ++next;
        EXPECT_EQ(heard, Blocks(stream, next, 8));
    });
}

TEST_F(PumpTest, AllClientsOfAChannelHearTheSameSoundAtTheSamePositionWheneverTheyJoin) {
    AddLongFile();
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Listener first("p");
        Sleep(3'000);
        Listener second("p");
        Sleep(3'000);
        first.Stop();
        second.Stop();
        std::size_t joined = 0;  // the block of the first client that came with the second one's first
        while (first.Arrivals()[joined] != second.Arrivals()[0]) ++joined;
        const std::size_t common = first.Arrivals().size() - joined;
        ASSERT_GT(common, 20U);
        EXPECT_EQ(Blocks(first.Heard(), joined, common), Blocks(second.Heard(), 0, common));
        EXPECT_GT(second.Arrivals()[1], second.Arrivals()[0]) << "no head start for a client that joins";
    });
}

TEST_F(PumpTest, AClientThatLeavesDisturbsNobody) {
    const Samples sound = AddLongFile();
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Listener stays("p");
        Sleep(500);
        {
            Listener leaves("p");
            Sleep(1'000);
        }
        Sleep(5'000);
        stays.Stop();
        for (std::size_t block = 0; block < stays.Arrivals().size(); ++block) {
            ASSERT_EQ(stays.Arrivals()[block] - stays.Arrivals()[0], ArrivalOf(block)) << block;
        }
        EXPECT_EQ(stays.Heard(), ExpectedStream({sound}, stays.Arrivals().size()));
        EXPECT_EQ(world_.CountLog("1 connection(s) active"), 2U) << "one came first, one was left";
    });
}

// The second client's buffer takes two blocks; the third write to it waits on the pump's only thread.
TEST_F(PumpTest, WhenTheSecondOfThreeClientsStallsTheThirdGetsNothingUntilTheSecondReads) {
    const Samples sound = AddLongFile();
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Listener first("p");
        Sleep(300);
        Client second("p");
        Sleep(300);
        Listener third("p");
        Sleep(5'000);
        const std::size_t stalledFirst = first.Heard().size();
        const std::size_t stalledThird = third.Heard().size();
        Sleep(20'000);
        EXPECT_EQ(first.Heard().size(), stalledFirst);
        EXPECT_EQ(third.Heard().size(), stalledThird);
        EXPECT_EQ(world_.Pipes().Counters().writersBlocked, 1U);

        // Blocks were not dropped, and the time lost is made up for at once.
        const u64 resumed = Now();
        const Samples late = second.ReadBlocks(150);
        EXPECT_EQ(late.size(), 150'000U);
        EXPECT_LE(Now() - resumed, 200U);
        Sleep(1'000);
        EXPECT_EQ(second.Drain().size() % 1000, 0U);
        first.Stop();
        third.Stop();
        EXPECT_EQ(first.Heard(), ExpectedStream({sound}, first.Heard().size() / 1000));
        const std::size_t common = third.Heard().size();
        EXPECT_EQ(third.Heard(), Part(first.Heard(), first.Heard().size() - common, common));
    });
}

TEST_F(PumpTest, WhenTheStalledClientGoesTheOthersGoOn) {
    AddLongFile();
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Listener first("p");
        Sleep(300);
        Client second("p");
        Sleep(10'000);
        const std::size_t stalled = first.Heard().size();
        second.Leave();
        Sleep(1'000);
        EXPECT_GT(first.Heard().size(), stalled + 70'000) << "ten seconds are made up for";
        first.Stop();
    });
}

TEST_F(PumpTest, PartialWritesDoNotChangeTheStream) {
    const Samples sound = AddLongFile();
    world_.Pipes().SetWriteLimit(700);
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Client client("p");
        EXPECT_EQ(client.ReadBlocks(20), ExpectedStream({sound}, 20));
    });
}

TEST_F(PumpTest, ShutdownEndsAPumpWithoutConnectionsAtOnce) {
    AddLongFile();
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Sleep(1'030);
        const u64 start = Now();
        feed->Shutdown();
        EXPECT_EQ(Now(), start) << "the nap is cut short";
        EXPECT_EQ(Orv::runningPumpThreads.load(), 0);
        EXPECT_EQ(world_.CountLog("closed"), 1U);
        EXPECT_EQ(world_.CountLog("Connection closed"), 0U);
    });
}

TEST_F(PumpTest, ShutdownClosesEachConnectionAndTheClientsSeeTheEndBehindWhatWasWritten) {
    const Samples sound = AddLongFile();
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Client first("p");
        Client second("p");
        first.ReadBlocks(3);
        second.ReadBlocks(3);
        Sleep(100);
        feed->Shutdown();
        EXPECT_EQ(first.ReadBlocks(1), Blocks(ExpectedStream({sound}, 4), 3, 1));
        EXPECT_TRUE(first.SeesEnd());
        EXPECT_TRUE(second.SeesEnd());
        EXPECT_EQ(world_.CountLog("Connection closed"), 0U) << "a stop is no failure of a connection";
        EXPECT_EQ(world_.Pipes().Counters().instancesAlive, 1U) << "the one that waits goes with the channel";
    });
}

TEST_F(PumpTest, ShutdownIsRepeatableAndEachCallIsLogged) {
    world_.Run([&] {
        FeedHolder feed = Sorted();
        feed->Shutdown();
        feed->Shutdown();
        feed = nullptr;
        EXPECT_EQ(world_.CountLog("]:Shutdown"), 3U) << "the destructor is the third";
        EXPECT_EQ(world_.CountLog("]:closed"), 1U);
        EXPECT_EQ(world_.CountLog("]:Destroyed"), 1U);
    });
}

TEST_F(PumpTest, AStalledClientHoldsUpShutdownUntilItReads) {
    AddLongFile();
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Client client("p");
        Sleep(1'000);
        ASSERT_EQ(world_.Pipes().Counters().writersBlocked, 1U);
        bool ended = false;
        Platform::Thread stopper("stopper", [&] {
            feed->Shutdown();
            ended = true;
        });
        Sleep(10'000);
        EXPECT_FALSE(ended);
        client.ReadBlocks(1);
        stopper.Join();
        EXPECT_TRUE(ended);
    });
}

TEST_F(PumpTest, TheGlobalStopFlagEndsThePumpWithin100MillisecondsAndClosesItsConnections) {
    AddLongFile();
    world_.Run([&] {
        FeedHolder feed = Sorted();
        FeedHolder idle = Sorted({{"pipename", "q"}});
        Client client("p");
        client.ReadBlocks(3);
        Orv::channelsStopping.store(true);
        Sleep(101);
        EXPECT_EQ(Orv::runningPumpThreads.load(), 0);
        EXPECT_TRUE(client.SeesEnd());
        EXPECT_EQ(world_.CountLog("]:closed"), 2U);
    });
}

TEST_F(PumpTest, TheNameOfThePipeIsFreeAgainWhenTheChannelIsGone) {
    AddLongFile();
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Client client("p");
        EXPECT_TRUE(world_.Pipes().IsServed("p"));
        feed->Shutdown();
        feed = nullptr;
        EXPECT_FALSE(world_.Pipes().IsServed("p"));
        EXPECT_EQ(world_.Pipes().Counters().instancesAlive, 0U);
        EXPECT_EQ(world_.Pipes().Counters().endpointsAlive, 0U);
        FeedHolder again = Sorted();
        Client next("p");
        EXPECT_EQ(next.ReadBlocks(3).size(), 3'000U);
    });
}

TEST_F(PumpTest, ListenerLinesPrintTheIdInHexadecimalAndTheCloseLineInDecimal) {
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

TEST_F(PumpTest, APipeThatCannotBeCreatedIsLoggedAtThePaceOfThePumpAndTriedAgain) {
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

TEST_F(PumpTest, AChannelGoesOnForItsClientsWhileNoNewInstanceCanBeCreated) {
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

TEST_F(PumpTest, AConnectThatFailsAtItsStartIsLoggedWithTheErrorInDecimalAndANewInstanceFollows) {
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

TEST_F(PumpTest, AConnectThatFailsWhileItWaitsIsLoggedAndANewInstanceFollows) {
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
TEST_F(PumpTest, AnEmptyPipeNameIsTriedLikeAnyOtherAndAFailureIsACreationFailure) {
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

TEST_F(PumpTest, AFeedTypeOutsideZeroToThreeServesItsPipeAndSendsSilence) {
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

TEST_F(PumpTest, AThreadThatCannotBeStartedIsLoggedAndTheChannelStaysWithoutOne) {
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

TEST_F(PumpTest, AGoodStartIsLoggedAtErrorToo) {
    world_.Run([&] { FeedHolder feed = Sorted(); });
    ASSERT_EQ(world_.CountLog("]:Started"), 1U);
    EXPECT_EQ(world_.LogOf("]:Started")[0].substr(0, 6), "Error|");
}

TEST_F(PumpTest, EveryLineOfAChannelCarriesItsPrefixAndItsSourceName) {
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

TEST_F(PumpTest, EachChannelHasTheNextInstanceNumber) {
    world_.Run([&] {
        FeedHolder first = Sorted();
        FeedHolder second = Sorted({{"pipename", "q"}});
        EXPECT_EQ(second->InstanceId(), first->InstanceId() + 1);
    });
}

TEST_F(PumpTest, ABlockWithoutAFrameIsSentAsZerosAndTheStreamGoesOn) {
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
