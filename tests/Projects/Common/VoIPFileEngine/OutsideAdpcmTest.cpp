// Goal: compressed files that other programs make play bit for bit as an independent decoder decodes them, through the
// reader of files on disk and the reader of files in memory. Method: sox makes the sound, ffmpeg and sox compress it,
// sox decodes it. (ffmpeg's own decoder forms the difference another way and is no measure.)
#include <gtest/gtest.h>

#include <algorithm>

#include "Platform/Thread.h"
#include "Projects/Common/VoIPFileEngine/MemFileReader.h"
#include "Projects/Common/VoIPFileEngine/OpenMemoryFile.h"
#include "tests/Projects/Common/VoIPFileEngine/ReaderFakes.h"
#include "tests/Projects/Common/VoIPFileEngine/SoundFiles.h"
#include "tests/Projects/Common/VoIPFileEngine/StreamPlayer.h"
#include "tests/support/Process.h"

namespace Orv {
namespace {

using TestData::SameBytes;

class OutsideAdpcmTest : public testing::TestWithParam<const char*> {
protected:
    void Must(const std::vector<std::string>& command) {
        const OrvTest::RunResult result = OrvTest::Run(command);
        ASSERT_EQ(result.exitCode, 0) << command[0] << ": " << result.error;
    }
    // Three seconds with a chirp, noise and silence, so that the step index goes up and down.
    void SetUp() override {
        Must({"/usr/bin/sox", "-R", "-n",   "-r",       "8000",  "-b", "16",    "-c",  "1",   folder_ / "plain.wav",
              "synth",        "3",  "sine", "100-3500", "synth", "3",  "noise", "mix", "pad", "0.5",
              "0.5"});
        file_ = folder_ / "ima.wav";
        if (std::string(GetParam()) == "ffmpeg") {
            Must({"/usr/bin/ffmpeg", "-v", "error", "-i", folder_ / "plain.wav", "-c:a", "adpcm_ima_wav", "-block_size",
                  "256", file_});
        } else {
            Must({"/usr/bin/sox", folder_ / "plain.wav", "-e", "ima-adpcm", file_});
        }
        Must({"/usr/bin/sox", file_, "-t", "raw", "-e", "signed-integer", "-b", "16", folder_ / "decoded.raw"});
        decoded_ = OrvTest::ReadFileText(folder_ / "decoded.raw");
        ASSERT_GT(decoded_.size(), 48'000u);
    }
    // Decoded whole blocks may be longer than what the file says to hold; what is there must be the same.
    void ExpectDecoded(const std::string& played, u64 atLeast) {
        ASSERT_GE(played.size(), atLeast);
        const u64 common = std::min(played.size(), decoded_.size());
        EXPECT_TRUE(SameBytes(played.substr(0, common), decoded_.substr(0, common)));
    }

    OrvTest::TempFolder folder_;
    std::string file_;
    std::string decoded_;
};

TEST_P(OutsideAdpcmTest, ItPlaysAsDecodedFromDisk) {
    for (const u32 frameBytes : {2000u, 160u}) {
        TestData::StreamPlayer player(frameBytes);
        std::string played;
        // A disk that is late gives zeros; by the second time the file is in the page cache.
        for (int attempt = 0; attempt < 20; ++attempt) {
            played.clear();
            ASSERT_TRUE(player.Open(file_));
            Platform::SleepMilliseconds(20);
            for (std::string frame = player.Next(); frame != "end"; frame = player.Next()) {
                played += frame;
                Platform::SleepMilliseconds(1);
            }
            if (played.substr(0, decoded_.size()) == decoded_) break;
        }
        ExpectDecoded(played, decoded_.size());
    }
}

TEST_P(OutsideAdpcmTest, ItPlaysAsDecodedFromMemory) {
    for (const bool locked : {true, false}) {
        for (const u32 frameBytes : {2000u, 160u}) {
            std::shared_ptr<IMemoryFile> file = OpenMemoryFile(file_, true, locked);
            ASSERT_TRUE(file->IsValid());
            ASSERT_TRUE(file->adpcm);
            MTObjects::THolder<MemFileReader> reader(new MemFileReader(1, file));
            ASSERT_TRUE(reader->Open(nullptr, nullptr, static_cast<i32>(frameBytes)));
            std::string played;
            const u8* frame = nullptr;
            while (const u64 samples = reader->ReadSamples(&frame)) {
                played.append(reinterpret_cast<const char*>(frame), samples * 2);
            }
            // The audio's last bytes, as many as the header has, cannot be reached, two samples each.
            ExpectDecoded(played, decoded_.size() - file->offset * 4 - 1010);
        }
    }
}

// The whole-file road reaches all of it.
TEST_P(OutsideAdpcmTest, ItPlaysAsDecodedFromABuffer) {
    std::shared_ptr<IMemoryFile> file = OpenMemoryFile(file_, false, true);
    MTObjects::THolder<MemFileReader> reader(new MemFileReader(1, file));
    ASSERT_TRUE(reader->Open(nullptr, nullptr, 2000));
    std::string played;
    const u8* frame = nullptr;
    while (const u64 samples = reader->ReadSamples(&frame)) {
        played.append(reinterpret_cast<const char*>(frame), samples * 2);
    }
    ExpectDecoded(played, decoded_.size());
}

INSTANTIATE_TEST_SUITE_P(Makers, OutsideAdpcmTest, testing::Values("ffmpeg", "sox"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace Orv
