// Goal: a mono file at 44100 Hz, which a feed and an announcement pass over as it lies on disk, plays once it is
// preloaded. Method: the same exchange with and without the setting; what must be heard comes from a model of the
// resampling that shares no code with the service.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/Projects/Common/VoIPFileEngine/ResampleModel.h"
#include "tests/e2e/Exchange.h"

namespace OrvTest {
namespace {

class Preload : public ::testing::Test {
protected:
    static constexpr unsigned Rate = 44100;

    Preload() {
        exchange_.StartConfig();
        exchange_.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
        first_ = Model::AudioOf(exchange_.AddPiece("Playlist/music/a.wav", 10.0, 1.6));
        last_ = Model::AudioOf(exchange_.AddPiece("Playlist/music/z.wav", 40.0, 1.6));
    }

    // A tone that sways, a little over a second: at 8000 Hz it ends within a stretch of 8192 bytes and within a block,
    // so that it ends the same way from disk and from memory.
    static ResampleModel::Samples Tone() {
        ResampleModel::Samples samples(50'000);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            samples[i] = static_cast<std::int16_t>(9000 * std::sin(static_cast<double>(i) * 0.06) *
                                                   std::cos(static_cast<double>(i) * 0.0003));
        }
        return samples;
    }
    static Model::Bytes Wav(const ResampleModel::Samples& samples) {
        Model::Bytes bytes;
        const auto text = [&](const char* word) { bytes.insert(bytes.end(), word, word + 4); };
        const auto number = [&](std::size_t value, int width) {
            for (int i = 0; i < width; ++i) bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
        };
        text("RIFF");
        number(36 + samples.size() * 2, 4);
        text("WAVE");
        text("fmt ");
        number(16, 4);
        number(1, 2);
        number(1, 2);
        number(Rate, 4);
        number(Rate * 2, 4);
        number(2, 2);
        number(16, 2);
        text("data");
        number(samples.size() * 2, 4);
        for (const std::int16_t sample : samples) number(static_cast<std::uint16_t>(sample), 2);
        return bytes;
    }
    // What the file gives at 8000 Hz.
    static Model::Bytes Resampled() {
        Model::Bytes bytes;
        for (const std::int16_t sample : ResampleModel::To8k(Tone(), Rate)) {
            bytes.push_back(static_cast<std::uint8_t>(sample));
            bytes.push_back(static_cast<std::uint8_t>(static_cast<std::uint16_t>(sample) >> 8));
        }
        return bytes;
    }
    void PreloadIt(const std::string& names) { exchange_.WriteSettings("[General]\nPreloadFiles=" + names + "\n"); }

    void ExpectFeed(const Model::Bytes& middle, std::size_t blocks) {
        exchange_.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music"});
        exchange_.StartFeeder();
        const Client client(exchange_, "music");
        ASSERT_TRUE(client.WaitForBlocks(blocks));
        const std::vector<Model::Bytes> files{first_, middle, last_};
        Model::Feed model([files, next = std::size_t{0}]() mutable { return files[next++ % files.size()]; });
        EXPECT_EQ(CompareWithModel(client.Blocks(), model, exchange_.Log(), "music"), "");
    }

    Exchange exchange_;
    Model::Bytes first_;
    Model::Bytes last_;
};

TEST_F(Preload, APreloadedMonoFileAt44100HertzPlaysResampledInItsPlaceInAPlaylist) {
    exchange_.AddBytes("Playlist/music/m.wav", Wav(Tone()));
    PreloadIt("\"Playlist/music/m.wav\"");
    ExpectFeed(Resampled(), 44);
    EXPECT_EQ(exchange_.LogTexts("Files preloaded: 1, ").size(), 1u);
    EXPECT_FALSE(exchange_.LogTexts("/m.wav taken from the cache").empty());
    EXPECT_TRUE(exchange_.LogTexts("Cannot open stream source '").empty());
}

TEST_F(Preload, WithoutPreloadingTheSameFileIsPassedOver) {
    exchange_.AddBytes("Playlist/music/m.wav", Wav(Tone()));
    ExpectFeed({}, 44);
    EXPECT_FALSE(exchange_.LogTexts("Cannot open stream source '").empty());
    EXPECT_TRUE(exchange_.LogTexts("taken from the cache").empty());
}

TEST_F(Preload, APreloadedAnnouncementAt44100HertzIsHeard) {
    const std::string file = exchange_.AddBytes("Voice/Closed.wav", Wav(Tone()));
    PreloadIt("voice");
    exchange_.Must({"announcement", "add", "closed", "--file", file, "--kind", "alone"});
    exchange_.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music", "--announcements", "on",
                    "--min-pause", "1", "--max-pause", "1"});
    exchange_.StartFeeder();
    const Client client(exchange_, "music");
    ASSERT_TRUE(exchange_.WaitForLog("Play announcement: closed(", 30000));
    ASSERT_TRUE(exchange_.WaitForLog(file + " taken from the cache"));
    ASSERT_TRUE(client.WaitForBlocks(client.Blocks().size() + 24));
    // It plays alone from its second block on: the file's own blocks are somewhere in what was heard.
    const Model::Bytes sound = Resampled();
    Model::Block third{};
    for (std::size_t i = 0; i < third.size(); ++i) {
        third[i] = static_cast<std::int16_t>(sound[4000 + 2 * i] | sound[4001 + 2 * i] << 8);
    }
    const std::vector<Model::Block> heard = client.Blocks();
    EXPECT_NE(std::find(heard.begin(), heard.end(), third), heard.end());
}

}  // namespace
}  // namespace OrvTest
