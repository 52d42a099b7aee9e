// The default set with its own name as its file: it has nothing to play but what comes out of it. The set holds a
// reader, the reader holds the music box, the box holds the set; what is proved is that this circle is silent, costs
// nothing that grows, can be opened by another file, and is gone at the end in whatever order the threads run.
#include <gtest/gtest.h>

#include <algorithm>

#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/SharedValues.h"
#include "Projects/Common/VoIPFileEngine/MusicBox.h"
#include "ServiceProcess/Log.h"
#include "tests/AudioFeeder/FeederData.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using Orv::IPipeManager;

TEST(DefaultSetCircle, ADefaultSetThatListensToItselfIsSilentAndWarnsForItsFirstSecondOnly) {
    FeederWorld world;
    world.Run([&] {
        Orv::SetDefaultAudioFile("defaultset:");
        Sleep(60'000);
        // The first second has 100 frames of 80 samples; from then on each second is the copy of the one before.
        EXPECT_EQ(world.CountLog("Not enough data:80(0)"), 100U);
        EXPECT_EQ(world.CountLog("Remove obsolete data"), 0U);
        // A chunk that has been read to its end stays until the next read.
        EXPECT_GE(world.CountLog("Added chunk, total="), 59U);
        EXPECT_EQ(world.CountLog("Added chunk, total=1"), 1U);
        EXPECT_EQ(world.CountLog("Added chunk, total=2"), world.CountLog("Added chunk, total=") - 1);

        IPipeManager::Instance()->UpdateFeed(MakeFeed({{"feedtype", 0}}), {});
        Listener client("p");
        Sleep(10'000);
        client.Stop();
        EXPECT_GE(client.Heard().size(), 70'000U);
        EXPECT_EQ(client.Heard(), Constant(client.Heard().size(), 0));
    });
}

TEST(DefaultSetCircle, AnotherDefaultAudioFileOpensTheCircle) {
    FeederWorld world;
    world.Files().AddFile("/d.raw", RawBytes(Constant(400'000, 12'000)));
    world.Run([&] {
        Orv::SetDefaultAudioFile("defaultset:");
        Sleep(5'000);
        Orv::SetDefaultAudioFile("defaultset:");
        Sleep(5'000);
        Orv::SetDefaultAudioFile("/d.raw");
        IPipeManager::Instance()->UpdateFeed(MakeFeed({{"feedtype", 0}}), {});
        Listener client("p");
        Sleep(10'000);
        client.Stop();
        EXPECT_EQ(client.Heard().back(), 12'000);
        EXPECT_EQ(Orv::IMusicBox::Living(), 1U);
    });
    EXPECT_EQ(Orv::IMusicBox::Living(), 0U);
}

TEST(DefaultSetCircle, AfterStopAllAndWaitForChannelsNeitherBoxNorThreadIsLeft) {
    FeederWorld world;
    world.Run([&] {
        Orv::SetDefaultAudioFile("defaultset:");
        IPipeManager::Instance()->UpdateFeed(MakeFeed({{"feedtype", 0}, {"nonstop", 1}}), {});
        Sleep(3'000);
        const u64 start = Now();
        IPipeManager::StopAll();
        IPipeManager::WaitForChannels();
        EXPECT_LE(Now() - start, 10U) << "a tick of the box at most";
        EXPECT_EQ(Orv::IMusicBox::Living(), 0U);
        EXPECT_EQ(world.Sim().ThreadNames(), std::vector<std::string>{"main"});
    });
}

// The box's thread may stand anywhere in its tick when the end comes, also right before the lock of the set, under
// which the last reader of the box goes. A hang of any seed is an exception out of Run().
TEST(DefaultSetCircle, TheEndComesInWhateverOrderTheThreadsRun) {
    for (u64 seed = 1; seed <= 400; ++seed) {
        SCOPED_TRACE(seed);
        Platform::Sim::Options options;
        options.order = Platform::Sim::Order::Seeded;
        options.preemptOneIn = 8;
        FeederWorld world(seed, options);
        world.Run([&] {
            Orv::LogWriter::Instance().SetLogLevel(0);
            Orv::SetDefaultAudioFile("defaultset:");
            Sleep(50);  // on the grid of the box's ticks
            IPipeManager::StopAll();
            IPipeManager::WaitForChannels();
            EXPECT_EQ(Orv::IMusicBox::Living(), 0U);
        });
    }
}

}  // namespace
