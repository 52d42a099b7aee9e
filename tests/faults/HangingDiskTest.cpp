// Goal: a disk that hangs or fails takes from its own feed what lies on it, and from nobody else anything. Method: a
// disk that the test serves to the kernel, so that a read does not return until the test lets it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "tests/faults/Disks.h"
#include "tests/faults/DueBlocks.h"
#include "tests/faults/Neighbour.h"
#include "tests/support/Effort.h"

namespace OrvTest {
namespace {

using ::testing::HasSubstr;

class HangingDisk : public ::testing::Test {
protected:
    void SetUp() override {
        if (const std::string why = WhyNoFuseDisks(); !why.empty()) GTEST_SKIP() << why;
        exchange_.emplace();
        exchange_->StartConfig();
        exchange_->Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
        calm_.emplace(*exchange_, "calm");
    }
    // The feed "stuck", whose files lie on such a disk, each of so many seconds.
    void AddStuckFeed(const std::vector<double>& seconds) {
        const std::string folder = exchange_->AddFolder("Playlist/stuck");
        disk_.emplace(folder);
        char name = 'a';
        for (const double length : seconds) {
            const std::string piece =
                exchange_->AddPiece("Pieces/" + std::string(1, name) + ".wav", 130.0 + name, length);
            const std::string text = ReadFileText(piece);
            disk_->Add(std::string(1, name++) + ".wav", {text.begin(), text.end()});
            pieces_.push_back(Model::AudioOf(piece));
        }
        exchange_->Must({"feed", "add", "stuck", "--type", "sorted", "--folder", "stuck"});
        exchange_->WriteSettings("[General]\nStatusPath=" + (exchange_->Folder() / "s/state") + "\n");
    }
    void Start() {
        exchange_->StartFeeder();
        calm_->Listen();
        stuck_.emplace(*exchange_, "stuck");
    }
    RunResult Status() const {
        return OrvTest::Run(
            exchange_->Unprivileged({exchange_->Program("orvctl"), "-c", exchange_->SettingsFile(), "status"}));
    }
    // By the model, which takes the late reads from the log. How many blocks they made silent.
    std::size_t ExpectStuckFeedLostNothing() const {
        Model::Feed model(
            [pieces = pieces_, next = std::size_t{0}]() mutable { return pieces[next++ % pieces.size()]; });
        const auto heard = stuck_->Blocks();
        std::vector<std::size_t> late;
        EXPECT_EQ(CompareWithModel(heard, model, exchange_->Log(), "stuck", 0, {}, &late), "");
        return late.size();
    }
    static void WaitForMore(const Client& client, std::size_t blocks) {
        ASSERT_TRUE(client.WaitForBlocks(client.Blocks().size() + blocks));
    }

    std::optional<Exchange> exchange_;
    std::optional<Neighbour> calm_;
    std::vector<Model::Bytes> pieces_;
    std::optional<FuseDisk> disk_;
    std::optional<Client> stuck_;
};

TEST_F(HangingDisk, AReadThatDoesNotReturnIsSilenceForItsFeedWhichGoesOnWhereItStoodOnceItDoes) {
    AddStuckFeed({100.0});
    Start();
    const int rounds = Effort(2, 20);
    for (int round = 0; round < rounds; ++round) {
        WaitForMore(*stuck_, 6);
        disk_->Hold("", FuseDisk::Reads);
        ASSERT_TRUE(Eventually([&] { return disk_->Held() > 0; }));
        WaitForMore(*stuck_, 12);  // more than was read ahead
        EXPECT_EQ(stuck_->Blocks().back(), Model::Block{});
        EXPECT_THAT(Status().output, ::testing::ContainsRegex("stuck +playing"));
        Client late(*exchange_, "calm");
        EXPECT_TRUE(late.WaitForBlocks(1));
        disk_->Hold("", FuseDisk::None);
        ASSERT_TRUE(Eventually([&] { return stuck_->Blocks().back() != Model::Block{}; }));
    }
    WaitForMore(*stuck_, 6);
    // Of the 12 blocks at least what is behind the stretch that played, 8192 bytes, and the one that was read ahead.
    const std::size_t silent = ExpectStuckFeedLostNothing();
    EXPECT_GE(silent, 3u * static_cast<std::size_t>(rounds)) << "silence for a late read is counted";
    calm_->ExpectUntouched();
    std::printf("%d hangs, %zu blocks silent; worst lateness of a neighbour %.0f ms\n", rounds, silent,
                calm_->WorstLateness());
    EXPECT_EQ(exchange_->Feeder().Stop(), 0);
}

TEST_F(HangingDisk, AServiceEndsInOrderWhileAReadHangs) {
    AddStuckFeed({100.0});
    Start();
    WaitForMore(*stuck_, 6);
    disk_->Hold("", FuseDisk::Reads);
    ASSERT_TRUE(Eventually([&] { return disk_->Held() > 0; }));
    EXPECT_EQ(exchange_->Feeder().Stop(), 0);
    EXPECT_EQ(exchange_->LogTexts("]:Destroyed").size(), 2u);
}

TEST_F(HangingDisk, AFileWhoseOpeningHangsHoldsItsOwnFeedAloneAndChangesToOthersArrive) {
    AddStuckFeed({1.0, 30.0});
    disk_->Hold("b", FuseDisk::Opens);
    Start();
    ASSERT_TRUE(Eventually([&] { return disk_->Held() > 0; }));
    const std::size_t held = stuck_->Size();
    WaitForMore(calm_->Heard(), 16);
    EXPECT_EQ(stuck_->Size(), held) << "this pump waits for the disk";
    exchange_->Must({"feed", "add", "new", "--type", "sorted", "--folder", "calm"});
    Client added(*exchange_, "new");
    EXPECT_TRUE(added.WaitForBlocks(4));
    EXPECT_THAT(Status().output, HasSubstr("stuck"));
    disk_->Hold("b", FuseDisk::None);
    WaitForMore(*stuck_, 30);
    ExpectStuckFeedLostNothing();
    calm_->ExpectUntouched();
    EXPECT_EQ(exchange_->Feeder().Stop(), 0);
}

// Any look at the file would say that it is well: only the reading finds the spot.
TEST_F(HangingDisk, AFileWithABadSpotEndsThereAndTheStatusTellsWhichAndWhy) {
    AddStuckFeed({4.0, 1.0});
    disk_->FailReads("a.wav", 30'000);
    Start();
    ASSERT_TRUE(exchange_->WaitForLog("error = 0x5, Input/output error"));
    ASSERT_TRUE(exchange_->WaitForLog("Start next audio file " + exchange_->Prompts() + "Playlist/stuck/b.wav"));
    const RunResult status = Status();
    EXPECT_THAT(status.output, HasSubstr("Playlist/stuck/a.wav\" did not play "));
    EXPECT_THAT(status.output, HasSubstr(" ago: it ended where it could not be read: Input/output error\n"));
    WaitForMore(*stuck_, 24);  // and so on, round and round
    const auto heard = stuck_->Blocks();
    const std::string folder = exchange_->Prompts() + "Playlist/stuck/";
    const auto contents = [&](const std::string& path) -> std::vector<const Model::Bytes*> {
        return {&pieces_[path == folder + "a.wav" ? 0 : 1]};
    };
    DueBlocks due(ToldBlocks(exchange_->Log(), "stuck"), contents, folder + "a.wav");
    for (std::size_t index = 0; index < heard.size(); ++index) {
        ASSERT_TRUE(due.Take(heard[index])) << "block " << index << ": " << due.Describe();
    }
    EXPECT_EQ(due.SoFar().badFiles, std::vector<std::string>()) << "each was heard at each turn";
    calm_->ExpectUntouched();
    EXPECT_EQ(exchange_->Feeder().Stop(), 0);
}

// Who logs waits for the log's disk, that is how the log is; who does not, plays on, and nothing is lost.
TEST_F(HangingDisk, ALogDiskThatHangsHoldsWhoeverLogsAndNobodyElse) {
    Neighbour busy(*exchange_, "busy", 60.0);
    exchange_->WriteSettings("[General]\nPreloadFiles=\"" + calm_->File() + "\" \"" + busy.File() + "\"\n");
    disk_.emplace(exchange_->Folder() / "d/Data/Logs");
    exchange_->StartFeeder();
    calm_->Listen();
    busy.Listen();
    disk_->Hold("", FuseDisk::Writes);
    const auto began = std::chrono::steady_clock::now();
    Client guest(*exchange_, "busy");  // its coming is to be logged
    ASSERT_TRUE(Eventually([&] { return disk_->Held() == 1; }));
    const std::size_t heard = busy.Heard().Size();
    WaitForMore(calm_->Heard(), 24);
    EXPECT_EQ(busy.Heard().Size(), heard);
    EXPECT_EQ(guest.Size(), 0u);
    disk_->Hold("", FuseDisk::None);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    ASSERT_TRUE(guest.WaitForBlocks(4));
    calm_->ExpectUntouched(true);
    Model::Feed model([sound = Model::Sound(Model::AudioOf(busy.File()), true)] { return sound; });
    EXPECT_EQ(CompareWithModel(busy.Heard().Blocks(), model, {}, "busy"), "") << "late, but whole";
    EXPECT_TRUE(exchange_->WaitForLog("]:New pipe connected", 10000, 3));
    std::printf("the log hung for %.1f s; the feed that logged was late by %.1f s, the other one by %.0f ms\n", seconds,
                busy.WorstLateness() / 1000.0, calm_->WorstLateness());
    EXPECT_EQ(exchange_->Feeder().Stop(), 0);
}

}  // namespace
}  // namespace OrvTest
