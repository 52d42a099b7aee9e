// Goal: with ClientStallSeconds a client that takes nothing is ended after exactly that time, alone, and nothing else
// changes; so the shutdown of a channel, and with it changes and the stop, is bounded. Method: simulated time.
#include <gtest/gtest.h>

#include "AudioFeeder/PipeFeed.h"
#include "AudioFeeder/SharedValues.h"
#include "tests/AudioFeeder/FeederWorld.h"
#include "tests/AudioFeeder/SetModel.h"

namespace {

using namespace FeederTest;
using Orv::IPipeFeed;
using FeedHolder = MTObjects::THolder<IPipeFeed>;
using Texts = std::vector<std::string>;

constexpr u32 kLimit = 5;

class StallTest : public testing::Test {
protected:
    StallTest() {
        Orv::SetClientStallSeconds(kLimit);
        world_.Files().AddFile("/root/Playlist/x/long.raw", RawBytes(sound_));
    }
    ~StallTest() override { Orv::SetClientStallSeconds(0); }

    static FeedHolder Sorted() { return new IPipeFeed(MakeFeed({{"feedtype", 3}})); }
    // The milliseconds until the log holds so many lines with `part`.
    u64 WaitForLog(const std::string& part, u64 count = 1) {
        const u64 start = Now();
        while (world_.CountLog(part) < count && Now() - start < 60'000) Sleep(1);
        EXPECT_GE(world_.CountLog(part), count) << part;
        return Now() - start;
    }

    FeederWorld world_;
    const Samples sound_ = Noise(400'500, 1);
};

TEST_F(StallTest, AClientThatTakesNothingIsToldOfAndEndsAsOneThatBroke) {
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Client client("p");
        const u64 start = Now();
        WaitForLog("Connection closed");
        // Its pipe took two blocks of the head start, which came within the pump's first nap.
        EXPECT_GE(Now() - start, kLimit * 1000);
        EXPECT_LE(Now() - start, kLimit * 1000 + 200);
        const Texts told = world_.LogOf("Client has taken nothing for 5 s and is disconnected. ID=0x");
        ASSERT_EQ(told.size(), 1U);
        EXPECT_EQ(told[0].rfind(" Warn|Channel x as p[", 0), 0U) << told[0];
        EXPECT_EQ(world_.CountLog("Connection closed. ID="), 1U);
        EXPECT_EQ(world_.CountLog(". 0 connection(s) active"), 1U);
        EXPECT_EQ(client.ReadBlocks(2), ExpectedStream({sound_}, 2)) << "what had been written is still there";
        EXPECT_TRUE(client.SeesEnd());
    });
}

TEST_F(StallTest, TheOthersMissNothingAndTheTimeIsMadeUpFor) {
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Listener stays("p");
        Sleep(2'000);
        Client stalls("p");
        Sleep(20'000);
        stays.Stop();
        EXPECT_EQ(world_.CountLog("Client has taken nothing"), 1U);
        EXPECT_EQ(world_.CountLog(". 1 connection(s) active"), 2U) << "one came first, one was left";
        EXPECT_GE(stays.Heard().size(), 170'000U) << "22 seconds are 176 blocks";
        EXPECT_EQ(stays.Heard(), ExpectedStream({sound_}, stays.Heard().size() / 1000));
    });
}

TEST_F(StallTest, AClientThatReadsABlockBeforeTheTimeIsOverStays) {
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Client slow("p");
        Samples heard = slow.ReadBlocks(3);
        for (int block = 3; block < 10; ++block) {
            Sleep(kLimit * 1000 - 100);
            const Samples next = slow.ReadBlocks(1);
            heard.insert(heard.end(), next.begin(), next.end());
        }
        EXPECT_EQ(heard, ExpectedStream({sound_}, 10));
        EXPECT_EQ(world_.CountLog("Client has taken nothing"), 0U);
        EXPECT_EQ(world_.CountLog("Connection closed"), 0U);
    });
}

TEST_F(StallTest, PartsOfABlockCountToo) {
    world_.Pipes().SetWriteLimit(500);
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Client slow("p");
        std::string bytes(5'000, ' ');
        ASSERT_EQ(slow.ReadInto(bytes.data(), bytes.size()), bytes.size());
        for (int part = 0; part < 8; ++part) {
            Sleep(kLimit * 1000 - 100);
            ASSERT_EQ(slow.ReadInto(bytes.data(), 500), 500U);
        }
        EXPECT_EQ(world_.CountLog("Connection closed"), 0U);
        Sleep(kLimit * 1000 + 200);
        EXPECT_EQ(world_.CountLog("Client has taken nothing"), 1U);
    });
}

TEST_F(StallTest, ManyClientsThatStallTogetherAreAllGoneAfterTheTimeOfOne) {
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Listener stays("p");
        std::vector<std::unique_ptr<Client>> stall;
        for (int i = 0; i < 20; ++i) stall.push_back(std::make_unique<Client>("p"));
        for (int look = 0; look < 400; ++look) {  // one is taken in each pass, while all of them read
            for (const auto& client : stall) client->Drain();
            Sleep(10);
        }
        ASSERT_EQ(world_.CountLog("]:New pipe connected"), 21U);
        ASSERT_EQ(world_.CountLog("Connection closed"), 0U);
        const u64 start = Now();
        WaitForLog("Client has taken nothing", 20);
        EXPECT_LE(Now() - start, kLimit * 1000 + 500);
        Sleep(10'000);
        stays.Stop();
        EXPECT_GE(stays.Heard().size(), 150'000U);
        EXPECT_EQ(stays.Heard(), ExpectedStream({sound_}, stays.Heard().size() / 1000));
    });
}

// The pass of the pump in which the stop falls lasts no longer than the limit, however many clients stall in it.
TEST_F(StallTest, AShutdownWaitsForTheLimitAtMostAlsoWithManyClients) {
    world_.Run([&] {
        FeedHolder feed = Sorted();
        std::vector<std::unique_ptr<Client>> silent;
        for (int i = 0; i < 20; ++i) silent.push_back(std::make_unique<Client>("p"));
        Sleep(1'000);
        const u64 start = Now();
        feed->Shutdown();
        EXPECT_LE(Now() - start, kLimit * 1000);
        EXPECT_GE(Now() - start, kLimit * 1000 - 1'100) << "it had to wait";
    });
}

TEST_F(StallTest, WithoutTheSettingAClientIsWaitedForWithoutEnd) {
    Orv::SetClientStallSeconds(0);
    world_.Run([&] {
        FeedHolder feed = Sorted();
        Client client("p");
        Sleep(24 * 3'600'000);
        EXPECT_EQ(world_.Pipes().Counters().writersBlocked, 1U);
        EXPECT_EQ(world_.CountLog("Connection closed"), 0U);
        EXPECT_EQ(client.ReadBlocks(8), ExpectedStream({sound_}, 8));
    });
}

}  // namespace
