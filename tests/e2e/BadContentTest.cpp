// Goal: bad content never stops a feed. Method: a folder with one bad entry between two good ones; what is heard goes
// on as the rules say, and the log has the lines that they give and no other warning or error.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "tests/e2e/Exchange.h"

namespace fs = std::filesystem;

namespace OrvTest {
namespace {

class BadContent : public ::testing::Test {
protected:
    BadContent() {
        exchange_.StartConfig();
        exchange_.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
        first_ = Model::AudioOf(exchange_.AddPiece("Playlist/music/a.wav", 10.0, 1.6));
        last_ = Model::AudioOf(exchange_.AddPiece("Playlist/music/z.wav", 40.0, 1.6));
        bad_ = exchange_.Prompts() + "Playlist/music/m.wav";
    }

    // Any WAV: the fields of its header as given, then the sound.
    static Model::Bytes Wav(unsigned channels, unsigned rate, std::size_t samples, std::size_t statedBytes) {
        Model::Bytes bytes;
        const auto text = [&](const char* word) {
            for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<std::uint8_t>(word[i]));
        };
        const auto number = [&](std::size_t value, int width) {
            for (int i = 0; i < width; ++i) bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
        };
        text("RIFF");
        number(36 + samples * 2, 4);
        text("WAVE");
        text("fmt ");
        number(16, 4);
        number(1, 2);
        number(channels, 2);
        number(rate, 4);
        number(rate * channels * 2, 4);
        number(channels * 2, 2);
        number(16, 2);
        text("data");
        number(statedBytes, 4);
        for (std::size_t i = 0; i < samples; ++i) number((i * 37) % 5000, 2);
        return bytes;
    }

    void Play(std::size_t blocks) {
        exchange_.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music"});
        exchange_.StartFeeder();
        client_.emplace(exchange_, "music");
        ASSERT_TRUE(client_->WaitForBlocks(blocks));
    }

    // Warnings and errors of the engine, without the source line, each once.
    std::set<std::string> Complaints() const {
        std::set<std::string> texts;
        for (const LogEntry& entry : exchange_.Log()) {
            if (entry.word != "Warn" && entry.word != "Error") continue;
            if (entry.text.find("]:Started") != std::string::npos) continue;  // a good outcome under that word
            const auto blank = entry.text.find(") ");
            texts.insert(entry.text.rfind("VoIPFileEngine/", 0) == 0 ? entry.text.substr(blank + 2) : entry.text);
        }
        return texts;
    }

    // A file that cannot be used costs one silent block; the files round it play whole.
    void ExpectTheOthersPlayRoundIt() {
        const std::vector<Model::Bytes> files{first_, {}, last_};
        Model::Feed model([files, next = std::size_t{0}]() mutable { return files[next++ % files.size()]; });
        EXPECT_EQ(CompareWithModel(client_->Blocks(), model, exchange_.Log(), "music"), "");
    }

    std::string Lower(std::string text) const {
        for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
        return text;
    }

    Exchange exchange_;
    Model::Bytes first_;
    Model::Bytes last_;
    std::string bad_;
    std::optional<Client> client_;
};

TEST_F(BadContent, AMissingFolderFallsBackToTheDefaultAudioFileAndThenToSilence) {
    exchange_.Must({"feed", "add", "music", "--type", "sorted", "--folder", "nowhere"});
    exchange_.StartFeeder();
    client_.emplace(exchange_, "music");
    ASSERT_TRUE(client_->WaitForBlocks(8));
    for (const auto& block : client_->Blocks()) EXPECT_EQ(block, Model::Block{});
    EXPECT_EQ(Complaints(), (std::set<std::string>{"Channel nowhere as music[1]:PlayList is empty. Start default audio "
                                                   "file - ",
                                                   "Filename is not specified"}));
}

TEST_F(BadContent, AnUnreadableFileIsPassedOver) {
    exchange_.AddPiece("Playlist/music/m.wav", 20.0, 1.0);
    ASSERT_EQ(::chmod(bad_.c_str(), 0), 0);
    Play(44);
    ExpectTheOthersPlayRoundIt();
    EXPECT_EQ(Complaints(), (std::set<std::string>{"Failed to open file " + Lower(bad_) + ", error: 13",
                                                   "Cannot open stream source '" + Lower(bad_) + "'"}));
}

TEST_F(BadContent, AFolderNamedLikeASoundFileIsNoEntryOfThePlaylist) {
    exchange_.AddFolder("Playlist/music/m.wav");
    Play(30);
    const std::vector<Model::Bytes> files{first_, last_};
    Model::Feed model([files, next = std::size_t{0}]() mutable { return files[next++ % files.size()]; });
    EXPECT_EQ(CompareWithModel(client_->Blocks(), model, exchange_.Log(), "music"), "");
    EXPECT_EQ(Complaints(), std::set<std::string>{});
}

TEST_F(BadContent, AFifoNamedLikeASoundFileIsRefusedWithoutBeingWaitedFor) {
    ASSERT_EQ(::mkfifo(bad_.c_str(), 0666), 0);
    Play(44);
    ExpectTheOthersPlayRoundIt();
    const auto complaints = Complaints();
    EXPECT_EQ(complaints.size(), 2u);
    EXPECT_TRUE(complaints.contains("Cannot open stream source '" + Lower(bad_) + "'"));
}

TEST_F(BadContent, AFileThatIsOnlyAHeaderIsPassedOverWithoutAMessageOfItsOwn) {
    exchange_.AddBytes("Playlist/music/m.wav", Wav(1, 8000, 0, 0));
    Play(44);
    ExpectTheOthersPlayRoundIt();
    EXPECT_EQ(Complaints(), (std::set<std::string>{"Cannot open stream source '" + Lower(bad_) + "'"}));
}

TEST_F(BadContent, ATruncatedFilePlaysWhatItHas) {
    Model::Bytes wav = Wav(1, 8000, 4000, 60000);
    exchange_.AddBytes("Playlist/music/m.wav", wav);
    Play(48);
    const std::vector<Model::Bytes> files{first_, Model::Bytes(wav.begin() + 44, wav.end()), last_};
    Model::Feed model([files, next = std::size_t{0}]() mutable { return files[next++ % files.size()]; });
    EXPECT_EQ(CompareWithModel(client_->Blocks(), model, exchange_.Log(), "music"), "");
    EXPECT_EQ(Complaints(), std::set<std::string>{});
}

TEST_F(BadContent, StereoAndOtherRatesAreRefusedWithTheFormatThatTheyHave) {
    exchange_.AddBytes("Playlist/music/m.wav", Wav(2, 8000, 8000, 16000));
    exchange_.AddBytes("Playlist/music/n.wav", Wav(1, 44100, 8000, 16000));
    Play(44);
    const std::vector<Model::Bytes> files{first_, {}, {}, last_};
    Model::Feed model([files, next = std::size_t{0}]() mutable { return files[next++ % files.size()]; });
    EXPECT_EQ(CompareWithModel(client_->Blocks(), model, exchange_.Log(), "music"), "");
    const std::string other = Lower(exchange_.Prompts() + "Playlist/music/n.wav");
    EXPECT_EQ(Complaints(),
              (std::set<std::string>{"Unsupported WAV format: 1/2/8000/16", "Unsupported WAV format: 1/1/44100/16",
                                     "Cannot open stream source '" + Lower(bad_) + "'",
                                     "Cannot open stream source '" + other + "'"}));
}

TEST_F(BadContent, AFileThatIsRemovedWhileItPlaysPlaysToItsEnd) {
    const auto middle = Model::AudioOf(exchange_.AddPiece("Playlist/music/m.wav", 20.0, 4.0));
    exchange_.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music"});
    exchange_.StartFeeder();
    client_.emplace(exchange_, "music");
    ASSERT_TRUE(exchange_.WaitForLog("Start next audio file " + bad_));
    ASSERT_TRUE(client_->WaitForBlocks(client_->Blocks().size() + 4));
    fs::remove(bad_);
    ASSERT_TRUE(client_->WaitForBlocks(66));
    const std::vector<Model::Bytes> files{first_, middle, last_, first_, last_};
    Model::Feed model([files, next = std::size_t{0}]() mutable { return files[next++ % files.size()]; });
    EXPECT_EQ(CompareWithModel(client_->Blocks(), model, exchange_.Log(), "music"), "");
    EXPECT_EQ(Complaints(), std::set<std::string>{});
}

TEST_F(BadContent, AFileThatIsCutShortWhileItPlaysEndsThereAndTheNextOneFollows) {
    exchange_.AddPiece("Playlist/music/m.wav", 20.0, 6.0);
    exchange_.Must({"feed", "add", "music", "--type", "sorted", "--folder", "music"});
    exchange_.StartFeeder();
    client_.emplace(exchange_, "music");
    ASSERT_TRUE(exchange_.WaitForLog("Start next audio file " + bad_));
    const std::size_t began = client_->Blocks().size();
    ASSERT_TRUE(client_->WaitForBlocks(began + 4));
    fs::resize_file(bad_, 20000);
    // 20000 bytes are ten blocks, and two read-ahead buffers may hold nine more: far less than the file's 48.
    ASSERT_TRUE(exchange_.WaitForLog("Start next audio file " + exchange_.Prompts() + "Playlist/music/z.wav"));
    EXPECT_LT(client_->Blocks().size(), began + 30);
    const auto next = client_->Blocks().size();
    EXPECT_TRUE(client_->WaitForBlocks(next + 4));
    EXPECT_EQ(Complaints(), std::set<std::string>{});
}

}  // namespace
}  // namespace OrvTest
