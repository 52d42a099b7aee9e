// Goal: while the connection stands, every acknowledged change reaches the tables in the order of the commits, whole,
// none lost and none invented, however many there are at a time and however slowly they are taken; and the feeds that
// none of them touches do not hear of it. Method: four writers over one connection each, feeds numbered change by
// change, and a model that replays the acknowledged transactions in the order of their numbers. What came is looked at
// in four places: two clients' streams of signals, one of which is read only when the storm is over; the tables of the
// audio feed service's client library in the test; and the audio feed service itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <random>
#include <set>
#include <thread>

#include "tests/e2e/Exchange.h"
#include "tests/faults/Neighbour.h"
#include "tests/faults/Storm.h"
#include "tests/faults/Tables.h"
#include "tests/support/Effort.h"
#include "tests/support/Seed.h"

namespace OrvTest {
namespace {

constexpr int CalmFeeds = 8;

class ChangeStorm : public ::testing::Test {
protected:
    void Start(unsigned stormedFeeds) {
        calmFiles_ = {Model::AudioOf(exchange_.AddPiece("Playlist/calm/a.wav", 10.0, 4.3)),
                      Model::AudioOf(exchange_.AddPiece("Playlist/calm/b.wav", 40.0, 3.1))};
        for (const char* folder : StormFolders) {
            exchange_.AddPiece(std::string("Playlist/") + folder + "/a.wav", 70.0, 2.0);
        }
        exchange_.StartConfig();
        administrator_ = std::make_unique<TableClient>(exchange_.Port());
        std::vector<Orv::Change> rows = StormRows(stormedFeeds);
        rows.push_back({"PARAMETER", Orv::Action::Put, 0, "SYSTEMLOGGINGLEVEL", {{"value", std::string("3")}}});
        for (int i = 0; i < CalmFeeds; ++i) {
            rows.push_back({"AUDIOFEED",
                            Orv::Action::Put,
                            0,
                            CalmFeed(i),
                            {{"thename", std::string("calm")}, {"feedtype", i32{3}}}});
        }
        ASSERT_TRUE(administrator_->Apply(rows));
        exchange_.WriteSettings("[General]\nStatusPath=" + Socket() + "\n");
        exchange_.StartFeeder();
        machine_.emplace();
        for (int i = 0; i < CalmFeeds; ++i) clients_.push_back(std::make_unique<Client>(exchange_, CalmFeed(i), 60000));
        for (const auto& client : clients_) ASSERT_TRUE(client->WaitForBlocks(8, 60000));
        begin_ = LoadAsAudioFeed(exchange_.Port());
    }

    // The storm, with whoever listens to it; `meanwhile` runs beside the writers.
    void Rage(unsigned feeds, unsigned changes, const std::function<void()>& meanwhile = {}) {
        TableClient prompt(exchange_.Port());
        TableClient late(exchange_.Port());
        late.ShutGate();
        LiveTables live(exchange_.Port());
        StormWriters writers(exchange_.Port(), seed_, feeds, changes);
        const auto from = std::chrono::steady_clock::now();
        writers.Start();
        if (meanwhile) meanwhile();
        const std::string wrong = writers.Join();
        ASSERT_EQ(wrong, "");
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - from;
        // Behind everything else in the order of the commits: who has this one has all.
        const auto fence = administrator_->Apply({{"AUDIOFEED", Orv::Action::Put, 0, "fence", {{"feedtype", i32{0}}}}});
        ASSERT_TRUE(fence.has_value());
        StormModel model(begin_, writers.Take());
        std::printf("%u changes in %zu transactions within %.1f s\n", changes, model.Transactions(), took.count());
        ASSERT_EQ(model.Gaps(), "") << "each number was given once";

        const std::size_t expected = model.Signals().size() + 1;
        ASSERT_TRUE(Eventually([&] { return prompt.SignalCount() == expected; }, 60000));
        EXPECT_EQ(late.SignalCount(), 0u);
        late.OpenGate();
        ASSERT_TRUE(Eventually([&] { return late.SignalCount() == expected; }, 60000));
        ASSERT_TRUE(Eventually([&] { return live.HasFeed("fence"); }, 120000));
        CheckSignals(prompt.Signals(), model, *fence);
        CheckSignals(late.Signals(), model, *fence);
        CheckLiveTables(live, model);
        CheckService(model);
        CheckCalmFeeds();
    }

    static void CheckSignals(std::vector<std::string> signals, const StormModel& model, const Orv::ApplyResult& fence) {
        std::vector<std::string> expected = model.Signals();
        expected.push_back(ExpectedSignal(fence));
        ASSERT_EQ(signals.size(), expected.size());
        for (std::size_t i = 0; i < signals.size(); ++i) ASSERT_EQ(signals[i], expected[i]) << "signal " << i;
    }

    // The client library's tables hold the model's rows, and it was told of each row's changes one by one, in order.
    void CheckLiveTables(LiveTables& live, const StormModel& model) {
        SeenRows rows = live.Rows();
        EXPECT_EQ(rows.erase("AUDIOFEED fence"), 1u);
        EXPECT_EQ(Difference(rows, model.Rows()), "");
        EXPECT_EQ(live.Wrong(), "");
        for (const auto& [key, changes] : model.ChangesOfRow()) {
            ASSERT_EQ(live.TimesTold(key), changes) << key;
        }
        live.Close();
        rows = LoadAsAudioFeed(exchange_.Port());
        EXPECT_EQ(rows.erase("AUDIOFEED fence"), 1u);
        EXPECT_EQ(Difference(rows, model.Rows()), "") << "what the service serves in the end";
    }

    // Each feed of the audio feed service is what its row says: built from it as far as its columns need a rebuild, and
    // at the level of now.
    void CheckService(const StormModel& model) {
        ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(exchange_.PipeFile("fence")); }, 120000));
        std::string wrong;
        EXPECT_TRUE(Eventually(
            [&] {
                wrong = model.CompareWithState(
                    OrvTest::Run({"/usr/bin/curl", "-sS", "--unix-socket", Socket(), "http://localhost/status"})
                        .output);
                return wrong.empty();
            },
            30000))
            << wrong;
        std::map<std::string, unsigned> built;
        for (const std::string& text : exchange_.LogTexts("Creating channel ")) ++built[text.substr(17)];
        for (const auto& [feed, range] : model.TimesBuilt()) {
            EXPECT_GE(built[feed], range.first) << feed;
            EXPECT_LE(built[feed], range.second) << feed;
        }
        EXPECT_EQ(exchange_.LogTexts("[EC000001]").size(), 0u);
        EXPECT_TRUE(exchange_.Feeder().Running());
    }

    void CheckCalmFeeds() {
        std::vector<std::vector<Model::Block>> heard;
        for (const auto& client : clients_) {
            ASSERT_TRUE(client->WaitForBlocks(client->Blocks().size() + 8, 30000)) << "they play on";
            EXPECT_FALSE(client->Ended());
            heard.push_back(client->Blocks());
        }
        const std::vector<LogEntry> log = exchange_.Log();
        std::size_t blocks = 0;
        std::size_t late = 0;
        for (std::size_t i = 0; i < heard.size(); ++i) {
            const Model::Feed calm(
                [files = calmFiles_, next = std::size_t{0}]() mutable { return files[next++ % files.size()]; });
            late += ExpectExact(*clients_[i], heard[i], calm, log, *machine_, CalmFeed(static_cast<int>(i)));
            blocks += heard[i].size();
        }
        std::printf("%zu blocks of %d untouched feeds compared, %zu of them silent since a read was late\n", blocks,
                    CalmFeeds, late);
    }

    // While the service was not stopped itself.
    void ExpectCalmFeedsInTime() const {
        double late = 0.0;
        for (std::size_t i = 0; i < clients_.size(); ++i) {
            late = std::max(late, ExpectInTime(*clients_[i], *machine_, CalmFeed(static_cast<int>(i))));
        }
        std::printf("worst lateness of the untouched feeds %.0f ms, of the machine %.0f ms\n", late,
                    machine_->WorstMilliseconds());
    }

    static std::string CalmFeed(int index) { return "calm" + std::to_string(index); }
    std::string Socket() const { return exchange_.Folder() / "s/state"; }

    const unsigned seed_ = SeedOfRun();
    Exchange exchange_;
    std::vector<Model::Bytes> calmFiles_;
    std::unique_ptr<TableClient> administrator_;
    std::optional<SleepWitness> machine_;
    std::vector<std::unique_ptr<Client>> clients_;
    SeenRows begin_;
};

TEST_F(ChangeStorm, EveryChangeOfFourWritersArrivesOnceInOrderAndUntouchedFeedsPlayAsIfThereWereNone) {
    const auto feeds = static_cast<unsigned>(Effort(100, 500) - CalmFeeds);
    Start(feeds);
    if (HasFatalFailure()) return;
    Rage(feeds, static_cast<unsigned>(Effort(1500, 10000)));
    ExpectCalmFeedsInTime();
}

TEST_F(ChangeStorm, AServiceThatStandsStillInTheStormHasMissedNothingWhenItGoesOn) {
    const auto feeds = static_cast<unsigned>(Effort(40, 200));
    Start(feeds);
    if (HasFatalFailure()) return;
    Rage(feeds, static_cast<unsigned>(Effort(800, 5000)), [&] {
        for (int stop = 0; stop < Effort(2, 4); ++stop) {
            exchange_.Feeder().Signal(SIGSTOP);
            std::this_thread::sleep_for(std::chrono::milliseconds(Effort(1500, 8000)));
            exchange_.Feeder().Signal(SIGCONT);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    });
}

}  // namespace
}  // namespace OrvTest
