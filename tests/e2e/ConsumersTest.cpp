// Goal: the lines of docs/consumers.md work as they stand, and each program gets every sample.
// Method: a real feed; the lines are taken from the page and run by the shell. `orv-listen` is found by a script of its
// name, which ends it after three seconds of sound and names the test's own pipe folder. What the programs wrote is
// counted and looked for sound.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "Platform/Types.h"
#include "tests/e2e/Exchange.h"

namespace OrvTest {
namespace {

constexpr std::size_t kSamples = 24000;

class Consumers : public ::testing::Test {
protected:
    Consumers() {
        exchange_.StartConfig();
        exchange_.AddPiece("Playlist/music/a.wav", 10.0, 30.0);
        exchange_.Must({"feed", "add", "hold", "--type", "sorted", "--folder", "music"});
        exchange_.StartFeeder();
        const std::string script = exchange_.Folder() / "bin/orv-listen";
        WriteFileText(script, "#!/bin/sh\nexec " ORV_BIN_FOLDER "/orv-listen \"$@\" --seconds 3 --pipe-folder " +
                                  exchange_.PipeFolder() + "\n");
        std::filesystem::permissions(script, std::filesystem::perms(0755));
        WriteFileText(exchange_.Folder() / "asound.conf", "pcm.!default { type file slave.pcm null file " +
                                                              (exchange_.Folder() / "card.raw") +
                                                              " format raw }\npcm.null { type null }\n");
    }

    // The line of the page that runs this program behind orv-listen.
    static std::string LineWith(const std::string& text) {
        std::ifstream page(ORV_SOURCE_FOLDER "/docs/consumers.md");
        std::string line;
        while (std::getline(page, line)) {
            if (line.starts_with("orv-listen ") && line.find(text) != std::string::npos) return line;
        }
        ADD_FAILURE() << "no line with " << text;
        return "false";
    }

    void RunLine(const std::string& text) {
        const std::string line = LineWith(text);
        const RunResult result =
            OrvTest::Run({"/bin/sh", "-c", "cd '" + exchange_.Folder().Path() + "' && " + line}, "", 20000,
                         {{"PATH", exchange_.Folder() / "bin:/usr/bin:/bin"},
                          {"ALSA_CONFIG_PATH", exchange_.Folder() / "asound.conf"}});
        EXPECT_EQ(result.exitCode, 0) << line << "\n" << result.error;
    }

    // The samples of a WAV file, by an outside program.
    std::vector<i16> SamplesOf(const std::string& name) const {
        const RunResult result = OrvTest::Run({"/usr/bin/sox", exchange_.Folder() / name, "-t", "raw", "-r", "8000",
                                               "-c", "1", "-e", "signed-integer", "-b", "16", "-"});
        EXPECT_EQ(result.exitCode, 0) << result.error;
        return FromBytes(result.output);
    }
    static std::vector<i16> FromBytes(const std::string& bytes) {
        std::vector<i16> samples(bytes.size() / 2);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            samples[i] = static_cast<i16>(static_cast<u8>(bytes[2 * i]) | static_cast<u8>(bytes[2 * i + 1]) << 8);
        }
        return samples;
    }
    // How many of the quarter seconds are without any sound.
    static std::size_t SilentPieces(const std::vector<i16>& samples, std::size_t begin = 0) {
        std::size_t silent = 0;
        for (std::size_t i = begin; i + 2000 <= samples.size(); i += 2000) {
            const auto from = samples.begin() + static_cast<std::ptrdiff_t>(i);
            silent += std::all_of(from, from + 2000, [](i16 sample) { return std::abs(sample) < 16; }) ? 1 : 0;
        }
        return silent;
    }
    void ExpectSound(const std::vector<i16>& samples) {
        EXPECT_EQ(samples.size(), kSamples);
        EXPECT_LE(SilentPieces(samples), 2u);  // the feed begins when its first client has come
    }

    Exchange exchange_;
};

TEST_F(Consumers, FfmpegGetsEverySample) {
    RunLine("| ffmpeg");
    ExpectSound(SamplesOf("hold-ffmpeg.wav"));
}

TEST_F(Consumers, SoxGetsEverySample) {
    RunLine("| sox -t raw");
    ExpectSound(SamplesOf("hold-sox.wav"));
}

TEST_F(Consumers, SoxGetsEverySampleOfTheTelephonesCode) {
    RunLine("| sox -t ul");
    ExpectSound(SamplesOf("hold-ulaw.wav"));
}

TEST_F(Consumers, GStreamerGetsEverySample) {
    RunLine("| gst-launch-1.0");
    ExpectSound(SamplesOf("hold-gst.wav"));
}

TEST_F(Consumers, AplayGetsEverySampleBehindTheSilenceInFront) {
    RunLine("| aplay");
    std::vector<i16> samples = FromBytes(ReadFileText(exchange_.Folder() / "card.raw"));
    // The card takes whole periods: the last one is filled up.
    ASSERT_GE(samples.size(), kSamples + 4000);
    EXPECT_TRUE(std::all_of(samples.begin(), samples.begin() + 4000, [](i16 sample) { return sample == 0; }));
    samples.resize(kSamples + 4000);
    EXPECT_LE(SilentPieces(samples, 4000), 2u);
}

}  // namespace
}  // namespace OrvTest
