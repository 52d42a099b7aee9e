// The pump of a channel on simulated time: when blocks go out, to whom, and how clients come and go.
#include <gtest/gtest.h>

#include "AudioFeeder/SharedValues.h"
#include "tests/AudioFeeder/PipeFeedFixture.h"
#include "tests/AudioFeeder/SetModel.h"

namespace {

using namespace FeederTest;
using Orv::IPipeFeed;

// When block `number`, counted from 0, is there, in milliseconds after the first one: it falls due 125 ms after the
// one before, the first one 400 ms early, and the pump looks each 100 ms.
u64 ArrivalOf(u64 number) {
    const i64 due = static_cast<i64>(125 * (number + 1)) - 400;
    return due <= 0 ? 0 : static_cast<u64>((due + 99) / 100 * 100);
}

using PumpTest = PipeFeedFixture;

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

}  // namespace
