#include "Projects/Common/VoIPFileEngine/FileView.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "Platform/sim/Simulation.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"
#include "tests/Projects/Common/VoIPFileEngine/SoundFiles.h"

namespace Orv {
namespace {

using Platform::Sim::Files;
using TestData::Audio;
using TestData::ViewLine;
using Lines = std::vector<std::string>;

class FileViewTest : public testing::Test {
protected:
    FileViewTest() { Platform::Sim::ResetProcessWorld(); }
    TestData::EngineLog log_;
};

// A file in memory with a freely set start of its audio, for the bounds alone.
struct MemoryFile : IMemoryFile {
    explicit MemoryFile(const std::string& bytes) : bytes_(bytes) {
        data = reinterpret_cast<const u8*>(bytes_.data());
        size = bytes_.size();
    }
    bool IsValid() const override { return valid; }
    bool valid = true;

private:
    std::string bytes_;
};

std::string ReadText(IMemoryFile& file, u64 position, u64 count) {
    std::string text(count, '?');
    text.resize(file.Read(text.data(), position, count));
    return text;
}
std::string DataText(IMemoryFile& file, u64 position, u64 count) {
    const u8* bytes = nullptr;
    const u64 got = file.GetData(&bytes, position, count);
    return bytes == nullptr ? "null" : std::string(reinterpret_cast<const char*>(bytes), got);
}

TEST_F(FileViewTest, AFileIsHandedOutWholeAndCutAtItsEnd) {
    MemoryFile file("0123456789");
    EXPECT_EQ(DataText(file, 0, 10), "0123456789");
    EXPECT_EQ(DataText(file, 3, 4), "3456");
    EXPECT_EQ(DataText(file, 8, 100), "89");
    EXPECT_EQ(ReadText(file, 3, 4), "3456");
    EXPECT_EQ(ReadText(file, 8, 100), "89");
}

TEST_F(FileViewTest, TheOffsetIsAddedToThePositionAndTheSumIsBoundedBySize) {
    // As in a parsed WAV file: the audio begins at 4 and is 6 bytes long, but only what lies below 6 from the start of
    // the file is served: the last 4 bytes of the audio cannot be reached.
    MemoryFile file("hdr.ABCDEF");
    file.offset = 4;
    file.size = 6;
    EXPECT_EQ(DataText(file, 0, 6), "AB");
    EXPECT_EQ(DataText(file, 1, 6), "B");
    EXPECT_EQ(ReadText(file, 0, 6), "AB");
}

TEST_F(FileViewTest, AtTheVeryEndThePointerIsThereAndTheCountIsZero) {
    MemoryFile file("hdr.ABCDEF");
    file.offset = 4;
    const u8* bytes = nullptr;
    EXPECT_EQ(file.GetData(&bytes, file.size - file.offset, 5), 0u);
    EXPECT_EQ(bytes, file.data + file.size);
    EXPECT_EQ(ReadText(file, 6, 5), "");
}

TEST_F(FileViewTest, BehindTheEndThereIsNothing) {
    MemoryFile file("hdr.ABCDEF");
    file.offset = 4;
    EXPECT_EQ(DataText(file, 7, 1), "null");
    EXPECT_EQ(ReadText(file, 7, 1), "");
}

TEST_F(FileViewTest, PositionsAndCountsThatWouldWrapAreBoundedToo) {
    MemoryFile file("hdr.ABCDEF");
    file.offset = 4;
    constexpr u64 most = std::numeric_limits<u64>::max();
    EXPECT_EQ(DataText(file, most, 1), "null");
    EXPECT_EQ(DataText(file, most - 3, 1), "null");
    EXPECT_EQ(DataText(file, 0, most), "ABCDEF");
    file.offset = most;
    EXPECT_EQ(DataText(file, 0, 1), "null");
    EXPECT_EQ(DataText(file, 1, 1), "null");
}

TEST_F(FileViewTest, AFileThatIsNotValidServesNothing) {
    MemoryFile file("0123456789");
    file.valid = false;
    EXPECT_EQ(DataText(file, 0, 1), "null");
    EXPECT_EQ(ReadText(file, 0, 1), "");
}

TEST_F(FileViewTest, APrefetchedFileLiesInMemoryAndOutlivesWhateverHappensOnDisk) {
    const std::string bytes = Audio(100'000);
    Files().AddFile("/s/a.dat", bytes);
    FileView view("/s/a.dat", true, false);
    ASSERT_TRUE(view.IsValid());
    EXPECT_EQ(view.name, "/s/a.dat");
    EXPECT_EQ(view.size, 100'000u);
    EXPECT_EQ(view.offset, 0u);
    EXPECT_FALSE(view.locked);
    EXPECT_FALSE(view.adpcm);
    Files().Truncate("/s/a.dat", 10);
    Files().Remove("/s/a.dat");
    EXPECT_EQ(DataText(view, 0, 200'000), bytes);
    EXPECT_EQ(ReadText(view, 99'990, 100), bytes.substr(99'990));
    EXPECT_EQ(log_.Take(), Lines{});
}

TEST_F(FileViewTest, AnEmptyFileIsValidOnDiskAndHasNoMappingWhichIsToldWithoutAName) {
    Files().AddFile("/s/empty.dat", "");
    {
        FileView view("/s/empty.dat", false, false);
        EXPECT_TRUE(view.IsValid());
        EXPECT_EQ(view.size, 0u);
        EXPECT_EQ(ReadText(view, 0, 10), "");
    }
    EXPECT_EQ(log_.Take(), Lines{});
    FileView view("/s/empty.dat", true, true);
    EXPECT_FALSE(view.IsValid());
    EXPECT_FALSE(view.locked);
    EXPECT_EQ(log_.Take(), Lines{ViewLine("Error", "Failed to create file mapping of , error: 22")});
    EXPECT_EQ(Files().Counters().filesAlive, 0u);
}

TEST_F(FileViewTest, ALockedViewHoldsItsPagesUntilItIsClosed) {
    Files().AddFile("/s/a.dat", Audio(10'000));
    for (const bool prefetch : {true, false}) {
        FileView view("/s/a.dat", prefetch, true);
        EXPECT_TRUE(view.locked);
        EXPECT_EQ(Platform::Sim::Memory().LockedBytes(), 12'288u);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(view.data) % 4096, 0u);
        view.Lock();
        EXPECT_EQ(Platform::Sim::Memory().Locks(), 1u);
        view.Close();
        EXPECT_FALSE(view.locked);
        EXPECT_EQ(Platform::Sim::Memory().Locks(), 0u);
    }
    {
        FileView view("/s/a.dat", true, true);
        EXPECT_EQ(Platform::Sim::Memory().Locks(), 1u);
    }
    EXPECT_EQ(Platform::Sim::Memory().Locks(), 0u);
}

TEST_F(FileViewTest, AFailureToLockIsNoErrorAndLeavesTheViewAsItIs) {
    const std::string bytes = Audio(10'000);
    Files().AddFile("/s/a.dat", bytes);
    Platform::Sim::Memory().SetLockLimit(8192);
    FileView view("/s/a.dat", true, true);
    EXPECT_TRUE(view.IsValid());
    EXPECT_FALSE(view.locked);
    EXPECT_EQ(DataText(view, 0, 20'000), bytes);
    EXPECT_EQ(log_.Take(), Lines{});
    // It may be had later.
    Platform::Sim::Memory().SetLockLimit(12'288);
    view.Lock();
    EXPECT_TRUE(view.locked);
}

TEST_F(FileViewTest, AViewOnDiskHasNothingToLock) {
    Files().AddFile("/s/a.dat", Audio(100));
    FileView view("/s/a.dat", false, false);
    view.Lock();
    EXPECT_FALSE(view.locked);
}

// The view is of the path: what lies under it on disk by then does not matter, only its length bounds the new view.
TEST_F(FileViewTest, ASecondViewOfAPathThatIsOpenAlreadyGetsTheSameMappingByName) {
    const std::string bytes = Audio(10'000);
    Files().AddFile("/s/a.dat", bytes);
    FileView first("/s/a.dat", true, false);
    Files().Replace("/s/a.dat", Audio(6000, 2));
    const u64 reads = Files().Counters().reads;
    FileView second("\\s\\a.dat", true, true);
    EXPECT_EQ(second.data, first.data);
    EXPECT_EQ(second.name, "\\s\\a.dat");
    EXPECT_EQ(DataText(second, 0, 20'000), bytes.substr(0, 6000));
    EXPECT_EQ(Files().Counters().reads, reads) << "nothing is read twice";
    Files().Replace("/s/a.dat", Audio(20'000, 3));
    FileView third("/s/a.dat", true, true);
    EXPECT_EQ(DataText(third, 0, 20'000), bytes);

    // The lock is one of all views, and ends with the last that took it.
    EXPECT_EQ(Platform::Sim::Memory().Locks(), 1u);
    second.Close();
    EXPECT_EQ(Platform::Sim::Memory().Locks(), 1u);
    third.Close();
    EXPECT_EQ(Platform::Sim::Memory().Locks(), 0u);
    EXPECT_EQ(DataText(first, 0, 20'000), bytes);

    // Another spelling is another name.
    FileView other("/S/a.dat", true, false);
    EXPECT_NE(other.data, first.data);
    EXPECT_EQ(other.size, 20'000u);
    // With its last view the mapping goes.
    first.Close();
    FileView anew("/s/a.dat", true, false);
    EXPECT_EQ(DataText(anew, 0, 30'000), Audio(20'000, 3));
}

TEST_F(FileViewTest, AReadErrorWhilePrefetchingEndsTheBytesWithoutAWord) {
    const std::string bytes = Audio(10'000);
    Files().AddFile("/s/a.dat", bytes);
    Files().FailReads("/s/a.dat", 5, 7000);
    FileView view("/s/a.dat", true, true);
    EXPECT_TRUE(view.IsValid());
    EXPECT_EQ(DataText(view, 0, 20'000), bytes.substr(0, 7000));
    EXPECT_EQ(log_.Take(), Lines{});
}

TEST_F(FileViewTest, WithoutPrefetchNothingIsReadAtOpeningAndReadGoesToTheDisk) {
    const std::string bytes = Audio(50'000);
    Files().AddFile("/s/a.dat", bytes);
    FileView view("/s/a.dat", false, false);
    ASSERT_TRUE(view.IsValid());
    EXPECT_EQ(Files().Counters().reads, 0u);
    EXPECT_EQ(view.data, nullptr);
    EXPECT_EQ(DataText(view, 0, 10), "null");
    EXPECT_EQ(ReadText(view, 49'990, 100), bytes.substr(49'990));
    EXPECT_EQ(ReadText(view, 50'001, 1), "");
    EXPECT_EQ(Files().Counters().bytesRead, 10u);
}

TEST_F(FileViewTest, AFileCutWhileItIsOpenGivesLess) {
    const std::string bytes = Audio(5000);
    Files().AddFile("/s/a.dat", bytes);
    FileView view("/s/a.dat", false, false);
    Files().Truncate("/s/a.dat", 100);
    EXPECT_EQ(ReadText(view, 0, 5000), bytes.substr(0, 100));
    EXPECT_EQ(ReadText(view, 100, 5000), "");
}

TEST_F(FileViewTest, AFileThatCannotBeOpenedIsToldWithPathAndError) {
    Files().AddFile("/s/closed.dat", "x");
    Files().FailOpens("/s/closed.dat", 13);
    for (const bool prefetch : {true, false}) {
        FileView view("/s/closed.dat", prefetch, false);
        EXPECT_FALSE(view.IsValid());
        EXPECT_EQ(view.size, 0u);
        EXPECT_EQ(log_.Take(), Lines{ViewLine("Error", "Failed to open file /s/closed.dat, error: 13")});
    }
    FileView missing("/s/none.dat", false, false);
    EXPECT_EQ(log_.Take(), Lines{ViewLine("Error", "Failed to open file /s/none.dat, error: 2")});
}

TEST_F(FileViewTest, AnEmptyPathIsRefusedInSilence) {
    FileView view("", true, false);
    EXPECT_FALSE(view.IsValid());
    EXPECT_EQ(log_.Take(), Lines{});
}

TEST_F(FileViewTest, ClosingGivesTheFileAndTheMemoryBack) {
    Files().AddFile("/s/a.dat", "0123456789");
    FileView view("/s/a.dat", true, false);
    EXPECT_TRUE(view.IsValid());
    EXPECT_EQ(Files().Counters().filesAlive, 0u) << "no file is held open once the bytes are in memory";
    view.Close();
    EXPECT_FALSE(view.IsValid());
    EXPECT_EQ(view.size, 0u);
    EXPECT_EQ(DataText(view, 0, 1), "null");
    EXPECT_EQ(ReadText(view, 0, 1), "");
    view.Close();
    {
        FileView other("/s/a.dat", false, false);
        EXPECT_EQ(Files().Counters().filesAlive, 1u);
    }
    EXPECT_EQ(Files().Counters().filesAlive, 0u);
}

}  // namespace
}  // namespace Orv
