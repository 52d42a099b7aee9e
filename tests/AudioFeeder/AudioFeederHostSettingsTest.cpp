// What the service takes from its settings file, on simulated time.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "AudioFeeder/Preload.h"
#include "AudioFeeder/SharedValues.h"
#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"
#include "tests/AudioFeeder/AudioFeederHostFixture.h"

namespace {

using namespace FeederTest;

TEST_F(HostTest, WithoutItsSettingsFileTheServiceStopsWithoutAWord) {
    Serve([] { Sleep(1'000); });
    EXPECT_EQ(States(), (std::vector<u32>{1}));
    EXPECT_EQ(sim_.Service().Statuses()[0].exitCode, 0U);
    EXPECT_FALSE(sim_.Files().Exists("/data"));
    EXPECT_TRUE(log_.empty());
}

// It was an exception, which on the service's thread aborted the process, again and again as the manager restarted it.
TEST_F(HostTest, WithASettingsFileThatADiskCutsShortTheServiceStopsWithASentence) {
    sim_.Files().AddFile(kSettings,
                         std::string(kNoConnection) + std::string(300, '#') + "\n[ConfService]\nConfPort=5\n");
    for (const u64 firstBad : {0, 280}) {
        sim_.Files().FailReads(kSettings, EIO, firstBad);
        testing::internal::CaptureStderr();
        Serve([] { Sleep(1'000); });
        const std::string said = testing::internal::GetCapturedStderr();
        sim_.Files().ClearFaults();
        EXPECT_NE(said.find("OrvPhoneSystem.ini cannot be read to its end\n"), std::string::npos) << said;
        const std::vector<u32> states = States();
        ASSERT_FALSE(states.empty());
        EXPECT_EQ(std::count(states.begin(), states.end(), 1U), static_cast<std::ptrdiff_t>(states.size()));
        EXPECT_EQ(sim_.Service().Statuses().back().exitCode, 0U);
        EXPECT_FALSE(sim_.Files().Exists("/data"));
        EXPECT_TRUE(log_.empty());
    }
}

TEST_F(HostTest, ADataPathWithoutAClosingSlashGetsOne) {
    sim_.Files().AddFile(kSettings, kNoConnection);
    Serve([&] {
        Sleep(10);
        EXPECT_EQ(Orv::RootPath(), "/data/Data/Ivr/Prompts");
        Stop();
    });
    EXPECT_EQ(sim_.Files().List("/data/Data/Logs").size(), 1U) << "the closed file has gone to its backup folder";
}

TEST_F(HostTest, ADataPathWithAClosingSlashOrBackslashStaysAsItIs) {
    sim_.Files().AddFile(kSettings, "[General]\nAppDataPath=/data\\\n");
    Serve([&] {
        Sleep(10);
        EXPECT_EQ(Orv::RootPath(), "/data\\Data/Ivr/Prompts");
        Stop();
    });
    EXPECT_GE(log_.size(), 3U) << "the log is below the same folder";
    sim_.Files().AddFile(kSettings, "[General]\nAppDataPath=/other/\n");
    folder_ = "/other/Data/Logs";
    Serve([&] {
        Sleep(10);
        EXPECT_EQ(Orv::RootPath(), "/other/Data/Ivr/Prompts");
        Stop();
    });
}

TEST_F(HostTest, WithoutADataPathTheWorkingDirectoryCounts) {
    sim_.Files().AddFile(kSettings, "\n");
    folder_ = "/Data/Logs";
    Serve([&] {
        Sleep(10);
        EXPECT_EQ(Orv::RootPath(), "./Data/Ivr/Prompts");
        Stop();
    });
    EXPECT_GE(log_.size(), 3U);
}

TEST_F(HostTest, TheFolderOfThePipesIsTakenFromTheSettingsBeforeAnyChannel) {
    const std::string before = Platform::PipeFolder();
    sim_.Files().AddFile(kSettings, kNoConnection);
    Serve([&] {
        Sleep(10);
        EXPECT_EQ(Platform::PipeFolder(), before) << "without the key it stays";
        Stop();
    });
    sim_.Files().AddFile(kSettings, std::string(kNoConnection) + "PipePath=/tmp/pipes\n");
    Serve([&] {
        Sleep(10);
        EXPECT_EQ(Platform::PipeFolder(), "/tmp/pipes");
        Stop();
    });
    Platform::SetPipeFolder(before);
}

TEST_F(HostTest, TheFilesToPreloadAreTakenFromTheSettingsAndLoadedBeforeTheFirstChannel) {
    sim_.Files().AddFile(kSettings, std::string(kConnection) + "[General]\nPreloadFiles=\"Playlist/x\"\n");
    sim_.Files().AddFile("/data/Data/Ivr/Prompts/Playlist/x/a.wav", WavBytes(Noise(4000, 1)));
    config_.PutParameter(1, "SYSTEMLOGGINGLEVEL", "3");
    config_.Put("AUDIOFEED", 1, {{"idaudiofeed", 1}, {"pipename", "p"}, {"thename", "x"}, {"feedtype", 3}});
    Serve([&] {
        Sleep(1'000);
        Stop();
    });
    EXPECT_EQ(Count("Files preloaded: 1, 8044 bytes"), 1U);
    EXPECT_GE(Count("/a.wav taken from the cache"), 1U);
    EXPECT_EQ(Count("opened as 8000 Hz"), 0U);
    Orv::SetPreload({});
    Orv::MemoryFileCache::Instance().Clear();
}

TEST_F(HostTest, TheTimeForClientsThatTakeNothingIsTakenFromTheSettingsOnceAtTheStart) {
    sim_.Files().AddFile(kSettings, std::string(kNoConnection) + "[General]\nClientStallSeconds=30\n");
    Serve([&] {
        Sleep(1'000);
        EXPECT_EQ(Orv::ClientStallSeconds(), 30U);
        sim_.Files().AddFile(kSettings, std::string(kNoConnection) + "[General]\nClientStallSeconds=40\n");
        Sleep(15'000);
        EXPECT_EQ(Orv::ClientStallSeconds(), 30U) << "reading the connection's keys again changes nothing";
        Stop();
    });
    EXPECT_EQ(Count("ClientStallSeconds"), 0U);
    Orv::SetClientStallSeconds(0);
}

TEST_F(HostTest, ATimeForClientsThatIsNoNumberIsToldAndCountsAsNone) {
    sim_.Files().AddFile(kSettings, std::string(kNoConnection) + "[General]\nClientStallSeconds=0\n");
    Serve([&] {
        Sleep(1'000);
        EXPECT_EQ(Orv::ClientStallSeconds(), 0U);
        Stop();
    });
    EXPECT_EQ(Count("ClientStallSeconds is no number from 1 to 86400, no client is ended for taking nothing"), 1U);
}

}  // namespace
