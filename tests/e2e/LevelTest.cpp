// Goal: the level at which a feed's sound leaves, and that compressed files sound as an outside decoder has them.
// Method: one run of half a minute in which twenty feeds of real music play side by side, with a few more of a special
// kind; each case then looks at what was heard and logged, against a model of the rules that shares no code with the
// service.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>

#include "tests/e2e/Exchange.h"

namespace OrvTest {
namespace {

constexpr int HalfLevel = 16383;              // of 50 percent
constexpr std::size_t WholeRun = 30 * 8;      // blocks
constexpr std::size_t AdpcmSamples = 505;     // of one 256-byte block
constexpr std::size_t AdpcmFileBlocks = 170;  // 10.7 s

std::vector<std::int16_t> ToSamples(const Model::Bytes& bytes) {
    std::vector<std::int16_t> samples(bytes.size() / 2);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = static_cast<std::int16_t>(static_cast<std::uint16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8)));
    }
    return samples;
}

Model::Bytes ToBytes(const std::vector<std::int16_t>& samples) {
    Model::Bytes bytes;
    for (const std::int16_t sample : samples) {
        bytes.push_back(static_cast<std::uint8_t>(sample));
        bytes.push_back(static_cast<std::uint8_t>(static_cast<std::uint16_t>(sample) >> 8));
    }
    return bytes;
}

Model::Feed::NextMusic RoundAndRound(std::vector<Model::Sound> files) {
    return [files = std::move(files), next = std::size_t{0}]() mutable { return files[next++ % files.size()]; };
}

void Tool(const std::vector<std::string>& command) {
    const RunResult result = Run(command);
    if (result.exitCode != 0) throw std::runtime_error(command[0] + ": " + result.error);
}

// The exchange, its feeds and what their clients have heard at the end of the run.
class LevelRun {
public:
    LevelRun() {
        exchange_.StartConfig();
        exchange_.Must({"parameter", "set", "SYSTEMLOGGINGLEVEL", "--value", "3"});
        exchange_.Must({"parameter", "set", "AUDIO_PROVIDER_MAX_VOLUME", "--value", "0"});
        exchange_.Must({"parameter", "set", "AUDIO_PROVIDER_ENABLE_AUTOGAIN", "--value", "1"});
        AddTwentyFeeds();
        AddLowestSampleFeeds();
        AddCompressedFeed();
        AddDefaultSetFeeds();
        AddFolder("soft", {Music("soft", "a.wav", 4, 20, 30, {"norm", "-1"})});
        AddFeed("soft", {"--type", "sorted", "--folder", "soft"});
        exchange_.StartFeeder();
        for (const std::string& pipe : pipes_) clients_.emplace(pipe, std::make_unique<Client>(exchange_, pipe));
        ChangeTheSoftFeed();
        for (const auto& [pipe, client] : clients_) client->WaitForBlocks(WholeRun, 60000);
        for (const auto& [pipe, client] : clients_) heard_[pipe] = client->Blocks();
        log_ = exchange_.Log();
    }

    const std::vector<Model::Block>& Heard(const std::string& pipe) const { return heard_.at(pipe); }
    const std::vector<LogEntry>& Log() const { return log_; }
    Model::Feed::NextMusic FilesOf(const std::string& folder) const { return RoundAndRound(files_.at(folder)); }
    // The texts of a feed's own lines that begin with `start`, without the channel's prefix.
    std::vector<std::string> LinesOf(const std::string& pipe, const std::string& start) const {
        std::vector<std::string> texts;
        for (const LogEntry& entry : log_) {
            const auto end = entry.text.find("]:");
            if (end == std::string::npos || entry.text.find(" as " + pipe + "[") == std::string::npos) continue;
            if (entry.text.compare(end + 2, start.size(), start) == 0) {
                texts.push_back(entry.word + "|" + entry.text.substr(end + 2));
            }
        }
        return texts;
    }
    // How many blocks the feed's client had when the log told its n-th change.
    const std::vector<std::size_t>& Changes() const { return changes_; }
    const std::vector<std::int16_t>& DefaultAudio() const { return defaultAudio_; }

private:
    // A stretch of one of the recordings, at a level that reaches far beyond half.
    Model::Sound Music(const std::string& folder, const std::string& name, std::size_t recording, double start,
                       double seconds, const std::vector<std::string>& effects) {
        static const char* const recordings[] = {"macroform-cold_day", "macroform-robot_dity",
                                                 "macroform-the_simplicity", "manolo_camp-morning_coffee",
                                                 "reno_project-system"};
        exchange_.AddFolder("Playlist/" + folder);
        const std::string path = exchange_.Prompts() + "Playlist/" + folder + "/" + name;
        std::vector<std::string> command{"/usr/bin/sox",
                                         std::string("/usr/share/asterisk/moh/") + recordings[recording] + ".wav",
                                         path,
                                         "trim",
                                         std::to_string(start),
                                         std::to_string(seconds)};
        command.insert(command.end(), effects.begin(), effects.end());
        Tool(command);
        exchange_.Own(path);
        return Model::AudioOf(path);
    }
    void AddFolder(const std::string& folder, std::vector<Model::Sound> files) { files_[folder] = std::move(files); }
    void AddFeed(const std::string& pipe, const std::vector<std::string>& options) {
        std::vector<std::string> command{"feed", "add", pipe};
        command.insert(command.end(), options.begin(), options.end());
        exchange_.Must(command);
        pipes_.push_back(pipe);
    }

    void AddTwentyFeeds() {
        for (std::size_t feed = 0; feed < 20; ++feed) {
            const std::string pipe = "feed" + std::to_string(feed);
            const double start = 3.0 + 2.0 * static_cast<double>(feed);
            // The first file ends within the run.
            AddFolder(pipe, {Music(pipe, "a.wav", feed % 5, start, 11.3, {"norm", "-1"}),
                             Music(pipe, "b.wav", (feed + 1) % 5, start, 25.0, {"norm", "-1"})});
            AddFeed(pipe, {"--type", "sorted", "--folder", pipe, "--max-volume", feed < 16 ? "50" : "0", "--autogain",
                           feed % 2 == 0 ? "off" : "on"});
        }
    }
    // A tone with a few lowest samples in it, made by hand, and music that was driven far over the top.
    void AddLowestSampleFeeds() {
        std::vector<std::int16_t> tone;
        for (int sample = 0; sample < 14500; ++sample) {
            tone.push_back(static_cast<std::int16_t>(sample / 20 % 2 == 0 ? 1000 : -1000));
        }
        tone[11000] = -32768;
        tone[12000] = 20000;
        tone[12001] = -32768;
        for (const char* autogain : {"off", "on"}) {
            const std::string pipe = std::string("lowest-") + autogain;
            const Model::Bytes byHand = ToBytes(tone);
            exchange_.AddBytes("Playlist/" + pipe + "/a.raw", byHand);
            AddFolder(pipe, {byHand, Music(pipe, "b.wav", 4, 40, 25, {"gain", "18"})});
            AddFeed(pipe, {"--type", "sorted", "--folder", pipe, "--max-volume", "50", "--autogain", autogain});
        }
    }
    // Two compressed files of whole blocks, each made by another tool. Behind the last block the end of the file shows,
    // by one more block of zeros.
    void AddCompressedFeed() {
        const std::string length = std::to_string(AdpcmSamples * AdpcmFileBlocks) + "s";
        const std::string folder = exchange_.AddFolder("Playlist/adpcm");
        std::vector<Model::Sound> sounds;
        for (const char* tool : {"ffmpeg", "sox"}) {
            const std::string plain = exchange_.Folder() / "plain.wav";
            const std::string file = folder + "/" + tool + ".wav";
            const std::string decoded = exchange_.Folder() / "decoded.raw";
            Tool({"/usr/bin/sox", "/usr/share/asterisk/moh/reno_project-system.wav", plain, "trim",
                  tool[0] == 'f' ? "30" : "60", length});
            if (tool[0] == 'f') {
                Tool({"/usr/bin/ffmpeg", "-loglevel", "error", "-y", "-i", plain, "-c:a", "adpcm_ima_wav",
                      "-block_size", "256", file});
            } else {
                Tool({"/usr/bin/sox", plain, "-e", "ima-adpcm", file});
            }
            Tool({"/usr/bin/sox", "-D", file, "-t", "raw", "-e", "signed-integer", "-b", "16", decoded});
            exchange_.Own(file);
            Model::Bytes bytes = Model::AudioOf(decoded);
            if (bytes.size() != 2 * AdpcmSamples * AdpcmFileBlocks) throw std::runtime_error("not whole blocks");
            bytes.resize(bytes.size() + 2 * AdpcmSamples, 0);
            sounds.emplace_back(std::move(bytes), true);
        }
        AddFolder("adpcm", sounds);
        AddFeed("adpcm", {"--type", "sorted", "--folder", "adpcm"});
    }
    void AddDefaultSetFeeds() {
        const std::string file = exchange_.Prompts() + "default.wav";
        Tool(
            {"/usr/bin/sox", "/usr/share/asterisk/moh/reno_project-system.wav", file, "trim", "80", "4", "norm", "-1"});
        exchange_.Own(file);
        defaultAudio_ = ToSamples(Model::AudioOf(file));
        exchange_.Must({"parameter", "set", "DEFAULTAUDIOFILE", "--value", file});
        AddFeed("default-10", {"--type", "default", "--max-volume", "10"});
        AddFeed("default-50", {"--type", "default", "--max-volume", "50"});
        AddFeed("default", {"--type", "default"});
    }
    void ChangeTheSoftFeed() {
        const Client& client = *clients_.at("soft");
        const std::vector<std::pair<std::vector<std::string>, std::string>> changes{
            {{"--max-volume", "50"}, "]:Volume control has been updated MaxVolume=50%, autogain disabled"},
            {{"--autogain", "on"}, "]:Volume control has been updated MaxVolume=50%, autogain enabled"},
            {{"--max-volume", "0"}, "]:Volume control has been turned off"}};
        for (const auto& [options, line] : changes) {
            client.WaitForBlocks(client.Size() / Model::BlockBytes + 50);
            std::vector<std::string> command{"feed", "set", "soft"};
            command.insert(command.end(), options.begin(), options.end());
            exchange_.Must(command);
            const std::string whole = " as soft[";
            Eventually([&] {
                const auto texts = exchange_.LogTexts(line);
                return std::any_of(texts.begin(), texts.end(),
                                   [&](const std::string& text) { return text.find(whole) != std::string::npos; });
            });
            changes_.push_back(client.Size() / Model::BlockBytes);
        }
    }

    Exchange exchange_;
    std::vector<std::string> pipes_;
    std::map<std::string, std::vector<Model::Sound>> files_;
    std::map<std::string, std::unique_ptr<Client>> clients_;
    std::map<std::string, std::vector<Model::Block>> heard_;
    std::vector<std::size_t> changes_;
    std::vector<std::int16_t> defaultAudio_;
    std::vector<LogEntry> log_;
};

class Levels : public ::testing::Test {
protected:
    static void SetUpTestSuite() { run_ = std::make_unique<LevelRun>(); }
    static void TearDownTestSuite() { run_.reset(); }

    static void ExpectTheModelsSound(const std::string& pipe, Model::Feed& model, const InspectBlock& inspect = {}) {
        const auto& heard = run_->Heard(pipe);
        ASSERT_GE(heard.size(), WholeRun) << pipe;
        EXPECT_EQ(CompareWithModel(heard, model, run_->Log(), pipe, 0, inspect), "") << pipe;
    }
    // Every block as the model has it, none above the limit though the music comes in far above it, and the moves of
    // the gain as the log tells them.
    static void ExpectHalfLevel(std::size_t feed, bool autogain) {
        const std::string pipe = "feed" + std::to_string(feed);
        Model::Feed model(run_->FilesOf(pipe));
        model.SetLevel(HalfLevel, autogain);
        int loudestIn = 0;
        int loudestOut = 0;
        ExpectTheModelsSound(pipe, model, [&](const Model::Block& heard, const Model::Feed& behind) {
            for (std::size_t i = 0; i < heard.size(); ++i) {
                const int in = behind.Mixed()[i];
                if (in == -32768) continue;
                loudestIn = std::max(loudestIn, std::abs(in));
                loudestOut = std::max(loudestOut, std::abs(static_cast<int>(heard[i])));
            }
        });
        EXPECT_GT(loudestIn, 25000) << pipe;
        EXPECT_LE(loudestOut, HalfLevel) << pipe;
        EXPECT_GE(loudestOut, HalfLevel - 2) << pipe;

        std::vector<std::string> expected;
        for (const int percent : model.Level().Reports()) {
            expected.push_back("Debug|Volume has been raised to " + std::to_string(percent) + "%");
        }
        auto told = run_->LinesOf(pipe, "Volume has been raised to ");
        ASSERT_GE(told.size(), expected.size()) << pipe;
        told.resize(expected.size());  // the feed was ahead of its client by some blocks
        EXPECT_FALSE(told.empty()) << pipe;
        EXPECT_EQ(told, expected) << pipe;
        EXPECT_EQ(run_->LinesOf(pipe, "Volume control"),
                  (std::vector<std::string>{std::string("Trace|Volume control: MaxVolume=50%, autogain ") +
                                            (autogain ? "enabled" : "disabled")}));
    }

    static inline std::unique_ptr<LevelRun> run_;
};

TEST_F(Levels, EightFeedsAtHalfLevelWithoutAutogainNeverPassTheirLimit) {
    for (std::size_t feed = 0; feed < 16; feed += 2) ExpectHalfLevel(feed, false);
}

TEST_F(Levels, EightFeedsAtHalfLevelWithAutogainNeverPassTheirLimit) {
    for (std::size_t feed = 1; feed < 16; feed += 2) ExpectHalfLevel(feed, true);
}

TEST_F(Levels, FourFeedsAtZeroWithTheGlobalLimitAtZeroLeaveEverySampleAsItCame) {
    for (std::size_t feed = 16; feed < 20; ++feed) {
        const std::string pipe = "feed" + std::to_string(feed);
        Model::Feed model(run_->FilesOf(pipe));
        int loudest = 0;
        ExpectTheModelsSound(pipe, model, [&](const Model::Block& heard, const Model::Feed& behind) {
            EXPECT_EQ(heard, behind.Mixed());
            for (const int sample : heard) loudest = std::max(loudest, std::abs(sample));
        });
        EXPECT_GT(loudest, 25000);
        // The feed's own autogain is off or on; from the first block on the global one, on here, counts beside its 0.
        std::vector<std::string> lines{"Trace|Volume control is turned off"};
        if (feed % 2 == 0) lines.emplace_back("Trace|Volume control has been turned off");
        EXPECT_EQ(run_->LinesOf(pipe, "Volume control"), lines);
    }
}

TEST_F(Levels, ALowestSampleIsNoPeakAndOnlyTheGainOfOthersMovesIt) {
    Model::Feed model(run_->FilesOf("lowest-off"));
    model.SetLevel(HalfLevel, false);
    std::size_t lowest = 0;
    std::size_t above = 0;
    ExpectTheModelsSound("lowest-off", model, [&](const Model::Block& heard, const Model::Feed& behind) {
        for (std::size_t i = 0; i < heard.size(); ++i) {
            if (behind.Mixed()[i] == -32768) {
                ++lowest;
                above += heard[i] < -HalfLevel;
            } else {
                ASSERT_LE(std::abs(static_cast<int>(heard[i])), HalfLevel);
            }
        }
    });
    EXPECT_GT(lowest, 1000U) << "the overdriven music holds many";
    EXPECT_GT(above, 0U);
    const auto& heard = run_->Heard("lowest-off");
    EXPECT_EQ(heard[11][0], -32768) << "it passes at a gain of one";
    EXPECT_EQ(heard[11][1], 1000) << "and leaves the gain alone";
    EXPECT_EQ(heard[12][0], 16382) << "20000 at 16383 / 20000";
    EXPECT_EQ(heard[12][1], -26841) << "-32768 * 0.81915";
}

TEST_F(Levels, ALowestSampleWrapsAroundWhereAutogainHasRaisedTheGain) {
    Model::Feed model(run_->FilesOf("lowest-on"));
    model.SetLevel(HalfLevel, true);
    std::size_t wrapped = 0;
    ExpectTheModelsSound("lowest-on", model, [&](const Model::Block& heard, const Model::Feed& behind) {
        for (std::size_t i = 0; i < heard.size(); ++i) {
            if (behind.Mixed()[i] != -32768) {
                ASSERT_LE(std::abs(static_cast<int>(heard[i])), HalfLevel);
            }
        }
    });
    // The tone has been raised by a factor that its own samples show, to one part in a thousand.
    const auto& heard = run_->Heard("lowest-on");
    const int raised = heard[11][1];  // of a thousand
    ASSERT_GT(raised, 1100);
    const std::int16_t product = heard[11][0];
    for (int parts = 0; parts < 1000; ++parts) {
        const double gain = (raised + parts / 1000.0) / 1000.0;
        wrapped += static_cast<std::int16_t>(static_cast<std::int32_t>(-32768.0 * gain)) == product;
    }
    EXPECT_GT(wrapped, 0U) << product << " at about " << raised / 1000.0;
    EXPECT_EQ(heard[12][0], 16382) << "the loud sample is brought to the limit at once";
}

TEST_F(Levels, ASoftUpdateIsInEffectAtTheNextBlockAndIsLogged) {
    const auto& heard = run_->Heard("soft");
    ASSERT_GE(heard.size(), WholeRun);
    ASSERT_EQ(run_->Changes().size(), 3U);
    const std::pair<int, bool> levels[] = {{HalfLevel, false}, {HalfLevel, true}, {0, true}};
    Model::Feed model(run_->FilesOf("soft"));
    std::size_t change = 0;
    bool levelOnly = false;  // the limit came a block before the content began anew
    for (std::size_t block = 0; block < heard.size(); ++block) {
        Model::Feed calm = model;
        if (heard[block] == calm.Next()) {
            model = std::move(calm);
            continue;
        }
        ASSERT_LT(change, 3U) << "block " << block;
        Model::Feed changed = model;
        if (!levelOnly) changed.SetLevel(levels[change].first, levels[change].second);
        Model::Feed restarted = changed;
        restarted.Restart(run_->FilesOf("soft"));
        if (heard[block] == restarted.Next()) {
            model = std::move(restarted);
            // The log told it while this block was made, and the client had those before it.
            EXPECT_LE(block, run_->Changes()[change] + 1);
            EXPECT_GE(block + 3, run_->Changes()[change]);
            ++change;
            levelOnly = false;
        } else {
            ASSERT_FALSE(levelOnly) << "block " << block;
            ASSERT_EQ(heard[block], changed.Next()) << "block " << block;
            model = std::move(changed);
            levelOnly = true;
        }
    }
    EXPECT_EQ(change, 3U);
    // A new channel without a limit of its own follows the global pair from the start.
    EXPECT_EQ(run_->LinesOf("soft", "Volume control"),
              (std::vector<std::string>{"Trace|Volume control is turned off",
                                        "Trace|Volume control has been updated MaxVolume=50%, autogain disabled",
                                        "Trace|Volume control has been updated MaxVolume=50%, autogain enabled",
                                        "Trace|Volume control has been turned off"}));
}

TEST_F(Levels, CompressedFilesOfTwoToolsPlayBitForBitAsAnOutsideDecoderHasThem) {
    Model::Feed model(run_->FilesOf("adpcm"));
    ExpectTheModelsSound("adpcm", model);
}

// Without autogain, once the whole file has been round, the gain of a limited channel stands at limit / loudest sample.
// Each channel joins at a moment of its own, so each block is looked for in the file.
TEST_F(Levels, ThreeChannelsOnTheDefaultSetWithDifferentLimitsHearNothingOfEachOthersScaling) {
    const auto& audio = run_->DefaultAudio();
    int loudest = 0;
    for (const int sample : audio) loudest = std::max(loudest, std::abs(sample));
    ASSERT_GT(loudest, 25000);
    const std::pair<const char*, double> channels[] = {
        {"default-10", 3276.0 / loudest}, {"default-50", 16383.0 / loudest}, {"default", 1.0}};
    for (const auto& [pipe, gain] : channels) {
        const auto& heard = run_->Heard(pipe);
        ASSERT_GE(heard.size(), WholeRun);
        const int allowance = gain == 1.0 ? 0 : 1;  // the last bits of the gain
        std::vector<int> expected;
        for (const int sample : audio) expected.push_back(static_cast<int>(sample * gain));
        std::size_t found = 0;
        for (std::size_t block = 80; block < WholeRun; ++block) {
            const auto same = [&](int wanted, std::int16_t got) { return std::abs(wanted - got) <= allowance; };
            found += std::search(expected.begin(), expected.end(), heard[block].begin(), heard[block].end(), same) !=
                     expected.end();
        }
        // Blocks over the file's end are not in the file, nor are silences while a chunk is on its way: one or two
        // of 32.
        EXPECT_GE(found, (WholeRun - 80) * 8 / 10) << pipe;
    }
}

}  // namespace
}  // namespace OrvTest
