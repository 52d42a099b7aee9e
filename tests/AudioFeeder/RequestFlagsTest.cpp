// What other threads tell the host: the library's listeners, the controls and the two flags behind them.
#include "AudioFeeder/RequestFlags.h"

#include <gtest/gtest.h>

#include "AudioFeeder/AudioFeederHost.h"
#include "AudioFeeder/LibraryListeners.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using Texts = std::vector<std::string>;

TEST(LibraryListeners, AConnectIsLoggedForAConfigurationServiceOnly) {
    FeederWorld world;
    world.Run([&] {
        for (const char* type : {"dbprovider", "DBProvider2", "", "MediaServer"}) {
            EXPECT_EQ(Orv::OnVXConnect("local", "remote", "name", 1, 2, type), 0);
        }
        EXPECT_EQ(world.CountLog("EC200001"), 0U);
        EXPECT_EQ(Orv::OnVXConnect("local", "remote", "name", 1, 2, "DBProvider"), 0);
        EXPECT_EQ(world.LogOf("EC200001"),
                  Texts{" Info|[EC200001]: Configuration server is connected:\n    application:name\n    local:local\n"
                        "    remote:remote"});
    });
}

TEST(RequestFlags, TheTimedWaitIsEndedByAStopOnlyAndTheOtherOneByBothWithTheStopFirst) {
    Platform::Sim::Simulation sim;
    sim.Run([] {
        Orv::ClearRequests();
        const u64 start = Now();
        Platform::Thread loser("loser", [] {
            Sleep(4'000);
            Orv::RaiseConnectionLost();
        });
        EXPECT_FALSE(Orv::WaitForStopRequest(10'000));
        EXPECT_EQ(Now() - start, 10'000U);
        loser.Join();
        EXPECT_FALSE(Orv::WaitForAnyRequest()) << "the loss was kept";
        Orv::RaiseConnectionLost();
        Orv::RaiseStopRequest();
        EXPECT_TRUE(Orv::WaitForAnyRequest());
        EXPECT_TRUE(Orv::WaitForAnyRequest()) << "a stop is never taken back";
        EXPECT_TRUE(Orv::WaitForStopRequest(10'000));
        Orv::ClearRequests();
    });
}

TEST(AudioFeederHost, StopAndShutdownAreAnsweredWithStopPendingAndTheRestWithRunning) {
    Orv::ClearRequests();
    MTObjects::THolder<Orv::AudioFeederHost> host(new Orv::AudioFeederHost("test host"));
    EXPECT_EQ(host->OnControl(4, 0, nullptr), 4U);
    EXPECT_EQ(host->OnControl(0xFFFFFFFF, 0, nullptr), 4U);
    EXPECT_EQ(host->OnControl(1, 0, nullptr), 3U);
    EXPECT_TRUE(Orv::WaitForStopRequest(0));
    Orv::ClearRequests();
    EXPECT_EQ(host->OnControl(5, 0, nullptr), 3U);
    EXPECT_TRUE(Orv::WaitForStopRequest(0));
    Orv::ClearRequests();
    host->Stop();
    EXPECT_TRUE(Orv::WaitForStopRequest(0));
    Orv::ClearRequests();
    Orv::ClearServices();
}

}  // namespace
