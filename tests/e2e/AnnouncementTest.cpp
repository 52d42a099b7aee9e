// Goal: announcements over the music and instead of it, sample for sample. Method: one announcement and equal pauses
// leave only the coin of each draw open; the model takes it from the log.
#include <gtest/gtest.h>

#include "tests/e2e/Exchange.h"

namespace OrvTest {
namespace {

class Announcements : public ::testing::Test {
protected:
    Announcements() { exchange_.StartConfig(); }

    // A feed of one long piece, with one announcement after pauses of one second each.
    void Play(const std::string& kind, const std::string& prompt, std::size_t blocks) {
        music_ = Model::AudioOf(exchange_.AddPiece("Playlist/music/a.wav", 10.0, 30.0));
        announcement_ = Model::AudioOf(exchange_.AddPrompt("prompt.wav", prompt));
        exchange_.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
        exchange_.Must(
            {"announcement", "add", "welcome", "--file", exchange_.Prompts() + "prompt.wav", "--kind", kind});
        exchange_.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music", "--announcements", "on",
                        "--min-pause", "1", "--max-pause", "1"});
        exchange_.StartFeeder();
        const Client client(exchange_, "music");
        // The coin falls for the announcement half the time; a client listens until it has fallen so twice.
        ASSERT_TRUE(Eventually(
            [&] {
                return client.Size() >= blocks * Model::BlockBytes &&
                       exchange_.LogTexts("Play announcement: ").size() >= 1;
            },
            40000));
        ASSERT_TRUE(exchange_.WaitForLog("Pause announcement: for ", 20000, 2)) << "the announcement has played";
        ASSERT_TRUE(client.WaitForBlocks(client.Size() / Model::BlockBytes + 12)) << "and the music has come back";
        heard_ = client.Blocks();
    }

    void Compare(bool stopsMusic) {
        std::vector<bool> coins;
        for (const LogEntry& entry : exchange_.Log()) {
            if (entry.text.find("Play announcement: ") != std::string::npos) coins.push_back(true);
            if (entry.text.find("Invalid announcement: pause for ") != std::string::npos) coins.push_back(false);
        }
        const Model::Announcement announcement{announcement_, stopsMusic};
        Model::Feed model([music = music_] { return music; }, 1,
                          [coins, announcement, next = std::size_t{0}]() mutable -> std::optional<Model::Announcement> {
                              const bool play = next < coins.size() && coins[next];
                              ++next;
                              if (!play) return std::nullopt;
                              return announcement;
                          });
        EXPECT_EQ(CompareWithModel(heard_, model, exchange_.Log(), "music"), "");
    }

    Exchange exchange_;
    Model::Bytes music_;
    Model::Bytes announcement_;
    std::vector<Model::Block> heard_;
};

TEST_F(Announcements, AnAnnouncementOfTypeZeroPlaysOverTheDuckedMusic) {
    Play("over", "queue-thankyou.wav", 40);
    Compare(false);
    EXPECT_FALSE(exchange_.LogTexts("Play announcement: welcome(0)[").empty());
}

TEST_F(Announcements, AnAnnouncementOfTypeOnePlaysAloneWithTheMusicsPlaceHeld) {
    Play("alone", "please-try-call-later.wav", 40);
    Compare(true);
    EXPECT_FALSE(exchange_.LogTexts("Play announcement: welcome(1)[").empty());
}

TEST_F(Announcements, AnAnnouncementWhoseFileIsMissingLeavesTheLeadInAndThenAPause) {
    exchange_.AddPiece("Playlist/music/a.wav", 10.0, 30.0);
    exchange_.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
    exchange_.Must({"announcement", "add", "gone", "--file", exchange_.Prompts() + "gone.wav"});
    exchange_.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music", "--announcements", "on",
                    "--min-pause", "1", "--max-pause", "1"});
    exchange_.StartFeeder();
    const Client client(exchange_, "music");
    ASSERT_TRUE(exchange_.WaitForLog("Play announcement: gone(", 30000));
    const auto pauses = exchange_.LogTexts("Pause announcement: for 1 seconds").size();
    ASSERT_TRUE(exchange_.WaitForLog("Pause announcement: for 1 seconds", 10000, pauses + 1));
    EXPECT_FALSE(exchange_.LogTexts("Failed to open file ").empty());
    EXPECT_FALSE(exchange_.LogTexts("Cannot open stream source '").empty());
    EXPECT_FALSE(client.Ended());
}

}  // namespace
}  // namespace OrvTest
