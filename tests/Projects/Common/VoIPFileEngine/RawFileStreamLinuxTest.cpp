// A stream over real files on the real disk.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Platform/Thread.h"
#include "Projects/Common/VoIPFileEngine/FileView.h"
#include "Projects/Common/VoIPFileEngine/LoadPcmFile.h"
#include "Projects/Common/VoIPFileEngine/MemFileReader.h"
#include "Projects/Common/VoIPFileEngine/OpenMemoryFile.h"
#include "tests/Projects/Common/VoIPFileEngine/AdpcmSample.h"
#include "tests/Projects/Common/VoIPFileEngine/AllocationCounter.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"
#include "tests/Projects/Common/VoIPFileEngine/ReaderFakes.h"
#include "tests/Projects/Common/VoIPFileEngine/SoundFiles.h"
#include "tests/Projects/Common/VoIPFileEngine/StreamPlayer.h"

namespace Orv {
namespace {

using TestData::Audio;
using TestData::PcmWave;
using TestData::SameBytes;
using TestData::StreamPlayer;

class RawFileStreamLinuxTest : public testing::Test {
protected:
    RawFileStreamLinuxTest() {
        std::random_device random;
        do {
            folder_ = std::filesystem::temp_directory_path() / ("orv-raw-" + std::to_string(random()));
        } while (!std::filesystem::create_directory(folder_));
    }
    ~RawFileStreamLinuxTest() override { std::filesystem::remove_all(folder_); }

    std::string Write(const std::string& name, const std::string& bytes) {
        const std::string path = folder_ / name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }
    // All that the stream gives, without zeros: a late disk and the end add nothing but zeros, and the files here have
    // none. The clock runs on between frames that brought none, so that a slow disk gets its time.
    static std::string PlayWithoutZeros(StreamPlayer& player) {
        std::string all;
        u32 empty = 0;
        for (std::string frame = player.Next(); frame != "end" && empty < 20'000; frame = player.Next()) {
            std::erase(frame, '\0');
            all += frame;
            if (frame.empty()) {
                ++empty;
                Platform::SleepMilliseconds(1);
            }
        }
        return all;
    }

    std::filesystem::path folder_;
};

TEST_F(RawFileStreamLinuxTest, RealFilesPlayByteForByte) {
    for (const u64 length : {1u, 1999u, 2000u, 8192u, 8193u, 100'001u, 1'024'001u}) {
        const std::string audio = Audio(length);
        StreamPlayer raw(Write("a.raw", audio), 2000);
        EXPECT_TRUE(SameBytes(PlayWithoutZeros(raw), audio));
        StreamPlayer wave(Write("a.wav", PcmWave(audio)), 2000);
        EXPECT_TRUE(SameBytes(PlayWithoutZeros(wave), audio));
    }
}

TEST_F(RawFileStreamLinuxTest, ARealAdpcmFilePlaysAsAnIndependentDecoderDecodesIt) {
    const std::string compressed(TestData::AdpcmBlocks.begin(), TestData::AdpcmBlocks.end());
    const std::string path = Write("a.wav", TestData::AdpcmWave(compressed));
    std::string expected(reinterpret_cast<const char*>(TestData::AdpcmSamples.data()), 2020);
    std::erase(expected, '\0');
    StreamPlayer player(path, 2000);
    EXPECT_TRUE(SameBytes(PlayWithoutZeros(player), expected));
}

TEST_F(RawFileStreamLinuxTest, AFileIsFoundWhateverItsCase) {
    const std::string audio = Audio(5000);
    Write("Jingle.WAV", PcmWave(audio));
    StreamPlayer player((folder_ / "jingle.wav").string(), 2000);
    EXPECT_TRUE(SameBytes(PlayWithoutZeros(player), audio));
}

TEST_F(RawFileStreamLinuxTest, AFileCutOrRemovedWhileItPlaysEndsTheStreamAndNothingElse) {
    const std::string audio = Audio(300'000);
    const std::string cut = Write("cut.wav", PcmWave(audio)), gone = Write("gone.wav", PcmWave(audio));
    StreamPlayer first(cut, 2000), second(gone, 2000);
    std::string played = first.Next();
    std::erase(played, '\0');
    std::filesystem::resize_file(cut, 60);
    std::filesystem::remove(gone);
    // At most what the two buffers held.
    played += PlayWithoutZeros(first);
    EXPECT_LE(played.size(), 16'384u);
    EXPECT_TRUE(SameBytes(played, audio.substr(0, played.size())));
    EXPECT_TRUE(SameBytes(PlayWithoutZeros(second), audio));
}

TEST_F(RawFileStreamLinuxTest, OnlyThirtyTwoBitsOfAFilesLengthCount) {
    const std::string path = Write("big.dat", Audio(10));
    std::filesystem::resize_file(path, (1ull << 32) + 100);
    const FileView view(path, false, false);
    ASSERT_TRUE(view.IsValid());
    EXPECT_EQ(view.size, 100u);
}

TEST_F(RawFileStreamLinuxTest, AWalkOverNearlyFourGibibytesOfOneChunkIsAStep) {
    // RIFF, fmt, one chunk of 4 GiB less 20,000 bytes, then the audio.
    const u32 filler = 0xFFFFFFFF - 20'000;
    const std::string head = "RIFF" + TestData::Le32(0) + "WAVE" + TestData::Chunk("fmt ", TestData::PcmFormat()) +
                             "LIST" + TestData::Le32(filler);
    const std::string audio = Audio(5000);
    const std::string path = Write("big.wav", head);
    std::filesystem::resize_file(path, head.size() + filler);
    std::ofstream(path, std::ios::binary | std::ios::app) << TestData::Chunk("data", audio);
    StreamPlayer player(path, 2000);
    EXPECT_TRUE(SameBytes(PlayWithoutZeros(player), audio));
}

TEST_F(RawFileStreamLinuxTest, AReadThatWouldPassFourGibibytesIsNotCutAtTheEndOfTheAudio) {
    // Positions have 32 bits: the sum of position and length wraps, is then below the end, and the read takes what the
    // file has behind the audio, too. The read after it begins where that one ended, behind the end, and is not made.
    const u32 fileSize = 0xFFFFFFFF;
    const std::string audio = Audio(1000), behind = Audio(100, 9);
    const std::string data = TestData::Chunk("data", audio) + behind;
    const std::string start = "RIFF" + TestData::Le32(0) + "WAVE" + TestData::Chunk("fmt ", TestData::PcmFormat());
    const u32 filler = fileSize - static_cast<u32>(start.size() + 8 + data.size());
    const std::string path = Write("wrap.wav", start + "LIST" + TestData::Le32(filler));
    std::filesystem::resize_file(path, start.size() + 8 + filler);
    std::ofstream(path, std::ios::binary | std::ios::app) << data;
    ASSERT_EQ(std::filesystem::file_size(path), fileSize);
    StreamPlayer player(path, 2000);
    EXPECT_TRUE(SameBytes(PlayWithoutZeros(player), audio + behind));
}

// `blocks` compressed blocks that hold one level: all nibbles are 0, at step index 0.
std::string LevelBlocks(u16 level, u32 blocks) {
    std::string compressed;
    for (u32 i = 0; i < blocks; ++i) compressed += TestData::Le16(level) + std::string(254, '\0');
    return compressed;
}

// Goal: a frame that is still in use stays as it is when its stream is rewound and goes, and the file's name is given
// back all the same. Method: a frame of zeros belongs to a late disk; frames of 160 bytes lie in the decoded block,
// those of 2000 in the decoder's scratch.
TEST_F(RawFileStreamLinuxTest, AFrameInUseOutlivesARewindAndItsStreamWhetherDecodedOrNot) {
    TestData::EngineLog log;
    const std::string adpcm = Write("a.wav", TestData::AdpcmWave(LevelBlocks(100, 2) + LevelBlocks(200, 40)));
    const std::string raw = Write("a.raw", Audio(100'000));
    for (const std::string& path : {adpcm, raw}) {
        for (const u32 frameBytes : {160u, 2000u}) {
            auto player = std::make_unique<StreamPlayer>(path, frameBytes);
            std::string bytes;
            for (u32 i = 0; i < 10'000 && bytes.find_first_not_of('\0') == std::string::npos; ++i) {
                bytes = player->Next();
                Platform::SleepMilliseconds(1);
            }
            const u8* const frame = player->Frame();
            ASSERT_NE(frame, player->Block());
            const auto owner = player->Stream().FrameOwner();
            player->Stream().Rewind();
            player->Next();
            log.Take();
            player.reset();
            EXPECT_EQ(log.Take(),
                      std::vector<std::string>{TestData::RawLine("Trace", path + " removed from shared storage")});
            EXPECT_TRUE(SameBytes(std::string(reinterpret_cast<const char*>(frame), frameBytes), bytes));
        }
    }
}

// Goal: frames stay whole, while they are mixed and after, when another thread replaces and rewinds the lists that they
// came from. Method: all audio is one level, so that every sample lies between silence and twice that level; memory
// that has gone shows as something else, and to the sanitizers in any case.
TEST_F(RawFileStreamLinuxTest, FramesStayWholeWhileTheirListsAreReplacedAndRewoundByAnotherThread) {
    constexpr i16 kLevel = 0x1000;
    constexpr u32 kSwitches = 300;
    std::string samples;
    for (u32 i = 0; i < 20'000; ++i) samples += TestData::Le16(kLevel);
    const std::string raw = Write("a.raw", samples);
    const std::string adpcm = Write("a.wav", TestData::AdpcmWave(LevelBlocks(kLevel, 40)));
    std::vector<u8> buffer(2000);
    const MTObjects::THolder<IMMStreamManager> set = CreateStreamSet();
    set->Prepare(buffer.data(), 2000);
    std::atomic<bool> done{false};
    std::atomic<u64> heard{0};
    u64 wrong = 0;
    Platform::Thread puller("puller", [&] {
        const MTObjects::THolder<IMMFileStreamReader> reader = set->GetReader();
        while (!done.load()) {
            const TestData::Pulled pulled = TestData::Pull(*reader);
            if (pulled.frame == nullptr) continue;
            bool silent = true;
            for (u64 i = 0; i < 1000; ++i) {
                const i16 sample = pulled.Sample(i);
                if (sample < 0 || sample > 2 * kLevel) ++wrong;
                if (sample != 0) silent = false;
            }
            if (!silent) ++heard;
        }
    });
    const MTObjects::THolder<IMMFileStreamReader> reader = set->GetReader();
    for (u32 i = 0; i < kSwitches || heard.load() < kSwitches; ++i) {
        set->SwitchContent(2, true, {{1, i % 2 == 0 ? adpcm : raw, false}}, 1, 2, 3);
        set->SwitchContent(3, true, {{2, i % 4 < 2 ? adpcm : raw, false}}, 2, 1, i % 3 == 0 ? 2 : 3);
        for (u32 k = 0; k < 5; ++k) {
            const u64 before = heard.load();
            for (u32 turn = 0; turn < 1000 && heard.load() == before; ++turn) Platform::SleepMilliseconds(0);
            reader->Rewind();
        }
    }
    done.store(true);
    puller.Join();
    EXPECT_EQ(wrong, 0u);
}

// Goal: between the start and the end of a file nothing is allocated. Method: count the player's allocations over 1,000
// frames, which cross 244 buffers, and a few of an ADPCM file.
TEST_F(RawFileStreamLinuxTest, AThousandFramesInsideAFileAllocateNothing) {
    const std::string pcm = Write("a.wav", PcmWave(Audio(2'100'000)));
    const std::string adpcm = Write("b.wav", TestData::AdpcmWave(std::string(600'000, '\0')));
    for (const std::string& path : {pcm, adpcm}) {
        RawFileStream stream(1);
        std::string block(2000, '\0');
        ASSERT_TRUE(stream.Open(path.c_str(), block.data(), 2000));
        ContentEventList events;
        const u8* frame = nullptr;
        for (u32 i = 0; i < 20; ++i) ASSERT_TRUE(stream.GetNextFrame(&frame, events));
        bool current = true;
        const TestData::AllocationCounter counter;
        for (u32 i = 0; i < 1000; ++i) current = stream.GetNextFrame(&frame, events) && current;
        EXPECT_EQ(counter.Count(), 0u) << path;
        EXPECT_TRUE(current);
    }
}

// Sparse files take no room on disk; the address space of the process is held so short that they have none in memory.
TEST_F(RawFileStreamLinuxTest, AFileForWhichThereIsNoMemoryIsRefusedOnBothRoads) {
#if defined(__clang__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer run cannot live in a small address space";
#else
    const std::string path = Write("a.raw", "x");
    std::filesystem::resize_file(path, 0x7FFFFFFF);
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_AS, &before), 0);
    std::ifstream usage("/proc/self/statm");
    u64 pages = 0;
    ASSERT_TRUE(usage >> pages);
    const rlimit little{pages * 4096 + 500'000'000, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_AS, &little), 0);
    TestData::EngineLog log;
    const bool mapped = OpenMemoryFile(path, true, true)->IsValid();
    const auto mappedLines = log.Take();
    const bool loaded = OpenMemoryFile(path, false, true)->IsValid();
    const auto loadedLines = log.Take();
    ::setrlimit(RLIMIT_AS, &before);
    EXPECT_FALSE(mapped);
    EXPECT_EQ(mappedLines, std::vector<std::string>{TestData::ViewLine("Error", "Failed to map file , error: 12")});
    EXPECT_FALSE(loaded);
    EXPECT_EQ(loadedLines, std::vector<std::string>{});
#endif
}

TEST_F(RawFileStreamLinuxTest, AFileOfTwoGibibytesIsNotLoadedWholeAndNothingIsSaid) {
    const std::string path = Write("a.raw", "x");
    std::filesystem::resize_file(path, 0x80000000);
    TestData::EngineLog log;
    u64 fileSize = 1, dataOffset = 1, dataSize = 1;
    bool adpcm = true;
    EXPECT_EQ(LoadPcmFile(path, fileSize, dataOffset, dataSize, adpcm), nullptr);
    EXPECT_EQ(log.Take(), std::vector<std::string>{});
    EXPECT_EQ(fileSize + dataOffset + dataSize, 0u);
    EXPECT_FALSE(adpcm);
}

TEST_F(RawFileStreamLinuxTest, AThousandFramesFromMemoryAllocateNothing) {
    const std::string pcm = Write("a.wav", PcmWave(Audio(2'100'000)));
    const std::string adpcm = Write("b.wav", TestData::AdpcmWave(std::string(600'000, '\0')));
    for (const std::string& path : {pcm, adpcm}) {
        for (const bool lock : {true, false}) {
            MemFileReader reader(1, OpenMemoryFile(path, true, lock));
            ASSERT_TRUE(reader.Open(nullptr, nullptr, 2000));
            ContentEventList events;
            const u8* frame = nullptr;
            bool current = true;
            const TestData::AllocationCounter counter;
            for (u32 i = 0; i < 1000; ++i) current = reader.GetNextFrame(&frame, events) && current;
            reader.Rewind();
            EXPECT_EQ(counter.Count(), 0u) << path;
            EXPECT_TRUE(current);
        }
    }
}

TEST_F(RawFileStreamLinuxTest, TheAllocationCounterCounts) {
    const TestData::AllocationCounter counter;
    const std::string text(100, 'x');
    EXPECT_EQ(counter.Count(), 1u) << text;
}

}  // namespace
}  // namespace Orv
