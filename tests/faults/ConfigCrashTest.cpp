// Goal: what the Configuration service has acknowledged survives its death, whole transactions only, and who connects
// afterwards has exactly the database's rows. Method: a stream of transactions from one writer whose model knows the
// tables after each of them; kills at random moments, in the stream and in the recovery after it; each time the file is
// read by SQLite's own eyes, by the audio feed service's client library, and now and then by the service itself.
#include <gtest/gtest.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <thread>

#include "tests/e2e/Exchange.h"
#include "tests/faults/Tables.h"
#include "tests/support/Effort.h"
#include "tests/support/Seed.h"

namespace OrvTest {
namespace {

using Random = std::mt19937;

unsigned Draw(Random& random, unsigned least, unsigned most) {
    return std::uniform_int_distribution<unsigned>(least, most)(random);
}

// The tables as the writer's transactions make them. A row's content tells which transaction wrote it, so that half of
// a transaction would show.
class WrittenTables {
public:
    static constexpr unsigned RowsPerTable = 12;

    // Transaction `number`: one to twenty rows, some of which go.
    std::vector<Orv::Change> Next(Random& random, i64 number) {
        std::set<std::pair<unsigned, unsigned>> touched;
        const unsigned count = Draw(random, 0, 3) == 0 ? 1 : Draw(random, 2, 20);
        while (touched.size() < count) touched.insert({Draw(random, 0, 2), Draw(random, 0, RowsPerTable - 1)});
        std::vector<Orv::Change> changes;
        for (const auto& [table, row] : touched) {
            const bool there = marks_.contains({table, row});
            if (there && Draw(random, 0, 4) == 0) {
                marks_.erase({table, row});
                changes.push_back({Tables[table], Orv::Action::Remove, 0, KeyOf(table, row), {}});
            } else {
                marks_[{table, row}] = number;
                changes.push_back({Tables[table], Orv::Action::Put, 0, KeyOf(table, row), Values(table, number)});
            }
        }
        return changes;
    }

    // What the tables must hold, without the ids, which the service gives.
    std::map<std::string, std::string> Rows() const {
        std::map<std::string, std::string> rows;
        for (const auto& [place, number] : marks_) {
            const Orv::Table& table = *Orv::FindTable(Tables[place.first]);
            Orv::Row row;
            row.values.resize(table.columns.size());
            const auto set = [&](const std::string& column, const Orv::Value& value) {
                row.values[static_cast<unsigned>(table.FindColumn(column))] = value;
            };
            set(table.keyColumn, KeyOf(place.first, place.second));
            for (const auto& [column, value] : Values(place.first, number)) set(column, value);
            const auto seen = Seen(table, row);
            rows[seen.first] = seen.second.values;
        }
        return rows;
    }

private:
    static constexpr const char* Tables[] = {"AUDIOFEED", "ANNOUNCEMENT", "PARAMETER"};

    static std::string KeyOf(unsigned table, unsigned row) {
        return std::string(1, Tables[table][0]) + std::to_string(row);
    }
    static std::vector<std::pair<std::string, Orv::Value>> Values(unsigned table, i64 number) {
        const std::string mark = "m" + std::to_string(number);
        if (table == 0) return {{"thename", mark}, {"maxannouncementpause", static_cast<i32>(number)}};
        if (table == 1) return {{"thefile", mark + ".wav"}};
        return {{"value", mark}};
    }

    std::map<std::pair<unsigned, unsigned>, i64> marks_;
};

std::map<std::string, std::string> WithoutIds(const SeenRows& rows) {
    std::map<std::string, std::string> texts;
    for (const auto& [key, row] : rows) texts[key] = row.values;
    return texts;
}

class ConfigCrash : public ::testing::Test {
protected:
    // Writes until the service is gone, on a thread of its own.
    void Write() {
        for (;;) {
            before_ = model_;
            const std::vector<Orv::Change> changes = model_.Next(random_, acknowledged_ + 1);
            const auto result = writer_->Apply(changes);
            if (!result) return;
            if (result->transaction != acknowledged_ + 1) throw std::runtime_error("a wrong transaction number");
            expectedSignals_.push_back(ExpectedSignal(*result));
            ++acknowledged_;
            ++written_;
            ++writtenNow_;
        }
    }

    // Kills the service while a writer writes and another client listens.
    void KillInTheStream() {
        writer_ = std::make_unique<TableClient>(exchange_.Port());
        TableClient listener(exchange_.Port());
        expectedSignals_.clear();
        writtenNow_ = 0;
        const int enough = static_cast<int>(Draw(random_, 0, 8));
        const auto moment = std::chrono::microseconds(Draw(random_, 0, 15'000));
        std::atomic<bool> wrong{false};
        std::thread thread([&] {
            try {
                Write();
            } catch (const std::exception& error) {
                ADD_FAILURE() << error.what();
                wrong = true;
            }
        });
        Eventually([&] { return writtenNow_ >= enough || wrong; }, 30000);
        std::this_thread::sleep_for(moment);
        exchange_.Config().Kill();
        thread.join();
        ASSERT_FALSE(wrong);
        ASSERT_TRUE(Eventually([&] { return listener.Closed(); }));
        CheckSignals(listener.Signals());
        told_ = acknowledgedAtStart_ + static_cast<i64>(listener.SignalCount());
        writer_ = nullptr;
    }

    // What was told is what was committed, in that order, from the first on. Who is told of a transaction that was not
    // acknowledged any more finds it in the file.
    void CheckSignals(const std::vector<std::string>& signals) {
        ASSERT_LE(signals.size(), expectedSignals_.size() + 1) << "more was told than was written";
        for (std::size_t i = 0; i < signals.size() && i < expectedSignals_.size(); ++i) {
            ASSERT_EQ(signals[i], expectedSignals_[i]);
        }
    }

    // Looks at what the killed service has left, and takes it as what holds.
    void CheckFile() {
        file_ = ReadDatabase(exchange_.Database(), exchange_.Folder().Path());
        ASSERT_EQ(file_.integrity, "ok");
        ASSERT_GE(file_.transaction, acknowledged_) << "an acknowledged transaction is lost";
        ASSERT_GE(file_.transaction, told_) << "a transaction was told that is not there";
        ASSERT_LE(file_.transaction, acknowledged_ + 1) << "a transaction nobody wrote";
        const bool unanswered = file_.transaction == acknowledged_ + 1;
        if (!unanswered) model_ = before_;
        keptUnanswered_ += unanswered ? 1 : 0;
        ASSERT_EQ(WithoutIds(file_.rows), model_.Rows()) << "transaction " << file_.transaction << " is not whole";
        CheckIds();
        acknowledged_ = acknowledgedAtStart_ = file_.transaction;
        before_ = model_;
    }

    // An id is never given to a second row.
    void CheckIds() {
        for (const auto& [key, row] : file_.rows) {
            const std::string place = key.substr(0, key.find(' ')) + " " + std::to_string(row.id);
            const auto [known, isNew] = keyOfId_.emplace(place, key);
            ASSERT_TRUE(isNew || known->second == key) << place << " was " << known->second << " and is " << key;
        }
    }

    // Some starts are killed before they are done, and must leave it all as it was.
    void Restart() {
        for (int tries = 0; tries < 3 && Draw(random_, 0, 4) == 0; ++tries) {
            exchange_.LaunchConfig();
            std::this_thread::sleep_for(std::chrono::microseconds(Draw(random_, 0, 150'000)));
            exchange_.Config().Kill();
            ++killedStarts_;
            CheckFile();
        }
        exchange_.LaunchConfig();
        exchange_.AwaitConfig();
    }

    void CheckWhoConnects() { ASSERT_EQ(Difference(LoadAsAudioFeed(exchange_.Port()), file_.rows), ""); }

    void CheckRealService() {
        const std::string socket = exchange_.Folder() / "s/state";
        exchange_.WriteSettings("[General]\nStatusPath=" + socket + "\n");
        exchange_.StartFeeder();
        std::map<std::string, std::string> feeds;
        i64 announcements = -1;
        const bool same = Eventually([&] {
            const auto state = nlohmann::json::parse(
                OrvTest::Run({"/usr/bin/curl", "-sS", "--unix-socket", socket, "http://localhost/status"}).output,
                nullptr, false);
            if (!state.is_object()) return false;
            feeds.clear();
            for (const auto& feed : state["feeds"]) {
                const auto& row = feed["row"];
                feeds["AUDIOFEED " + row["pipename"].get<std::string>()] =
                    "pipename=" + row["pipename"].get<std::string>() + " thename=" + row["thename"].get<std::string>() +
                    " maxannouncementpause=" + row["maxannouncementpause"].dump();
            }
            announcements = state["announcements"].get<i64>();
            return feeds == Part("AUDIOFEED") && announcements == static_cast<i64>(Part("ANNOUNCEMENT").size());
        });
        EXPECT_TRUE(same) << ::testing::PrintToString(feeds) << announcements;
        EXPECT_EQ(exchange_.Feeder().Stop(), 0);
        ++realServices_;
    }
    std::map<std::string, std::string> Part(const std::string& table) const {
        std::map<std::string, std::string> part;
        for (const auto& [key, row] : file_.rows) {
            if (key.starts_with(table + " ")) part[key] = row.values;
        }
        return part;
    }

    const unsigned seed_ = SeedOfRun();
    Random random_{seed_};
    Exchange exchange_;
    std::unique_ptr<TableClient> writer_;
    WrittenTables model_;
    WrittenTables before_;  // in front of the transaction that is under way
    i64 acknowledged_ = 0;
    i64 acknowledgedAtStart_ = 0;
    i64 told_ = 0;
    std::vector<std::string> expectedSignals_;
    SeenFile file_;
    std::map<std::string, std::string> keyOfId_;
    int written_ = 0;
    std::atomic<int> writtenNow_{0};  // since the last start
    int keptUnanswered_ = 0;
    int killedStarts_ = 0;
    int realServices_ = 0;
};

TEST_F(ConfigCrash, WhatItHasAcknowledgedIsThereAfterAKillAtAnyMomentAndNothingIsHalfThere) {
    const int kills = Effort(40, 300);
    exchange_.StartConfig();
    for (int kill = 0; kill < kills && !HasFatalFailure(); ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill) + " of seed " + std::to_string(seed_));
        KillInTheStream();
        if (HasFatalFailure()) return;
        CheckFile();
        if (HasFatalFailure()) return;
        Restart();
        if (HasFatalFailure()) return;
        CheckWhoConnects();
        if (kill % 10 == 9) CheckRealService();
    }
    std::printf(
        "kills %d in the stream and %d in the start; transactions acknowledged %d, kept without an answer %d; "
        "services %d\n",
        kills, killedStarts_, written_, keptUnanswered_, realServices_);
    EXPECT_GE(written_, kills) << "the kills met no stream";
    EXPECT_EQ(realServices_, kills / 10);
}

}  // namespace
}  // namespace OrvTest
