// Goal: when the Configuration service, the audio feed service or a client is killed or stopped at a random moment,
// everybody else goes on as the rules say. Method: kill -9, SIGSTOP and SIGCONT; what is heard is compared with the
// model byte by byte, what a service has read with the database itself.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <set>

#include "tests/faults/Feeds.h"
#include "tests/support/Effort.h"

namespace OrvTest {
namespace {

constexpr int kFeeds = 4;
constexpr int kVictims = 2;  // the feeds, from the first on, whose own clients break

class Outage : public testing::Test {
protected:
    Outage() {
        exchange_.StartConfig();
        feeds_ = std::make_unique<Feeds>(exchange_, kFeeds);
        exchange_.WriteSettings("[General]\nStatusPath=" + StateSocket(exchange_) + "\n");
    }

    // Every pipe is served, by a service with as many feeds.
    bool WaitForFeeds(std::size_t count) const {
        return WaitForState(exchange_, [&](const Json& state) { return state["feeds"].size() == count; });
    }

    // A table as it stands in the database, one object for each row.
    std::set<std::string> Rows(const std::string& columns, const std::string& table) const {
        sqlite3* database = nullptr;
        EXPECT_EQ(sqlite3_open_v2(exchange_.Database().c_str(), &database, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
        sqlite3_busy_timeout(database, 10000);
        sqlite3_stmt* query = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(database, ("SELECT " + columns + " FROM " + table).c_str(), -1, &query, nullptr),
                  SQLITE_OK);
        std::set<std::string> rows;
        while (sqlite3_step(query) == SQLITE_ROW) {
            Json row;
            for (int column = 0; column < sqlite3_column_count(query); ++column) {
                Json& value = row[sqlite3_column_name(query, column)];
                const int type = sqlite3_column_type(query, column);
                if (type == SQLITE_INTEGER) value = sqlite3_column_int64(query, column);
                if (type == SQLITE_TEXT) value = reinterpret_cast<const char*>(sqlite3_column_text(query, column));
            }
            rows.insert(row.dump());
        }
        sqlite3_finalize(query);
        sqlite3_close(database);
        return rows;
    }
    // The service that was started last has read exactly what the database has. Takes the announcements away, since
    // what a service knows of each it tells when it goes.
    void ExpectTheDatabasesRows() const {
        const auto feeds = Rows(
            "pipename,thename,idaudiofeed,feedtype,nonstop,playannouncements,minannouncementpause,"
            "maxannouncementpause,maxvolume,autogain",
            "AUDIOFEED");
        const auto announcements = Rows("thename,thetype,thefile", "ANNOUNCEMENT");
        ASSERT_TRUE(WaitForState(exchange_, [&](const Json& state) {
            return state["feeds"].size() == feeds.size() && state["announcements"] == announcements.size();
        })) << AskState(exchange_);
        const Json state = AskState(exchange_);
        std::set<std::string> read;
        for (const Json& feed : state["feeds"]) read.insert(feed["row"].dump());
        EXPECT_EQ(read, feeds);
        for (const std::string& row : Rows("value", "PARAMETER WHERE name = 'DEFAULTAUDIOFILE'")) {
            EXPECT_EQ(state["default_file"], Json::parse(row)["value"]);
        }

        Json removal;
        std::set<std::string> wanted;
        for (const std::string& text : announcements) {
            const Json row = Json::parse(text);
            const auto name = row["thename"].get<std::string>();
            removal["remove"]["announcements"].push_back(name);
            wanted.insert("Announcement delete: " + name + "(" + std::to_string(row["thetype"].get<int>()) + ")[" +
                          row["thefile"].get<std::string>() + "]");
        }
        if (wanted.empty()) return;
        const std::size_t told = exchange_.LogTexts("Announcement delete: ").size();
        exchange_.Must({"apply", "-"}, removal.dump());
        ASSERT_TRUE(exchange_.WaitForLog("Announcement delete: ", 20000, told + wanted.size()));
        const auto lines = exchange_.LogTexts("Announcement delete: ");
        EXPECT_EQ(std::set<std::string>(lines.begin() + static_cast<std::ptrdiff_t>(told), lines.end()), wanted);
    }

    Exchange exchange_;
    std::unique_ptr<Feeds> feeds_;
    Chance chance_;
};

TEST_F(Outage, TheFeedsOutliveTheConfigurationServiceAndAServiceStartedAfterwardsHasTheDatabasesRows) {
    const int rounds = Effort(1, 15);
    int acknowledged = 0;
    int tried = 0;
    std::size_t heard = 0;
    double late = 0.0;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        const std::size_t lost = exchange_.LogTexts("[EC000001]").size();
        exchange_.StartFeeder();
        const SleepWitness machine;
        const auto listeners = feeds_->Listen();
        ASSERT_TRUE(WaitForAll(listeners, 2));

        std::atomic<bool> stop{false};
        std::thread writer([&] {
            while (!stop.load()) {
                const std::string name = "n" + std::to_string(tried++);
                std::vector<std::string> change{"announcement", "add", name, "--file", "/" + name, "--kind", "alone"};
                if (tried % 3 == 0) change = {"feed", "add", name, "--type", "default", "--max-pause", "7"};
                if (tried % 3 == 1) change = {"parameter", "set", "DEFAULTAUDIOFILE", "--value", "/" + name};
                if (exchange_.Ctl(change).exitCode != 0) return;
                ++acknowledged;
            }
        });
        chance_.SleepUpTo(1500);
        ::kill(exchange_.Config().Pid(), SIGKILL);
        stop.store(true);
        writer.join();
        ASSERT_TRUE(exchange_.WaitForLog("[EC000001]: Connection with configuration server is lost", 20000, lost + 1));

        // The service tries each ten seconds until it has once been connected; from then on never again.
        exchange_.StartConfig();
        const std::size_t tries = exchange_.LogTexts("Connecting to Configuration service").size();
        const std::size_t since = listeners[0]->Size() / Model::BlockBytes;
        ASSERT_TRUE(WaitForAll(listeners, since + 8 * 11));
        EXPECT_EQ(exchange_.LogTexts("Connecting to Configuration service").size(), tries);
        EXPECT_EQ(exchange_.LogTexts("[EC000001]").size(), lost + 1) << "the loss is told once";
        EXPECT_EQ(AskState(exchange_)["configuration"]["state"], "lost");
        feeds_->ExpectAllExact(listeners, since + 8 * 11, machine);
        heard += static_cast<std::size_t>(kFeeds) * (since + 8 * 11);
        late = std::max(late, feeds_->ExpectInTime(listeners, machine));
        EXPECT_EQ(exchange_.Feeder().Stop(), 0);

        exchange_.StartFeeder();
        ExpectTheDatabasesRows();
        EXPECT_EQ(exchange_.Feeder().Stop(), 0);
    }
    // One kill alone may come before the first of them.
    EXPECT_GE(acknowledged, Effort(0, 1));
    std::printf("%d kills, %d changes acknowledged, %zu blocks compared, worst lateness %.0f ms\n", rounds,
                acknowledged, heard, late);
}

TEST_F(Outage, AfterAKillOfTheServiceANewOneTakesOverItsPipes) {
    const int rounds = Effort(6, 100);
    int leftPipes = 0;
    std::size_t heard = 0;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        exchange_.StartFeeder(false);
        // A feed reads its files while somebody listens: so each second time.
        const bool plays = round % 2 == 1;
        const SleepWitness machine;
        std::vector<std::unique_ptr<Client>> listeners;
        if (plays) {
            listeners = feeds_->Listen();
            ASSERT_TRUE(WaitForAll(listeners, 1));
        }
        // Without a listener from before its first line on, with one up to well into its play.
        chance_.SleepUpTo(800);
        exchange_.Feeder().Kill();
        for (const auto& listener : listeners) {
            EXPECT_TRUE(listener->WaitForEnd());
            heard += listener->Size() / Model::BlockBytes;
        }
        if (plays) feeds_->ExpectAllExact(listeners, 1, machine);
        for (int feed = 0; feed < kFeeds; ++feed) {
            leftPipes += std::filesystem::exists(exchange_.PipeFile(Feeds::Name(feed))) ? 1 : 0;
        }
    }
    exchange_.StartFeeder();
    ASSERT_TRUE(WaitForFeeds(kFeeds));
    const SleepWitness machine;
    const auto listeners = feeds_->Listen();
    ASSERT_TRUE(WaitForAll(listeners, 12));
    feeds_->ExpectAllExact(listeners, 12, machine);
    EXPECT_EQ(exchange_.LogTexts("Cannot create new listener").size(), 0u);
    EXPECT_EQ(exchange_.LogTexts("State cannot be told").size(), 0u);
    for (const Json& feed : AskState(exchange_)["feeds"]) EXPECT_TRUE(feed["pipe_error"].is_null());
    EXPECT_EQ(exchange_.Feeder().Stop(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(exchange_.PipeFolder())) << "no socket is left of any of them";
    // Who is killed removes nothing, and of each second service all pipes had been there.
    EXPECT_GE(leftPipes, rounds / 2 * kFeeds);
    std::printf("%d kills, which left %d pipes behind, %zu blocks heard before them\n", rounds, leftPipes, heard);
}

TEST_F(Outage, AStoppedConfigurationServiceIsHeardByNobodyAndItsChangesComeAfterwards) {
    exchange_.StartFeeder();
    const SleepWitness machine;
    const auto listeners = feeds_->Listen();
    const int rounds = Effort(3, 60);
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        chance_.SleepUpTo(300);
        exchange_.Config().Signal(SIGSTOP);
        const std::size_t before = listeners[0]->Size() / Model::BlockBytes;
        ASSERT_TRUE(WaitForAll(listeners, before + 8));
        exchange_.Config().Signal(SIGCONT);
        const std::string name = "after" + std::to_string(round);
        exchange_.Must({"announcement", "add", name, "--file", "/x.wav", "--kind", "over"});
        EXPECT_TRUE(exchange_.WaitForLog("Announcement updated: " + name + "(0)[/x.wav]"));
    }
    feeds_->ExpectAllExact(listeners, static_cast<std::size_t>(rounds) * 8, machine);
    std::printf("%d stops, worst lateness %.0f ms\n", rounds, feeds_->ExpectInTime(listeners, machine));
    EXPECT_EQ(exchange_.LogTexts("[EC000001]").size(), 0u);
}

TEST_F(Outage, AStoppedServiceGoesOnWithTheBlockThatWasDueAndHasMissedNoChange) {
    exchange_.StartFeeder();
    const SleepWitness machine;
    const auto listeners = feeds_->Listen();
    ASSERT_TRUE(WaitForAll(listeners, 4));
    const int rounds = Effort(2, 40);
    const auto begin = std::chrono::steady_clock::now();
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        chance_.SleepUpTo(300);
        exchange_.Feeder().Signal(SIGSTOP);
        // The Configuration service answers as ever.
        const std::string name = "during" + std::to_string(round);
        exchange_.Must({"announcement", "add", name, "--file", "/x.wav", "--kind", "over"});
        std::this_thread::sleep_for(std::chrono::milliseconds(chance_.Between(200, 2000)));
        exchange_.Feeder().Signal(SIGCONT);
        EXPECT_TRUE(exchange_.WaitForLog("Announcement updated: " + name + "(0)[/x.wav]"));
    }
    // No block was dropped for the time that it stood.
    const auto passed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin).count();
    const auto due = static_cast<std::size_t>(passed) / 125 + 4;
    ASSERT_TRUE(WaitForAll(listeners, due));
    feeds_->ExpectAllExact(listeners, due, machine);
    EXPECT_EQ(exchange_.LogTexts("[EC000001]").size(), 0u);
}

// Of two clients of a feed in processes of their own one is killed or stopped at a random moment, over and over.
TEST_F(Outage, AClientThatIsKilledOrStoppedDisturbsNoOtherFeedAndItsOwnOnlyWhileItStands) {
    exchange_.StartFeeder();
    const SleepWitness machine;
    const auto listeners = feeds_->Listen();
    ASSERT_TRUE(WaitForAll(listeners, 2));
    const int rounds = Effort(10, 300);
    int kills = 0;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        const int feed = chance_.Below(kVictims);
        ReaderProcess victim(exchange_, Feeds::Name(feed), exchange_.Folder() / "victim.raw");
        chance_.SleepUpTo(400);
        const bool stops = chance_.Below(2) == 0;
        if (stops) {
            victim.Signal(SIGSTOP);
            std::this_thread::sleep_for(std::chrono::milliseconds(chance_.Between(300, 1200)));
        }
        if (stops && chance_.Below(2) == 0) {
            victim.Signal(SIGCONT);
            EXPECT_TRUE(victim.WaitForBlocks(victim.Size() / Model::BlockBytes + 4));
        }
        ++kills;
        victim.Kill();
    }
    const std::size_t most = listeners[0]->Size() / Model::BlockBytes;
    ASSERT_TRUE(WaitForAll(listeners, most));
    feeds_->ExpectAllExact(listeners, most, machine);
    std::printf("%d clients killed, worst lateness of the feeds that had none of them %.0f ms\n", kills,
                feeds_->ExpectInTime(listeners, machine, kVictims));
    EXPECT_TRUE(exchange_.WaitForLog("Connection closed. ID=", 20000, static_cast<std::size_t>(kills)));
    EXPECT_EQ(exchange_.LogTexts("Connection closed. ID=").size(), static_cast<std::size_t>(kills));
    EXPECT_TRUE(WaitForState(exchange_, [](const Json& state) {
        return std::all_of(state["feeds"].begin(), state["feeds"].end(),
                           [](const Json& feed) { return feed["clients"] == 1; });
    }));
}

}  // namespace
}  // namespace OrvTest
