// Channels on real threads while configuration events come in from two more, under the eyes of the watch: what the
// thread sanitizer is to see.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/ServiceWatch.h"
#include "AudioFeeder/SharedLocks.h"
#include "AudioFeeder/SharedValues.h"
#include "AudioFeeder/UpdateDispatcher.h"
#include "Platform/Clock.h"
#include "Platform/NamedPipe.h"
#include "Platform/Thread.h"
#include "ServiceProcess/Log.h"
#include "tests/AudioFeeder/FeederData.h"

namespace {

using namespace FeederTest;
using Orv::IPipeManager;

constexpr u32 kRunMilliseconds = 2'000;

class FeederThreadsTest : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/feedXXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder_ = name;
        Platform::SetPipeFolder(folder_ + "/pipe");
        for (const char* folder : {"/Playlist/sorted", "/Playlist/shuffled", "/log"}) {
            std::filesystem::create_directories(folder_ + folder);
        }
        for (int file = 0; file < 3; ++file) {
            const std::string bytes = WavBytes(Noise(3'500, static_cast<u32>(file)));
            const std::string wav = "/" + std::to_string(file) + ".wav";
            std::ofstream(folder_ + "/Playlist/sorted" + wav) << bytes;
            std::ofstream(folder_ + "/Playlist/shuffled" + wav) << bytes;
        }
        std::ofstream(folder_ + "/d.wav") << WavBytes(Noise(20'500, 9));
        Orv::LogWriter::Instance().OpenLog((folder_ + "/log").c_str(), 1u << 30);
        Orv::LogWriter::Instance().SetLogLevel(3);
        Orv::SetRootPath(folder_.c_str());
        Orv::SetDefaultAudioFile((folder_ + "/d.wav").c_str());
        Orv::FillTableIds();
    }
    void TearDown() override {
        Orv::LogWriter::Instance().CloseLog();
        std::filesystem::remove_all(folder_);
    }

    static VX::ParamListHolder Feed(const char* pipe, i32 type, i32 volume) {
        return MakeList({{"idaudiofeed", 1},
                         {"pipename", pipe},
                         {"thename", pipe},
                         {"feedtype", type},
                         {"nonstop", 1},
                         {"playannouncements", 1},
                         {"maxvolume", volume},
                         {"autogain", volume % 2}});
    }
    static void Change(const char* table, const char* kind, VX::ParamListHolder newRow,
                       VX::ParamListHolder oldRow = {}) {
        Orv::OnConfigUpdate(table, kind, 1, &newRow, &oldRow);
    }

    std::string folder_;
};

// The bytes that a client hears until the pipe ends or `stop` is set.
u64 Listen(const std::string& pipe, const std::atomic<bool>& stop) {
    u64 heard = 0;
    std::unique_ptr<Platform::IPipeClient> client;
    char buffer[4096];
    while (!stop.load()) {
        Platform::SystemError error = 0;
        if (client == nullptr) client = Platform::ConnectPipe(pipe, error);
        if (client == nullptr) {
            Platform::SleepMilliseconds(5);
            continue;
        }
        u64 taken = 0;
        const auto outcome = client->Read(buffer, sizeof buffer, 50, taken, error);
        if (outcome == Platform::IPipeClient::Outcome::Data) heard += taken;
        if (outcome == Platform::IPipeClient::Outcome::Closed) client.reset();
    }
    return heard;
}

TEST_F(FeederThreadsTest, ChannelsPlayOnWhileTheirConfigurationChangesFromTwoThreadsAtOnce) {
    const std::pair<const char*, i32> feeds[] = {{"sorted", 3}, {"shuffled", 2}, {"default", 0}};
    for (const auto& [pipe, type] : feeds) Change("AUDIOFEED", "Inserted", Feed(pipe, type, 0));

    std::atomic<bool> stop{false};
    u64 heard[3] = {};
    {
        const Orv::ServiceWatch watch;
        std::vector<Platform::Thread> threads;
        for (int index = 0; index < 3; ++index) {
            threads.emplace_back("listener", [&, index] { heard[index] = Listen(feeds[index].first, stop); });
        }
        threads.emplace_back("updates", [&] {
            for (i32 round = 0; !stop.load(); ++round) {
                for (const auto& [pipe, type] : feeds) {
                    Change("AUDIOFEED", "Updated", Feed(pipe, type, round % 100), Feed(pipe, type, 0));
                }
                Platform::SleepMilliseconds(7);
            }
        });
        threads.emplace_back("values", [&] {
            for (i32 round = 0; !stop.load(); ++round) {
                const std::string volume = std::to_string(round % 101);
                Change("PARAMETER", "Updated",
                       MakeList({{"name", "AUDIO_PROVIDER_MAX_VOLUME"}, {"value", volume.c_str()}}));
                Change("PARAMETER", "Updated",
                       MakeList({{"name", "AUDIO_PROVIDER_ENABLE_AUTOGAIN"}, {"value", round % 2 != 0 ? "1" : "0"}}));
                Change("PARAMETER", "Updated",
                       MakeList({{"name", "DEFAULTAUDIOFILE"}, {"value", (folder_ + "/d.wav").c_str()}}));
                Change("PARAMETER", "Updated", MakeList({{"name", "IVRPROMPTPATH"}, {"value", folder_.c_str()}}));
                Change("ANNOUNCEMENT", round % 3 != 0 ? "Updated" : "Deleted",
                       MakeAnnouncement("a", round % 2, (folder_ + "/d.wav").c_str()).base,
                       MakeAnnouncement("a", 0, "").base);
                Platform::SleepMilliseconds(5);
            }
        });
        // As the watch does, and far more often.
        threads.emplace_back("looks", [&] {
            std::vector<Orv::PumpState> pumps;
            while (!stop.load()) {
                for (const Orv::SharedLock& lock : Orv::SharedLocks()) lock.take();
                Orv::PumpPulse::TryAll(pumps);
                Platform::SleepMilliseconds(1);
            }
        });
        Platform::SleepMilliseconds(kRunMilliseconds);
        stop.store(true);
        for (Platform::Thread& thread : threads) thread.Join();
    }
    IPipeManager::StopAll();
    EXPECT_EQ(Orv::runningPumpThreads.load(), 0);
    // Sixteen blocks are due in two seconds; a busy machine may lose some at the end, never the head start.
    for (const u64 bytes : heard) EXPECT_GE(bytes, 6'000U);
}

}  // namespace
