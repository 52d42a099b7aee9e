// Goal: a channel and an announcement whose content is another process's pipe play what that process sends, and
// silence while it sends nothing, with no block missing. Method: a server in a simulated world that sends a block each
// 125 ms, as a feed of this system does, and stalls, goes and comes back; what a client of the channel hears is
// compared with what was sent.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/PipeFeed.h"
#include "AudioFeeder/SharedValues.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using Orv::IPipeFeed;
using FeedHolder = MTObjects::THolder<IPipeFeed>;

constexpr char kRadio[] = "\\\\.\\pipe\\radio";

// Serves "radio" from construction to Leave(), one block each 125 ms to the one client that it has.
class Radio {
public:
    explicit Radio(i16 level) : level_(level), thread_("radio", [this] { Serve(); }) {}
    ~Radio() { Leave(); }
    void Stall(bool stalled) { stalled_ = stalled; }
    void Leave() {
        stop_ = true;
        if (thread_.Joinable()) thread_.Join();
    }

private:
    void Serve() {
        const auto endpoint = Platform::CreatePipeEndpoint("radio");
        Platform::SystemError error = 0;
        const auto instance = endpoint->CreateInstance(error);
        const std::string block = RawBytes(Constant(1000, level_));
        while (!stop_) {
            Sleep(125);
            if (stop_ || stalled_ || instance->PollConnect(error) != Platform::ConnectState::Connected) continue;
            instance->Write(block.data(), block.size());
        }
    }

    const i16 level_;
    bool stop_ = false;  // all simulated threads are fibers of one
    bool stalled_ = false;
    Platform::Thread thread_;
};

class LiveSourceTest : public testing::Test {
protected:
    // A feed whose folder is missing, so that it plays the default audio file: the live source.
    static FeedHolder Feed(std::initializer_list<Field> fields = {}) {
        Orv::FeedRow row = MakeFeed(fields);
        VXSetInt32Value(row.base.Get(), "feedtype", 3);
        Orv::SetDefaultAudioFile(kRadio);
        return new IPipeFeed(row);
    }

    FeederWorld world_;
};

// Lengths of the runs of equal samples, as (value, blocks); what is shorter than half a block joins no run.
std::vector<std::pair<i16, u64>> Runs(const Samples& samples) {
    std::vector<std::pair<i16, u64>> runs;
    for (std::size_t start = 0; start < samples.size();) {
        std::size_t end = start;
        while (end < samples.size() && samples[end] == samples[start]) ++end;
        if (end - start >= 500) runs.emplace_back(samples[start], (end - start + 500) / 1000);
        start = end;
    }
    return runs;
}

TEST_F(LiveSourceTest, ASourceThatComesStallsGoesAndComesBackIsHeardWithSilenceInBetweenAndNoBlockIsMissing) {
    Samples heard;
    std::vector<u64> arrivals;
    world_.Run([&] {
        FeedHolder feed = Feed();
        Listener client("p");
        Sleep(3'000);
        Radio first(7'000);
        Sleep(10'000);
        first.Stall(true);
        Sleep(4'000);
        first.Stall(false);
        Sleep(5'000);
        first.Leave();
        Sleep(3'000);
        Radio second(-6'000);
        Sleep(5'000);
        client.Stop();
        heard = client.Heard();
        arrivals = client.Arrivals();
        // Before the source goes once more.
        const std::string path = std::string("'") + kRadio + "'. ";
        EXPECT_EQ(world_.CountLog(path + "Initial connection failed. Continue Waiting..."), 1u);
        EXPECT_EQ(world_.CountLog(path + "Media connected"), 1u);
        EXPECT_EQ(world_.CountLog(path + "Connection lost. syserror=32. Waiting for media..."), 1u);
        EXPECT_EQ(world_.CountLog(path + "Media connection restored"), 1u);
    });
    const auto runs = Runs(heard);
    ASSERT_EQ(runs.size(), 6u);
    const i16 levels[] = {0, 7'000, 0, 7'000, 0, -6'000};
    const u64 blocks[] = {24, 80, 32, 40, 24, 40};  // of 125 ms, and a few for the head start and for joining
    for (int run = 0; run < 6; ++run) {
        EXPECT_EQ(runs[run].first, levels[run]) << run;
        EXPECT_NEAR(static_cast<double>(runs[run].second), static_cast<double>(blocks[run]), 6.0) << run;
    }
    // 30 s are 240 blocks, and the head start; each within a nap of its time.
    EXPECT_GE(arrivals.size(), 240u);
    for (std::size_t i = 4; i < arrivals.size(); ++i) EXPECT_LE(arrivals[i] - arrivals[i - 1], 225u) << i;

    for (const LogLine& line : world_.Log()) {
        if (line.text.find("Media connected") == std::string::npos) continue;
        EXPECT_EQ(line.word, " Info");
        EXPECT_EQ(line.text.find("VoIPFileEngine/PipeStream("), 0u) << line.text;
    }
}

// Both play the same frames out of the one ring. What one channel's limit does must not reach the other.
TEST_F(LiveSourceTest, TwoChannelsWithDifferentLimitsOnOneLiveSourceDoNotDisturbEachOther) {
    world_.Run([&] {
        Radio radio(20'000);
        FeedHolder limited = Feed({{"maxvolume", 10}});
        FeedHolder open = Feed({{"pipename", "q"}});
        Listener first("p");
        Listener second("q");
        Sleep(10'000);
        first.Stop();
        second.Stop();
        EXPECT_EQ(world_.Pipes().Counters().connects, 3u) << "two listeners and one connection to the source";
        const Samples quiet = Part(first.Heard(), 40'000, 30'000);
        for (const i16 sample : quiet) ASSERT_LE(std::abs(sample), 3'276);
        EXPECT_GE(*std::max_element(quiet.begin(), quiet.end()), 3'270);
        EXPECT_EQ(Part(second.Heard(), 40'000, 30'000), Constant(30'000, 20'000));
        limited->Shutdown();
        open->Shutdown();
    });
}

// It never ends by itself, so that the cycle of announcements stays on it.
TEST_F(LiveSourceTest, AnAnnouncementWhoseFileIsAPipePlaysTheSourceOverTheMusicFromItsLeadInOn) {
    world_.Files().AddFile("/root/Playlist/x/music.raw", RawBytes(Constant(900'500, 800)));
    world_.Run([&] {
        Orv::AnnouncementTable::Instance().Clear();
        Orv::AnnouncementTable::Instance().Store(MakeAnnouncement("a", 0, "/anywhere/Radio.PIPE"));
        Radio radio(5'000);
        ScriptedDraws draws;
        draws.Then(0, 1);  // the pause
        draws.Then(0, 2);  // the one announcement, and not another pause
        FeedHolder feed = new IPipeFeed(MakeFeed(
            {{"feedtype", 3}, {"playannouncements", 1}, {"minannouncementpause", 2}, {"maxannouncementpause", 2}}));
        Listener client("p");
        Sleep(20'000);
        client.Stop();
        feed->Shutdown();
        // 800 / 8 below 5000 from the source.
        EXPECT_EQ(Part(client.Heard(), 80'000, 60'000), Constant(60'000, 5'100));
        EXPECT_EQ(draws.Taken(), 2u);
    });
    Orv::AnnouncementTable::Instance().Clear();
}

}  // namespace
