// Goal: the wall clock may be turned while feeds play, back, forward and over midnight, and nothing but the log
// notices. Method: the same world is lived twice, once with a calm wall clock and once with one that is turned. Every
// pass of a pump, every write and every arrival must be the same at the same moments of the steady clock; the log must
// be that of the calm run, with its times moved and a line for each new date.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/SharedValues.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using Orv::IPipeManager;

constexpr i64 kDay = 86'400'000;
constexpr i64 kYear = 365 * kDay;

struct Turn {
    u32 atMilliseconds;  // since the start, where the calendar says 2024-03-05 10:20:30
    i64 by;
};
constexpr Turn kTurns[] = {
    {20'007, -kDay},
    {40'007, kDay + kYear},
    // To 23:59:55, so that the day ends by itself; and once more, back over midnight.
    {60'007, 49'100'000 + 4'993},
    {80'007, -20'000},
    {100'007, -12 * 3'600'000},
};
constexpr u32 kEndMilliseconds = 120'007;
// What the log's lines are dated with, in turn.
const std::vector<std::string> kDates{"#Date: 2024/03/05", "#Date: 2024/03/04", "#Date: 2025/03/05",
                                      "#Date: 2025/03/06", "#Date: 2025/03/05", "#Date: 2025/03/06",
                                      "#Date: 2025/03/05"};

// A look for a client or a write, with its moment on the steady clock.
struct Event {
    u64 nanoseconds;
    std::string bytes;  // written
    i64 outcome;
    bool operator==(const Event& other) const {
        return nanoseconds == other.nanoseconds && bytes == other.bytes && outcome == other.outcome;
    }
};

struct Story {
    // By pipe: which of two feeds comes first in the same moment is not promised.
    std::map<std::string, std::vector<Event>> events;
    std::map<std::string, Samples> heard;
    std::map<std::string, std::vector<u64>> arrivals;
    std::vector<std::string> log;
};

class Recorder : public Platform::Sim::PipeObserver {
public:
    Recorder(Platform::Sim::Simulation& sim, Story& story) : sim_(sim), story_(story) {}
    void OnInstance(const std::string& name, Platform::PipeId id) override { Note(name, {}, id != 0 ? 1 : 0); }
    void OnPoll(const std::string& name, Platform::PipeId, Platform::ConnectState state, Platform::PipeId) override {
        Note(name, {}, static_cast<i64>(state));
    }
    void OnWrite(const std::string& name, Platform::PipeId, const u8* data, i64 taken) override {
        Note(name, std::string(reinterpret_cast<const char*>(data), static_cast<u64>(std::max<i64>(taken, 0))), taken);
    }

private:
    void Note(const std::string& name, std::string bytes, i64 outcome) {
        story_.events[name].push_back({sim_.Now(), std::move(bytes), outcome});
    }

    Platform::Sim::Simulation& sim_;
    Story& story_;
};

// The same draws in either run, which give every outcome.
class SameDraws : public Orv::IRandomSource {
public:
    SameDraws() { Orv::SetRandomSource(this); }
    ~SameDraws() override { Orv::SetRandomSource(nullptr); }
    u32 Next() override { return drawn_ += 0x9E3779B9; }

private:
    u32 drawn_ = 0;
};

// Feeds are numbered through the whole process: "[12]:" becomes "[]:".
std::string WithoutNumber(const std::string& line) {
    const std::size_t close = line.find("]:");
    const std::size_t open = close == std::string::npos ? close : line.rfind('[', close);
    return open == std::string::npos ? line : line.substr(0, open + 1) + line.substr(close);
}

std::vector<std::string> LogLines(Platform::Sim::SimFiles& files) {
    std::vector<std::string> lines;
    const std::vector<std::string> names = files.List("/log");
    EXPECT_EQ(names.size(), 1U) << "a turned clock begins no file";
    const std::string text = files.ReadBack("/log/" + names.front());
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = text.find('\n', start);
        lines.push_back(WithoutNumber(text.substr(start, end - start)));
        start = end + 1;
    }
    return lines;
}

void AddFeed(const char* pipe, const char* folder, i32 type, i32 announcements = 0) {
    IPipeManager::Instance()->UpdateFeed(MakeFeed({{"pipename", pipe},
                                                   {"thename", folder},
                                                   {"feedtype", type},
                                                   {"playannouncements", announcements},
                                                   {"minannouncementpause", 1},
                                                   {"maxannouncementpause", 4}}),
                                         {});
}

void AddFeeds() {
    // Nothing to play but the default audio file, which is another feed's sound.
    Orv::SetDefaultAudioFile("\\\\.\\pipe\\sorted");
    AddFeed("live", "nowhere", 3);
    Orv::SetDefaultAudioFile("/default.raw");
    Orv::UpdateAnnouncement(MakeAnnouncement("over", 0, "/spoken.raw"), {});
    AddFeed("sorted", "plain", 3);
    AddFeed("shuffled", "plain", 2);
    AddFeed("talking", "plain", 3, 1);
    AddFeed("default", "", 0);
    AddFeed("resting", "plain", 3);
}

Story Live(bool turned) {
    Story story;
    SameDraws draws;
    FeederWorld world;
    Recorder recorder(world.Sim(), story);
    world.Pipes().SetObserver(&recorder);
    world.Files().AddFile("/root/Playlist/plain/a.wav", WavBytes(Noise(40'123, 1)));
    world.Files().AddFile("/root/Playlist/plain/b.raw", RawBytes(Noise(56'000, 2)));
    world.Files().AddFile("/root/Playlist/plain/c.raw", RawBytes(Noise(23'456, 3)));
    world.Files().AddFile("/default.raw", RawBytes(Noise(80'500, 4)));
    world.Files().AddFile("/spoken.raw", RawBytes(Noise(13'500, 5)));
    world.Run([&] {
        Orv::AnnouncementTable::Instance().Clear();
        const u64 start = Now();
        const auto sleepTo = [&](u32 milliseconds) { Sleep(static_cast<u32>(start + milliseconds - Now())); };
        AddFeeds();
        std::map<std::string, std::unique_ptr<Listener>> listeners;
        for (const char* pipe : {"sorted", "shuffled", "talking", "default", "live"}) {
            listeners[pipe] = std::make_unique<Listener>(pipe);
        }
        for (const Turn& turn : kTurns) {
            sleepTo(turn.atMilliseconds - 3'000);
            EXPECT_EQ(Client("resting").ReadBlocks(4).size(), 4'000U) << "somebody calls, and it rests again";
            sleepTo(turn.atMilliseconds);
            Platform::Sim::SimClock& clock = world.Sim().Clock();
            if (turned) clock.SetUtcMilliseconds(clock.UtcMilliseconds() + turn.by);
        }
        sleepTo(kEndMilliseconds);
        for (const auto& [pipe, listener] : listeners) {
            story.heard[pipe] = listener->Heard();
            story.arrivals[pipe] = listener->Arrivals();
        }
        story.log = LogLines(world.Files());
        listeners.clear();
        Orv::AnnouncementTable::Instance().Clear();
    });
    world.Pipes().SetObserver(nullptr);
    return story;
}

i64 TimeOf(const std::string& line) {
    unsigned hour = 0, minute = 0, second = 0, millisecond = 0;
    if (std::sscanf(line.c_str(), "%2u:%2u:%2u.%3u|", &hour, &minute, &second, &millisecond) != 4) return -1;
    return ((hour * 60 + minute) * 60 + second) * i64{1000} + millisecond;
}

// The calm run's log, as the turned clock must date it: a date where the day of the month is another than the line's
// before.
std::vector<std::string> MovedByTheTurns(const std::vector<std::string>& calm) {
    constexpr i64 start = Platform::Sim::SimClock::StartMilliseconds;
    std::vector<std::string> moved;
    i64 day = -1;
    for (const std::string& line : calm) {
        const i64 time = TimeOf(line);
        if (time < 0) continue;  // the one date
        i64 calendar = start / kDay * kDay + time;
        const i64 since = calendar - start;
        for (const Turn& turn : kTurns) calendar += since >= turn.atMilliseconds ? turn.by : 0;
        if (day != calendar / kDay) moved.push_back("#Date");
        day = calendar / kDay;
        const u64 left = static_cast<u64>(calendar % kDay);
        char stamp[32];
        std::snprintf(stamp, sizeof stamp, "%02u:%02u:%02u.%03u", static_cast<unsigned>(left / 3'600'000 % 24),
                      static_cast<unsigned>(left / 60'000 % 60), static_cast<unsigned>(left / 1'000 % 60),
                      static_cast<unsigned>(left % 1'000));
        moved.push_back(stamp + line.substr(12));
    }
    return moved;
}

TEST(WallClockTest, TheWallClockMayBeTurnedWhileFeedsPlay) {
    const Story calm = Live(false);
    const Story turned = Live(true);

    ASSERT_EQ(calm.events.size(), 6U);
    for (const auto& [pipe, events] : calm.events) {
        EXPECT_GT(events.size(), kEndMilliseconds / 100) << pipe << " looks ten times a second";
        EXPECT_TRUE(turned.events.at(pipe) == events) << pipe;
    }
    ASSERT_EQ(calm.heard.size(), 5U);
    for (const auto& [pipe, heard] : calm.heard) {
        EXPECT_GT(heard.size(), 8'000U * (kEndMilliseconds / 1'000 - 3)) << pipe;
        EXPECT_TRUE(turned.heard.at(pipe) == heard) << pipe;
        EXPECT_EQ(turned.arrivals.at(pipe), calm.arrivals.at(pipe)) << pipe;
    }

    std::vector<std::string> dates;
    std::vector<std::string> lines = turned.log;
    for (std::string& line : lines) {
        if (!line.starts_with("#Date")) continue;
        dates.push_back(line);
        line = "#Date";
    }
    EXPECT_EQ(dates, kDates);
    EXPECT_EQ(std::count_if(calm.log.begin(), calm.log.end(), [](const auto& line) { return line[0] == '#'; }), 1);
    EXPECT_EQ(lines, MovedByTheTurns(calm.log));
    const auto tells = [&](const char* text) {
        return std::count_if(lines.begin(), lines.end(),
                             [&](const auto& line) { return line.find(text) != std::string::npos; });
    };
    EXPECT_GE(tells("Pause announcement: for "), 10);
    EXPECT_GE(tells("Start next audio file "), 30);
}

}  // namespace
