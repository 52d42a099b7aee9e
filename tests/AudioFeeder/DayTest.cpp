// Goal: a service that runs for months keeps nothing of what it has played. Method: every kind of content at once for a
// simulated day, with callers that come and go; what is alive in the last minute is what was alive in the first one.
//
// The live source goes and comes back each hour. Files, pipes' buffers and events come and go within a second, so each
// minute is sampled, once a block, and its smallest counts are compared: the moment at which no announcement plays and
// no file is being changed. What must not move at all, threads, served pipes and boxes, has one value.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/SharedValues.h"
#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"
#include "Projects/Common/VoIPFileEngine/MemoryFilePreloader.h"
#include "Projects/Common/VoIPFileEngine/MusicBox.h"
#include "ServiceProcess/Log.h"
#include "tests/AudioFeeder/CountingAllocator.h"
#include "tests/AudioFeeder/FeederWorld.h"

#if defined(__SANITIZE_ADDRESS__)
#define ORV_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ORV_SANITIZED 1
#endif
#endif

namespace {

using namespace FeederTest;
using Orv::IPipeManager;

#ifdef ORV_SANITIZED
constexpr u32 kHours = 2;  // of instrumented code
#else
constexpr u32 kHours = 24;
#endif
constexpr u32 kMinuteMilliseconds = 60'000;
constexpr u32 kHourMilliseconds = 60 * kMinuteMilliseconds;

struct Counts {
    u64 threads;
    u64 pipes;  // instances served and clients
    u64 boxes;
    u64 files;  // open files, reads under way and folder searches
    i64 objects;
};

struct Minute {
    Counts least;
    Counts most;
};

// Another process's feed: a block each 125 ms for its one client, and away for two seconds whenever it is told.
class Radio {
public:
    Radio() : thread_("radio", [this] { Run(); }) {}
    ~Radio() {
        stop_ = true;
        thread_.Join();
    }
    void GoAway() { away_ = true; }
    u64 Blocks() const { return blocks_; }

private:
    void Run() {
        const std::string block = RawBytes(Noise(1'000, 9));
        while (!stop_) {
            away_ = false;
            Serve(block);
            if (!stop_) Sleep(2'000);
        }
    }
    void Serve(const std::string& block) {
        const auto endpoint = Platform::CreatePipeEndpoint("radio");
        Platform::SystemError error = 0;
        const auto instance = endpoint->CreateInstance(error);
        while (!stop_ && !away_) {
            Sleep(125);
            if (instance->PollConnect(error) != Platform::ConnectState::Connected) continue;
            if (instance->Write(block.data(), block.size()) > 0) ++blocks_;
        }
    }

    bool stop_ = false;  // all simulated threads are fibers of one
    bool away_ = false;
    u64 blocks_ = 0;
    Platform::Thread thread_;
};

class DayTest : public testing::Test {
protected:
    void SetUp() override {
        Orv::AnnouncementTable::Instance().Clear();
        Platform::Sim::SimFiles& files = world_.Files();
        // Each folder goes round within a minute.
        files.AddFile("/root/Playlist/plain/a.wav", WavBytes(Noise(40'123, 1)));
        files.AddFile("/root/Playlist/plain/b.raw", RawBytes(Noise(56'000, 2)));
        files.AddFile("/root/Playlist/plain/c.WAV", WavBytes(Noise(33'333, 3)));
        files.AddFile("/root/Playlist/compressed/a.wav", AdpcmWav(150, 1));
        files.AddFile("/root/Playlist/compressed/b.wav", AdpcmWav(90, 2));
        files.AddFile("/root/Playlist/broken/a.wav", "RIFF, but no more than that: a file that nobody can play");
        files.AddFile("/root/Playlist/broken/b.wav", WavBytes(Noise(24'000, 4)));
        files.AddFile("/root/Playlist/broken/c.raw", "");
        files.AddFile("/root/Playlist/preloaded/a.wav", WavBytes(Noise(44'000, 7)));
        std::string resampled = WavBytes(Noise(176'400, 8));
        resampled.replace(24, 8, std::string("\x44\xAC\0\0\x88\x58\x01\0", 8));  // 44100 Hz
        files.AddFile("/root/Playlist/preloaded/b.wav", resampled);
        files.AddFile("/default.wav", WavBytes(Noise(80'500, 5)));
        files.AddFile("/spoken.wav", WavBytes(Noise(13'500, 6)));
        files.AddFile("/compressed.wav", AdpcmWav(40, 3));
    }

    void TearDown() override {
        Orv::AnnouncementTable::Instance().Clear();
        Orv::MemoryFileCache::Instance().Clear();
    }

    // Blocks of compressed noise: a good header, then anything.
    static std::string AdpcmWav(u32 blocks, u32 seed) {
        std::string sound;
        const Samples noise = Noise(blocks * 256, seed);
        for (u32 block = 0; block < blocks; ++block) {
            sound += std::string{'\x10', '\x02', '\x14', '\0'};
            for (u32 byte = 4; byte < 256; ++byte) sound.push_back(static_cast<char>(noise[block * 256 + byte]));
        }
        std::string bytes = WavBytes({});
        bytes[20] = 17;                                                    // IMA ADPCM
        bytes.replace(28, 8, std::string("\xD7\x0F\0\0\0\x01\x04\0", 8));  // bytes a second, block of 256, 4 bits
        for (u32 shift = 0; shift < 4; ++shift) {
            bytes[4 + shift] = static_cast<char>((36 + sound.size()) >> (8 * shift));
            bytes[40 + shift] = static_cast<char>(sound.size() >> (8 * shift));
        }
        return bytes + sound;
    }

    static void AddFeed(const char* pipe, const char* folder, i32 type, std::initializer_list<Field> fields) {
        Orv::FeedRow row = MakeFeed({{"pipename", pipe}, {"thename", folder}, {"feedtype", type}, {"nonstop", 1}});
        for (const auto& [key, value] : fields) VXSetInt32Value(row.base.Get(), key, std::get<i32>(value));
        IPipeManager::Instance()->UpdateFeed(row, {});
    }
    static void AddEveryKind() {
        Orv::MemoryFilePreloader preloader(1 << 20);
        ASSERT_TRUE(preloader.Load("/root/Playlist/preloaded/a.wav"));
        ASSERT_TRUE(preloader.Load("/root/Playlist/preloaded/b.wav"));
        AddFeed("preloaded", "preloaded", 3, {});
        // Nothing to play but the default audio file, which is a live source at that moment and never ends.
        Orv::SetDefaultAudioFile("\\\\.\\pipe\\radio");
        AddFeed("live", "nowhere", 3, {{"maxvolume", 70}, {"autogain", 1}});
        Orv::SetDefaultAudioFile("/anywhere/Radio.PIPE");  // the same source
        AddFeed("live2", "nowhere", 3, {});
        Orv::SetDefaultAudioFile("/default.wav");
        Orv::SetMaxVolume(80);
        Orv::SetAutogain(true);
        Orv::UpdateAnnouncement(MakeAnnouncement("over", 0, "/spoken.wav"), {});
        Orv::UpdateAnnouncement(MakeAnnouncement("alone", 1, "/compressed.wav"), {});
        Orv::UpdateAnnouncement(MakeAnnouncement("gone", 0, "/nowhere.wav"), {});
        Orv::UpdateAnnouncement(MakeAnnouncement("link", 0, "http://nowhere/spoken.wav"), {});
        Orv::UpdateAnnouncement(MakeAnnouncement("gap", 0, "##1#"), {});
        AddFeed("sorted", "plain", 3, {{"maxvolume", 50}, {"autogain", 0}});
        AddFeed("shuffled", "plain", 2,
                {{"playannouncements", 1}, {"minannouncementpause", 2}, {"maxannouncementpause", 5}});
        AddFeed("compressed", "compressed", 3, {{"maxvolume", 30}, {"autogain", 1}});
        AddFeed("default", "", 0, {});
        AddFeed("broken", "broken", 3, {{"nonstop", 0}});  // heard by a client all day
        AddFeed("missing", "nowhere", 3, {});
    }

    Counts Count() {
        const Platform::Sim::FileCounters files = world_.Files().Counters();
        const Platform::Sim::PipeCounters pipes = world_.Pipes().Counters();
        return {world_.Sim().ThreadNames().size(), pipes.endpointsAlive + pipes.instancesAlive + pipes.clientsAlive,
                Orv::IMusicBox::Living(), files.filesAlive + files.readRecordsAlive + files.searchesAlive,
                LiveAllocations()};
    }
    Minute SampleAMinute() {
        Minute minute{Count(), Count()};
        for (u32 elapsed = 0; elapsed < kMinuteMilliseconds; elapsed += 125) {
            Sleep(125);
            const Counts now = Count();
            const auto keep = [&](auto Counts::*count) {
                minute.least.*count = std::min(minute.least.*count, now.*count);
                minute.most.*count = std::max(minute.most.*count, now.*count);
            };
            keep(&Counts::threads);
            keep(&Counts::pipes);
            keep(&Counts::boxes);
            keep(&Counts::files);
            keep(&Counts::objects);
        }
        return minute;
    }
    // Somebody calls, hears a second of each feed, and hangs up.
    static void CallEveryFeed() {
        for (const char* pipe :
             {"sorted", "shuffled", "compressed", "default", "broken", "missing", "live", "live2", "preloaded"}) {
            Client caller(pipe);
            EXPECT_EQ(caller.ReadBlocks(8).size(), 8'000U) << pipe;
        }
        Sleep(2'000);  // until each pump has met the end of its client
    }

    FeederWorld world_;
};

TEST_F(DayTest, AfterADayOfEveryKindOfContentThreadsDescriptorsAndObjectsAreThoseOfTheFirstMinute) {
    world_.Run([&] {
        Orv::LogWriter::Instance().SetLogLevel(0);
        Radio radio;
        AddEveryKind();
        // No Listener: it would keep a day of sound.
        bool stop = false;
        u64 heard = 0;
        Platform::Thread listener("listener", [&] {
            Client client("broken");
            char block[2'000];
            while (!stop) heard += client.ReadInto(block, sizeof block) / sizeof block;
        });
        CallEveryFeed();
        const u64 start = Now();
        const u64 opensBefore = world_.Files().Counters().opens;
        const Minute first = SampleAMinute();
        const u64 opensAMinute = world_.Files().Counters().opens - opensBefore;
        while (Now() - start < u64{kHours} * kHourMilliseconds - 2 * kMinuteMilliseconds) {
            radio.GoAway();
            CallEveryFeed();
            Sleep(std::min<u64>(kHourMilliseconds - 20 * 1'000,
                                u64{kHours} * kHourMilliseconds - 2 * kMinuteMilliseconds - (Now() - start) + 1));
        }
        const Minute last = SampleAMinute();

        EXPECT_EQ(first.least.threads, first.most.threads);
        EXPECT_EQ(last.least.threads, first.least.threads);
        EXPECT_EQ(last.most.threads, first.least.threads);
        EXPECT_EQ(last.least.pipes, first.least.pipes);
        EXPECT_EQ(last.most.pipes, first.most.pipes);
        EXPECT_EQ(first.least.boxes, 1U);
        EXPECT_EQ(last.most.boxes, 1U);
        EXPECT_EQ(last.least.files, first.least.files);
        // A playlist is some names longer or shorter at its smallest; in a day, one object kept in two hours would
        // show.
        EXPECT_NEAR(static_cast<double>(last.least.objects), static_cast<double>(first.least.objects), 12.0);
        // The same things went on all day: files were opened at the pace of the first minute, and the client heard
        // eight blocks a second.
        const u64 minutes = (Now() - start) / kMinuteMilliseconds;
        EXPECT_GE(minutes, u64{kHours} * 60 - 2);
        EXPECT_GE(opensAMinute, 20U);
        EXPECT_GE(world_.Files().Counters().opens - opensBefore, minutes * opensAMinute / 2);
        EXPECT_GE(heard, minutes * 60 * 8);
        stop = true;
        listener.Join();
        EXPECT_GE(radio.Blocks(), minutes * 60 * 7) << "a live source that somebody plays";
        Orv::IPipeManager::StopAll();  // before the source goes
        std::printf(
            "threads %llu, pipes %llu to %llu, files %llu to %llu, objects %lld to %lld; at the end %lld to %lld\n",
            static_cast<unsigned long long>(first.least.threads), static_cast<unsigned long long>(first.least.pipes),
            static_cast<unsigned long long>(first.most.pipes), static_cast<unsigned long long>(first.least.files),
            static_cast<unsigned long long>(first.most.files), static_cast<long long>(first.least.objects),
            static_cast<long long>(first.most.objects), static_cast<long long>(last.least.objects),
            static_cast<long long>(last.most.objects));
    });
}

}  // namespace
