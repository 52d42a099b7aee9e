// Goal: a full disk costs lines of the log and refuses changes, and nothing else: no sound, no row, no torn line. The
// same for a log folder that goes away. Method: small disks in memory under the log and under the database; the sound
// comes from memory, since late reads would be told by lines that are lost here.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <random>
#include <regex>
#include <set>

#include "tests/faults/Disks.h"
#include "tests/faults/Neighbour.h"
#include "tests/support/Effort.h"

namespace fs = std::filesystem;

namespace OrvTest {
namespace {

using ::testing::HasSubstr;

std::vector<std::string> LinesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(stream, line)) lines.push_back(line);
    return lines;
}

// The first line is the date, and all are whole. One statement goes on in three lines that have no prefix.
void ExpectWholeLog(const std::string& text) {
    static const std::regex form(
        R"(#Date: \d{4}/\d\d/\d\d|    (application|local|remote):.+|)"
        R"(\d\d:\d\d:\d\d\.\d{3}\|\d{8,}\|(Error| Warn| Info|Excep|Trace|Debug)\|([A-Za-z/]+\(\d+\))?: .*)");
    const auto lines = LinesOf(text);
    ASSERT_FALSE(lines.empty());
    EXPECT_THAT(lines.front(), ::testing::StartsWith("#Date: "));
    EXPECT_EQ(text.back(), '\n');
    for (const std::string& line : lines) EXPECT_TRUE(std::regex_match(line, form)) << line;
}

class FullDisk : public ::testing::Test {
protected:
    void SetUp() override {
        if (const std::string why = WhyNoDisks(); !why.empty()) GTEST_SKIP() << why;
        exchange_.emplace();
    }
    // Two feeds out of memory: one with one client all the time, one that clients come to and leave.
    void AddFeeds() {
        exchange_->StartConfig();
        calm_.emplace(*exchange_, "calm");
        busy_.emplace(*exchange_, "busy", 60.0);
        exchange_->WriteSettings("[General]\nPreloadFiles=\"" + calm_->File() + "\" \"" + busy_->File() + "\"\n");
    }
    // Each of them is served, whatever becomes of the lines that tell so.
    void ComeAndGo(int clients) {
        std::vector<std::unique_ptr<Client>> open;
        for (int i = 0; i < clients; ++i) open.push_back(std::make_unique<Client>(*exchange_, "busy"));
        for (const auto& client : open) EXPECT_TRUE(client->WaitForBlocks(1));
        came_ += static_cast<std::size_t>(clients);
    }
    std::string LogFolder() const { return exchange_->Folder() / "d/Data/Logs"; }

    std::optional<Exchange> exchange_;
    std::optional<Neighbour> calm_;
    std::optional<Neighbour> busy_;
    std::size_t came_ = 0;
};

TEST_F(FullDisk, UnderTheLogLosesWholeLinesAndNoSoundAndTheLogGoesOnOnceThereIsRoom) {
    AddFeeds();
    SmallDisk disk(LogFolder(), 2048);
    exchange_->StartFeeder();
    calm_->Listen();
    const int rounds = Effort(5, 100);
    for (int round = 0; round < rounds; ++round) {
        disk.Fill();
        const std::size_t told = exchange_->LogTexts("]:New pipe connected").size();
        ComeAndGo(24);  // more lines than the last page of the file has room for
        ASSERT_EQ(disk.FreeBytes(), 0u);
        const std::size_t before = exchange_->LogTexts("]:New pipe connected").size();
        EXPECT_LT(before - told, 24u) << "nothing was lost, so the disk was not full";
        disk.MakeRoom();
        ComeAndGo(1);
        EXPECT_TRUE(exchange_->WaitForLog("]:New pipe connected", 10000, before + 1));
    }
    ExpectWholeLog(exchange_->LogText());
    calm_->ExpectUntouched(true);
    std::printf("%d times full; %zu clients served, %zu of them in the log; worst lateness %.0f ms\n", rounds,
                came_ + 1, exchange_->LogTexts("]:New pipe connected").size(), calm_->WorstLateness());
    EXPECT_EQ(exchange_->Feeder().Stop(), 0);
}

TEST_F(FullDisk, UnderTheLogFromTheStartOnLetsEverythingPlayAndTheLogBeginsOnceThereIsRoom) {
    AddFeeds();
    SmallDisk disk(LogFolder(), 256);
    disk.Fill();
    exchange_->StartFeeder(false);
    calm_->Listen();
    ComeAndGo(2);
    EXPECT_EQ(exchange_->LogText(), "");
    disk.MakeRoom();
    ComeAndGo(1);
    EXPECT_TRUE(exchange_->WaitForLog("]:New pipe connected"));
    ExpectWholeLog(exchange_->LogText());
    calm_->ExpectUntouched(true);
    EXPECT_EQ(exchange_->Feeder().Stop(), 0);
}

// What was written once can't be taken back from a standard error: a line that was cut off ends where it was cut.
TEST_F(FullDisk, UnderTheOutputOfTheConfigurationServiceLosesLinesAndNoChange) {
    exchange_->StartConfig();
    exchange_->Config().Stop();
    const std::string settings = ReadFileText(exchange_->Folder() / "orvctl.ini");
    const auto port = settings.find("ConfPort=") + 9;
    const std::string folder = exchange_->Folder() / "out";
    fs::create_directory(folder);
    SmallDisk disk(folder, 256);
    ProcessOptions options;
    options.command =
        exchange_->Unprivileged({exchange_->Program("orv-config"), "serve", "--database", exchange_->Database(),
                                 "--port", settings.substr(port, settings.find('\n', port) - port)});
    options.outputFile = options.errorFile = folder + "/log";
    Process config(options);
    ASSERT_TRUE(WaitForText(options.errorFile, "listening on"));

    std::size_t feeds = 0;
    const auto add = [&] { exchange_->Must({"feed", "add", "feed" + std::to_string(feeds++)}); };
    for (int round = 0; round < Effort(3, 30); ++round) {
        disk.Fill();
        const std::string full = ReadFileText(options.errorFile);
        do {
            add();
        } while (fs::file_size(options.errorFile) % 4096 != 0);  // its last page has room for a while
        add();
        disk.MakeRoom();
        add();
        EXPECT_TRUE(WaitForText(options.errorFile, "\"feed" + std::to_string(feeds - 1) + "\""));
    }
    const std::regex stamp(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})");
    for (const std::string& line : LinesOf(ReadFileText(options.errorFile))) {
        if (line.find("listening on") != std::string::npos) continue;
        const auto stamps = std::distance(std::sregex_iterator(line.begin(), line.end(), stamp), {});
        EXPECT_LE(stamps, 1) << line;
        EXPECT_TRUE(stamps == 0 || std::regex_search(line, stamp, std::regex_constants::match_continuous)) << line;
    }
    const auto rows = LinesOf(exchange_->Must({"feed", "list"}).output);
    EXPECT_EQ(rows.size(), feeds + 1) << "a heading, and each feed";
    EXPECT_EQ(config.Stop(), 0);
}

class FullDatabaseDisk : public FullDisk {
protected:
    void SetUp() override {
        FullDisk::SetUp();
        if (IsSkipped()) return;
        disk_.emplace(fs::path(exchange_->Database()).parent_path(), 16384);
        exchange_->StartConfig();
    }
    void TearDown() override {
        if (exchange_) exchange_->Config().Kill();
        disk_.reset();
    }
    // Ten feeds in one transaction. Whether the service has acknowledged it.
    bool Add() {
        std::vector<std::string> names;
        std::string rows;
        for (int i = 0; i < 10; ++i) {
            names.push_back("feed" + std::to_string(next_++));
            rows += (rows.empty() ? "{\"pipe\": \"" : ", {\"pipe\": \"") + names.back() + "\", \"folder\": \"" +
                    std::string(200, 'x') + "\"}";
        }
        const RunResult result = exchange_->Ctl({"apply", "-"}, "{\"feeds\": [" + rows + "]}");
        if (result.exitCode == 0) {
            there_.insert(names.begin(), names.end());
            return true;
        }
        EXPECT_EQ(result.exitCode, 8) << result.error;
        EXPECT_THAT(result.error, HasSubstr("; make room on the disk"));
        EXPECT_THAT(result.error, HasSubstr(exchange_->Database()));
        return false;
    }
    void ExpectJustWhatWasAcknowledged() {
        const std::string json = exchange_->Must({"export"}).output;
        const std::regex pipe("\"pipe\": \"(feed[0-9]+)\"");
        std::set<std::string> found;
        for (auto match = std::sregex_iterator(json.begin(), json.end(), pipe); match != std::sregex_iterator();
             ++match) {
            found.insert((*match)[1]);
        }
        EXPECT_EQ(found, there_);
    }
    void ExpectWholeFile() {
        const RunResult check = OrvTest::Run(
            {"/usr/bin/python3", "-c",
             "import sqlite3, sys; print(sqlite3.connect(sys.argv[1]).execute('PRAGMA integrity_check').fetchall())",
             exchange_->Database()});
        EXPECT_EQ(check.output, "[('ok',)]\n") << check.error;
    }

    std::optional<SmallDisk> disk_;
    std::set<std::string> there_;
    int next_ = 0;
};

TEST_F(FullDatabaseDisk, RefusesChangesWithAdviceAndLosesNoneAndReadsGoOn) {
    std::mt19937 random(20261121);
    int refused = 0;
    int acknowledged = 0;
    for (int round = 0; round < Effort(8, 40); ++round) {
        disk_->Fill(random() % 12);
        while (Add()) ++acknowledged;
        ++refused;
        ExpectJustWhatWasAcknowledged();
        if (round % 4 == 1) {  // a start while there is no room
            exchange_->Config().Kill();
            exchange_->StartConfig();
            ExpectJustWhatWasAcknowledged();
            if (Add()) ++acknowledged;
        }
        disk_->MakeRoom();
        EXPECT_TRUE(Add());
        ++acknowledged;
        ExpectJustWhatWasAcknowledged();
    }
    exchange_->Config().Kill();
    exchange_->StartConfig();
    ExpectJustWhatWasAcknowledged();
    EXPECT_EQ(exchange_->Config().Stop(), 0);
    ExpectWholeFile();
    std::printf("%d transactions acknowledged, %d refused\n", acknowledged, refused);
}

TEST_F(FullDisk, AFeederConnectsToAConfigurationServiceWhoseDiskIsFullAndPlaysOnThroughRefusedChanges) {
    SmallDisk disk(fs::path(exchange_->Database()).parent_path(), 16384);
    AddFeeds();
    disk.Fill();
    exchange_->StartFeeder();
    calm_->Listen();
    int refused = 0;
    for (int change = 0; change < 60 && refused < 5; ++change) {
        const RunResult result = exchange_->Ctl({"feed", "set", "busy", "--max-volume", std::to_string(change % 100)});
        if (result.exitCode != 0) ++refused;
    }
    EXPECT_EQ(refused, 5);
    disk.MakeRoom();
    exchange_->Must({"feed", "add", "added", "--type", "sorted", "--folder", "calm"});
    const Client added(*exchange_, "added");
    EXPECT_TRUE(added.WaitForBlocks(1));
    calm_->ExpectUntouched(true);
    EXPECT_EQ(exchange_->Feeder().Stop(), 0);
    exchange_->Config().Kill();
}

// The open file is written on where it lies, as long as it has not reached its limit; a start makes a new one.
TEST_F(FullDisk, ALogFolderThatIsTakenAwayOrLockedTakesLinesWithItAndNothingElse) {
    AddFeeds();
    exchange_->StartFeeder();
    calm_->Listen();
    ASSERT_EQ(::chmod(LogFolder().c_str(), 0), 0);
    ComeAndGo(2);
    EXPECT_TRUE(exchange_->WaitForLog("]:New pipe connected", 10000, 3))
        << "the file is open, whatever its folder says";
    ASSERT_EQ(::chmod(LogFolder().c_str(), 0755), 0);
    ExpectWholeLog(exchange_->LogText());

    fs::remove_all(LogFolder());
    ComeAndGo(3);
    fs::create_directory(LogFolder());
    exchange_->Own(LogFolder());
    ComeAndGo(3);
    EXPECT_EQ(exchange_->LogText(), "");
    calm_->ExpectUntouched(true);
    EXPECT_EQ(exchange_->Feeder().Stop(), 0);

    exchange_->StartFeeder();
    ExpectWholeLog(exchange_->LogText());
    EXPECT_EQ(exchange_->Feeder().Stop(), 0);
}

}  // namespace
}  // namespace OrvTest
