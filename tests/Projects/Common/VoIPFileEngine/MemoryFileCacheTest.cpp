// The cache of files in memory: under which names a file is found, and the factory's way to it.
#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Projects/Common/VoIPFileEngine/MemFileReader.h"
#include "tests/Projects/Common/VoIPFileEngine/MemoryFileFixture.h"
#include "tests/Projects/Common/VoIPFileEngine/ReaderFakes.h"
#include "tests/Projects/Common/VoIPFileEngine/SoundFiles.h"

namespace Orv {
namespace {

using Platform::Sim::Files;
using TestData::Audio;
using TestData::Pull;
using TestData::SameBytes;
using Lines = std::vector<std::string>;

class MemoryFileCacheTest : public MemoryFileFixture {
protected:
    MemoryFileCacheTest() {
        Files().AddFolder("/Base");
        Files().SetWorkingDirectory("/Base");
    }
    MTObjects::THolder<IMMFileStreamReader> Create(const char* name) {
        return CreateStreamReader(42, name, untouched_, 2000);
    }
};

TEST_F(MemoryFileCacheTest, ANameIsKeptLowerCasedWithSlashes) {
    const auto file = std::make_shared<FakeFile>(Audio(10));
    EXPECT_TRUE(MemoryFileCache::Instance().Add("C:\\Music\\Jingle.WAV", file));
    for (const char* name : {"C:\\Music\\Jingle.WAV", "c:/music/jingle.wav", "C:/MUSIC\\jingle.wav"}) {
        EXPECT_EQ(MemoryFileCache::Instance().Find(name), file) << name;
    }
    EXPECT_EQ(MemoryFileCache::Instance().Find("c:/music/jingle"), nullptr);
    EXPECT_FALSE(MemoryFileCache::Instance().Add("c:/music/jingle.wav", std::make_shared<FakeFile>("x")));
    EXPECT_EQ(MemoryFileCache::Instance().Find("c:/music/jingle.wav"), file) << "the first one stays";
}

TEST_F(MemoryFileCacheTest, AFileIsFoundByAnyNameThatMeansItsAbsolutePath) {
    const auto file = std::make_shared<FakeFile>(Audio(10));
    MemoryFileCache::Instance().Add("/base/music/a.wav", file);
    for (const char* name : {"/Base/Music/A.wav", "Music/a.wav", "music\\a.wav", "./music/a.wav", "x/../music/a.wav",
                             "/base//music/./a.wav", "\\base\\music\\a.wav"}) {
        EXPECT_EQ(MemoryFileCache::Instance().Find(name), file) << name;
    }
    EXPECT_EQ(MemoryFileCache::Instance().Find("a.wav"), nullptr);
    EXPECT_EQ(MemoryFileCache::Instance().Find("/music/a.wav"), nullptr);
}

TEST_F(MemoryFileCacheTest, TheFactoryTakesTheFileFromTheCacheAndTellsTheNameAsItWasAskedFor) {
    MemoryFileCache::Instance().Add("/base/music/a.wav", std::make_shared<FakeFile>(Audio(3000), true));
    log_.Take();
    const auto reader = Create("Music\\A.wav");
    EXPECT_EQ(log_.Take(), Lines{"Trace VoIPFileEngine/IMMFileStreamReader: Music\\A.wav taken from the cache"});
    EXPECT_EQ(reader->GetContentId(), 42u);
    EXPECT_TRUE(reader->IsFile());
    EXPECT_TRUE(
        SameBytes(std::string(reinterpret_cast<const char*>(Pull(*reader).frame), 2000), Audio(3000).substr(0, 2000)));
}

TEST_F(MemoryFileCacheTest, AFileThatIsNotUsableAnyMoreIsPassedOverAndTheFactoryGoesOn) {
    const auto file = std::make_shared<FakeFile>(Audio(3000));
    MemoryFileCache::Instance().Add("/base/a.raw", file);
    Files().AddFile("/Base/a.raw", Audio(3000, 9));
    file->valid = false;
    log_.Take();
    EXPECT_FALSE(CreateMemFileReader(1, "a.raw", untouched_, 2000).IsValid());
    const auto reader = Create("a.raw");
    EXPECT_THAT(log_.Take(),
                testing::Contains("Trace VoIPFileEngine/IMMFileStreamReader: /base/a.raw opened as 8000 Hz "
                                  "16 bit mono async I/O stream"));
    EXPECT_TRUE(SameBytes(std::string(reinterpret_cast<const char*>(Pull(*reader).frame), 2000),
                          Audio(3000, 9).substr(0, 2000)));
}

TEST_F(MemoryFileCacheTest, AReaderKeepsItsFileWhenTheCacheForgetsIt) {
    auto file = std::make_shared<FakeFile>(Audio(6000), true);
    MemoryFileCache::Instance().Add("/base/a.raw", file);
    const auto reader = Create("a.raw");
    const std::weak_ptr<FakeFile> watch = file;
    file = nullptr;
    MemoryFileCache::Instance().Clear();
    EXPECT_FALSE(watch.expired());
    EXPECT_NE(Pull(*reader).frame, nullptr);
    EXPECT_FALSE(CreateMemFileReader(1, "a.raw", untouched_, 2000));
}

TEST_F(MemoryFileCacheTest, AMissGivesNoReader) {
    MemoryFileCache::Instance().Add("/base/a.raw", std::make_shared<FakeFile>("x"));
    EXPECT_FALSE(CreateMemFileReader(1, "b.raw", untouched_, 2000));
}

}  // namespace
}  // namespace Orv
