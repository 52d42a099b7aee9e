// A reader over files in memory: both read roads, ADPCM and the end.
#include "Projects/Common/VoIPFileEngine/MemFileReader.h"

#include <gtest/gtest.h>

#include "tests/Projects/Common/VoIPFileEngine/AdpcmSample.h"
#include "tests/Projects/Common/VoIPFileEngine/MemoryFileFixture.h"
#include "tests/Projects/Common/VoIPFileEngine/ReaderFakes.h"
#include "tests/Projects/Common/VoIPFileEngine/SoundFiles.h"

namespace Orv {
namespace {

using Platform::Sim::Files;
using Platform::Sim::Memory;
using TestData::AdpcmWave;
using TestData::Audio;
using TestData::Chunk;
using TestData::Finished;
using TestData::Le16;
using TestData::PcmWave;
using TestData::Pull;
using TestData::Pulled;
using TestData::Riff;
using TestData::SameBytes;
using TestData::ViewLine;
using Reader = MTObjects::THolder<MemFileReader>;
using Lines = std::vector<std::string>;

class MemFileReaderTest : public MemoryFileFixture {
protected:
    Reader Play(std::shared_ptr<IMemoryFile> file, i32 frameBytes = 2000) {
        Reader reader(new MemFileReader(42, std::move(file)));
        EXPECT_TRUE(reader->Open(nullptr, untouched_, frameBytes));
        return reader;
    }
    // Frames up to the end, which must come with a null frame, false and the event.
    static std::vector<std::string> ToTheEnd(MemFileReader& reader, u64 frameBytes = 2000) {
        std::vector<std::string> frames;
        for (;;) {
            const Pulled pulled = Pull(reader);
            if (!pulled.result) {
                EXPECT_EQ(pulled.frame, nullptr);
                EXPECT_EQ(pulled.events, Finished({42}));
                return frames;
            }
            EXPECT_TRUE(pulled.events.empty());
            frames.emplace_back(reinterpret_cast<const char*>(pulled.frame), frameBytes);
            if (frames.size() > 10'000) {
                ADD_FAILURE() << "no end";
                return frames;
            }
        }
    }
    static std::string Joined(const std::vector<std::string>& frames) {
        std::string all;
        for (const std::string& frame : frames) all += frame;
        return all;
    }
};

std::string HeldBlock(i16 sample) {
    return Le16(static_cast<u16>(sample)) + std::string(254, '\0');
}
std::string Pcm(i16 sample, u64 count) {
    std::string bytes;
    for (u64 i = 0; i < count; ++i) bytes += Le16(static_cast<u16>(sample));
    return bytes;
}
std::shared_ptr<FakeFile> Adpcm(const std::string& blocks, bool locked = false) {
    auto file = std::make_shared<FakeFile>(blocks, locked);
    file->adpcm = true;
    return file;
}

TEST_F(MemFileReaderTest, APcmFileOf4500BytesGivesTwoFullFramesAThirdFilledUpAndThenTheEnd) {
    const std::string audio = Audio(4500);
    for (const bool locked : {true, false}) {
        const Reader reader = Play(std::make_shared<FakeFile>(audio, locked));
        const auto frames = ToTheEnd(*reader);
        ASSERT_EQ(frames.size(), 3u);
        EXPECT_TRUE(SameBytes(frames[0], audio.substr(0, 2000)));
        EXPECT_TRUE(SameBytes(frames[1], audio.substr(2000, 2000)));
        EXPECT_TRUE(SameBytes(frames[2], audio.substr(4000) + std::string(1500, '\0')));
        const Pulled again = Pull(*reader);
        EXPECT_FALSE(again.result);
        EXPECT_EQ(again.events, Finished({42})) << "each call at the end tells it";
    }
    EXPECT_TRUE(TestData::AllZero(untouched_, sizeof untouched_));
}

TEST_F(MemFileReaderTest, AFileOfWholeFramesEndsRightBehindThem) {
    for (const bool locked : {true, false}) {
        EXPECT_EQ(ToTheEnd(*Play(std::make_shared<FakeFile>(Audio(6000), locked))).size(), 3u);
        EXPECT_EQ(ToTheEnd(*Play(std::make_shared<FakeFile>("", locked))).size(), 0u);
    }
}

// A list that is given to a stream set before its frame size is known is built with size 0; that ended a debug build.
TEST_F(MemFileReaderTest, WithAFrameSizeOfZeroItHasFinishedFromTheStart) {
    for (const bool locked : {true, false}) {
        EXPECT_EQ(ToTheEnd(*Play(std::make_shared<FakeFile>(Audio(4500), locked), 0)).size(), 0u);
        EXPECT_EQ(ToTheEnd(*Play(Adpcm(HeldBlock(1), locked), 0)).size(), 0u);
    }
}

TEST_F(MemFileReaderTest, LockedMemoryIsHandedOutByPointerAtAnyAddressAndAnyOtherIsCopied) {
    const auto locked = std::make_shared<FakeFile>(Audio(5001), true);
    locked->offset = 1;  // odd addresses
    const Reader inPlace = Play(locked);
    EXPECT_EQ(Pull(*inPlace).frame, locked->data + 1);
    EXPECT_EQ(Pull(*inPlace).frame, locked->data + 2001);
    const u8* const last = Pull(*inPlace).frame;
    EXPECT_TRUE(last < locked->data || last >= locked->data + 5001) << "a short frame cannot lie in the file";

    const auto unlocked = std::make_shared<FakeFile>(Audio(5000));
    const Reader copied = Play(unlocked);
    const u8* const block = Pull(*copied).frame;
    EXPECT_TRUE(block < unlocked->data || block >= unlocked->data + 5000);
    EXPECT_EQ(Pull(*copied).frame, block) << "the reader's own block, each time";
}

TEST_F(MemFileReaderTest, ReadSamplesGivesTheRealSamples) {
    const u8* frame = nullptr;
    for (const bool locked : {true, false}) {
        const Reader reader = Play(std::make_shared<FakeFile>(Audio(2501), locked));
        EXPECT_EQ(reader->ReadSamples(&frame), 1000u);
        EXPECT_EQ(reader->ReadSamples(&frame), 250u);
        EXPECT_NE(frame, nullptr);
        EXPECT_EQ(reader->ReadSamples(&frame), 0u);
        EXPECT_EQ(frame, nullptr);
    }
}

// Half a sample counts as none.
TEST_F(MemFileReaderTest, ALastSingleByteIsTheEnd) {
    for (const bool locked : {true, false}) {
        const Reader reader = Play(std::make_shared<FakeFile>(Audio(2001), locked));
        EXPECT_TRUE(Pull(*reader).result);
        const Pulled end = Pull(*reader);
        EXPECT_FALSE(end.result);
        EXPECT_EQ(end.events, Finished({42}));
    }
}

TEST_F(MemFileReaderTest, AnAdpcmFileOfOneBlockGivesItsSamplesAndZerosAndThenTheEnd) {
    const Reader reader = Play(Adpcm(HeldBlock(321)));
    const u8* frame = nullptr;
    EXPECT_EQ(reader->ReadSamples(&frame), 505u);
    ASSERT_NE(frame, nullptr);
    EXPECT_TRUE(SameBytes(std::string(reinterpret_cast<const char*>(frame), 2000), Pcm(321, 505) + Pcm(0, 495)));
    EXPECT_EQ(reader->ReadSamples(&frame), 0u);
    EXPECT_EQ(frame, nullptr);
    EXPECT_EQ(ToTheEnd(*reader).size(), 0u);
}

// The raw file stream fills such a block up with zeros, which then play; here it is as short as it is.
TEST_F(MemFileReaderTest, AShortLastBlockYieldsTheSamplesItHasAndIsNotFilledUp) {
    const auto played = [this](u64 bytes) {
        const std::string last = HeldBlock(200).substr(0, bytes);
        return Joined(ToTheEnd(*Play(Adpcm(HeldBlock(100) + last), 20), 20));
    };
    const auto frames = [](const std::string& pcm) { return pcm + std::string((20 - pcm.size() % 20) % 20, '\0'); };
    EXPECT_TRUE(SameBytes(played(3), frames(Pcm(100, 505)))) << "three bytes end the stream";
    EXPECT_TRUE(SameBytes(played(4), frames(Pcm(100, 505) + Pcm(200, 1)))) << "four are a header: one sample";
    EXPECT_TRUE(SameBytes(played(10), frames(Pcm(100, 505) + Pcm(200, 13))));
}

TEST_F(MemFileReaderTest, ABlockWithStepIndexEightyNinePlaysAsZerosFirstSampleIncluded) {
    std::string bad = HeldBlock(1000);
    bad[2] = 89;
    const auto frames = ToTheEnd(*Play(Adpcm(bad + HeldBlock(55)), 2020), 2020);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_TRUE(SameBytes(frames[0].substr(0, 2020), Pcm(0, 505) + Pcm(55, 505)));
}

TEST_F(MemFileReaderTest, AdpcmPlaysAsAnIndependentDecoderDecodesIt) {
    const std::string blocks(TestData::AdpcmBlocks.begin(), TestData::AdpcmBlocks.end());
    const std::string samples(reinterpret_cast<const char*>(TestData::AdpcmSamples.data()), 2020);
    for (const i32 frameBytes : {2000, 2020, 160, 2}) {
        for (const bool locked : {true, false}) {
            const std::string played = Joined(ToTheEnd(*Play(Adpcm(blocks, locked), frameBytes), frameBytes));
            EXPECT_TRUE(SameBytes(played, samples + std::string(played.size() - 2020, '\0'))) << frameBytes;
            EXPECT_LT(played.size() - 2020, static_cast<u64>(frameBytes));
        }
    }
}

TEST_F(MemFileReaderTest, FramesOfEightySamplesComeByPointerFromTheDecodedBlockExceptAcrossABoundary) {
    // 505 = 6 x 80 + 25: the seventh frame spans the blocks.
    const Reader reader = Play(Adpcm(HeldBlock(11) + HeldBlock(22)), 160);
    const u8* const first = Pull(*reader).frame;
    for (int i = 1; i < 6; ++i) EXPECT_EQ(Pull(*reader).frame, first + i * 160);
    const Pulled across = Pull(*reader);
    EXPECT_TRUE(across.frame < first || across.frame >= first + 1010);
    EXPECT_EQ(across.Sample(24), 11);
    EXPECT_EQ(across.Sample(25), 22);
    EXPECT_EQ(Pull(*reader).frame, first + 55 * 2);
}

TEST_F(MemFileReaderTest, ARewindOfPcmStartsOverAtOnce) {
    const std::string audio = Audio(5000);
    const Reader reader = Play(std::make_shared<FakeFile>(audio));
    Pull(*reader);
    Pull(*reader);
    reader->Rewind();
    EXPECT_TRUE(SameBytes(Joined(ToTheEnd(*reader)), audio + std::string(1000, '\0')));
    reader->Rewind();
    EXPECT_EQ(ToTheEnd(*reader).size(), 3u) << "also from the end";
}

TEST_F(MemFileReaderTest, ARewindAfterAHundredSamplesOfAnAdpcmFilePlaysTheRestOfTheOldBlockFirst) {
    const Reader reader = Play(Adpcm(HeldBlock(1) + HeldBlock(2)), 200);
    EXPECT_EQ(Pull(*reader).Sample(99), 1);
    Pull(*reader);
    Pull(*reader);
    Pull(*reader);
    Pull(*reader);                          // 500 samples of the first block have gone
    EXPECT_EQ(Pull(*reader).Sample(5), 2);  // and 95 of the second
    reader->Rewind();
    const std::string rest = Joined(ToTheEnd(*reader, 200));
    EXPECT_TRUE(SameBytes(rest.substr(0, 2 * (410 + 1010)), Pcm(2, 410) + Pcm(1, 505) + Pcm(2, 505)));

    const Reader once = Play(Adpcm(HeldBlock(7)), 200);
    Pull(*once);
    once->Rewind();
    const std::string after = Joined(ToTheEnd(*once, 200));
    EXPECT_TRUE(SameBytes(after, Pcm(7, 405) + Pcm(7, 505) + Pcm(0, 90))) << "405 are left of the old block";
}

TEST_F(MemFileReaderTest, TheAnswersAboutItself) {
    const Reader reader = Play(std::make_shared<FakeFile>(Audio(10)));
    EXPECT_TRUE(reader.IsValid());
    EXPECT_TRUE(reader->IsOpen());
    EXPECT_TRUE(reader->IsFile());
    EXPECT_EQ(reader->GetName(), "fake");
    EXPECT_EQ(reader->GetContentId(), 42u);
    reader->Close();
    EXPECT_FALSE(reader->IsOpen());
    EXPECT_EQ(reader->GetName(), "");
    EXPECT_FALSE(Pull(*reader).result);
}

TEST_F(MemFileReaderTest, AFileGoneBadKeepsTheReaderInPlaceWithNullFramesAndAnEvent) {
    const auto file = std::make_shared<FakeFile>(Audio(10'000), true);
    const Reader reader = Play(file);
    EXPECT_NE(Pull(*reader).frame, nullptr);
    file->valid = false;
    for (int i = 0; i < 2; ++i) {
        const Pulled pulled = Pull(*reader);
        EXPECT_TRUE(pulled.result);
        EXPECT_EQ(pulled.frame, nullptr);
        EXPECT_EQ(pulled.events, Finished({42}));
    }
    EXPECT_FALSE(reader->IsOpen());
    EXPECT_FALSE(reader.IsValid());
    EXPECT_FALSE(reader->Open(nullptr, untouched_, 2000));
}

TEST_F(MemFileReaderTest, ManyReadersShareOneFileEachWithAPositionOfItsOwn) {
    const std::string audio = Audio(6000);
    const auto file = std::make_shared<FakeFile>(audio, true);
    const Reader first = Play(file);
    const Reader second = Play(file, 160);
    Pull(*first);
    Pull(*second);
    EXPECT_EQ(Pull(*first).frame, file->data + 2000);
    EXPECT_EQ(Pull(*second).frame, file->data + 160);
}

TEST_F(MemFileReaderTest, ANameOpensTheMappedAndLockedFileInPlaceOfTheOldOne) {
    const std::string audio = Audio(3000);
    Files().AddFile("/s/a.wav", PcmWave(audio));
    for (const bool locked : {true, false}) {
        Memory().SetLockLimit(locked ? 1'000'000 : 0);
        const Reader reader = Play(Adpcm(HeldBlock(1)));
        Pull(*reader);
        ASSERT_TRUE(reader->Open("/s/a.wav", untouched_, 2000));
        EXPECT_EQ(Memory().Locks(), locked ? 1u : 0u);
        EXPECT_EQ(reader->GetName(), "/s/a.wav");
        const auto frames = ToTheEnd(*reader);
        ASSERT_EQ(frames.size(), 2u);
        EXPECT_TRUE(SameBytes(frames[0], audio.substr(0, 2000)));
        // The last 44 bytes of the audio cannot be reached: they are counted from the start of the file.
        EXPECT_TRUE(SameBytes(frames[1], audio.substr(2000, 956) + std::string(1044, '\0')));
    }
}

TEST_F(MemFileReaderTest, AMonoWavAt44100HertzIsRefusedWithItsFormatAndTheObjectIsNotValid) {
    Files().AddFile("/s/a.wav", Riff(Chunk("fmt ", TestData::Format(1, 1, 44100, 16, 2)) + Chunk("data", Audio(9000))));
    Reader reader(new MemFileReader(42, nullptr));
    EXPECT_FALSE(reader->Open("/s/a.wav", untouched_, 2000));
    EXPECT_EQ(log_.Take(), Lines{ViewLine("Warn", "Unsupported WAV format: 1/1/44100/16")});
    EXPECT_FALSE(reader->IsOpen());
    EXPECT_FALSE(reader.IsValid());
}

}  // namespace
}  // namespace Orv
