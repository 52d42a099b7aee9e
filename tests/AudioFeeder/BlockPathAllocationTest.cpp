// Between two ends of content the pump allocates nothing.
//
// Each simulated thread is a fiber of this program's one thread, so an allocation belongs to the fiber that runs. Those
// made on a pump's fiber are counted, and nothing is left out: the reader's, the pipe's, the log's and the scheduler's
// among them. The default set's box makes its chunks on a thread of its own, which is not counted.
#include <gtest/gtest.h>

#include <vector>

#include "AudioFeeder/PipeFeed.h"
#include "AudioFeeder/SharedValues.h"
#include "ServiceProcess/Log.h"
#include "tests/AudioFeeder/CountingAllocator.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using Orv::IPipeFeed;
using FeedHolder = MTObjects::THolder<IPipeFeed>;

class BlockPathTest : public testing::Test {
protected:
    // The thread of the pump, which alone has written this line.
    u64 PumpThread() {
        for (const LogLine& line : world_.Log()) {
            if (line.text.find("]:Wait for new connection") != std::string::npos) return line.thread;
        }
        ADD_FAILURE() << "no pump";
        return 0;
    }
    // Counts what the pump allocates while its client hears 1,000 blocks, with the log at its usual level.
    u64 AllocationsOf1000Blocks(Client& client) {
        const u64 thread = PumpThread();
        Orv::LogWriter::Instance().SetLogLevel(1);
        std::vector<char> sound(2'000'000);
        client.ReadBlocks(4);
        StartCounting(thread);
        const u64 read = client.ReadInto(sound.data(), sound.size());
        const u64 allocations = StopCounting();
        EXPECT_EQ(read, sound.size());
        i64 loud = 0;
        for (const char byte : sound) loud += byte != 0 ? 1 : 0;
        EXPECT_GT(loud, 1'500'000) << "the sound of a file, not silence";
        return allocations;
    }

    FeederWorld world_;
};

TEST_F(BlockPathTest, AThousandBlocksInsideOneFileOfAPlaylistAllocateNothing) {
    world_.Files().AddFile("/root/Playlist/x/long.wav", WavBytes(Noise(1'300'500, 1)));
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}, {"maxvolume", 40}, {"autogain", 1}})));
        Client client("p");
        client.ReadBlocks(12);  // the fade-in
        EXPECT_EQ(AllocationsOf1000Blocks(client), 0U);
    });
}

TEST_F(BlockPathTest, AThousandBlocksThatAreReportedAllocateNothing) {
    world_.Files().AddFile("/root/Playlist/x/long.wav", WavBytes(Noise(1'300'500, 1)));
    Orv::WantFeedReports(true);
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}, {"maxvolume", 40}, {"autogain", 1}})));
        Client client("p");
        client.ReadBlocks(12);
        const u64 before = feed->Report()->Read().blocks;
        EXPECT_EQ(AllocationsOf1000Blocks(client), 0U);
        EXPECT_GE(feed->Report()->Read().blocks, before + 1000);
    });
    Orv::WantFeedReports(false);
}

TEST_F(BlockPathTest, AThousandBlocksOfTheDefaultSetAllocateNothingOnThePump) {
    world_.Files().AddFile("/long.wav", WavBytes(Noise(1'300'500, 1)));
    world_.Run([&] {
        Orv::SetDefaultAudioFile("/long.wav");
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 0}, {"maxvolume", 40}})));
        Client client("p");
        client.ReadBlocks(40);
        EXPECT_EQ(AllocationsOf1000Blocks(client), 0U);
    });
}

// The counting itself: the same pump does allocate where a file ends.
TEST_F(BlockPathTest, TheCountingSeesTheAllocationsOfTheEndOfAFile) {
    world_.Files().AddFile("/root/Playlist/x/short.wav", WavBytes(Noise(30'500, 1)));
    world_.Run([&] {
        FeedHolder feed(new IPipeFeed(MakeFeed({{"feedtype", 3}})));
        Client client("p");
        EXPECT_GT(AllocationsOf1000Blocks(client), 100U);
    });
}

}  // namespace
