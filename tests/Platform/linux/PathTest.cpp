#include "Platform/Path.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/Process.h"

namespace Platform {
namespace {

using OrvTest::TempFolder;
using OrvTest::WriteFileText;

class FindOnDiskTest : public testing::Test {
protected:
    void Folder(const std::string& name) { ASSERT_EQ(::mkdir((folder_ / name).c_str(), 0777), 0) << name; }
    void File(const std::string& name) { WriteFileText(folder_ / name, name); }
    // What is found for a path below the test's folder, without that folder.
    std::string Find(const std::string& name) {
        const std::string found = FindOnDisk(folder_ / name);
        EXPECT_EQ(found.substr(0, folder_.Path().size() + 1), folder_.Path() + "/");
        return found.substr(folder_.Path().size() + 1);
    }

    TempFolder folder_;
};

TEST_F(FindOnDiskTest, ANameIsFoundWhateverItsCase) {
    Folder("Playlist");
    Folder("Playlist/Music");
    File("Playlist/Music/Jingle.WAV");
    EXPECT_EQ(Find("playlist/music/jingle.wav"), "Playlist/Music/Jingle.WAV");
    EXPECT_EQ(Find("PLAYLIST/MUSIC/JINGLE.wav"), "Playlist/Music/Jingle.WAV");
}

TEST_F(FindOnDiskTest, BackslashesSeparate) {
    Folder("Playlist");
    File("Playlist/Jingle.WAV");
    EXPECT_EQ(Find("Playlist\\Jingle.WAV"), "Playlist/Jingle.WAV");
    EXPECT_EQ(Find("playlist\\jingle.wav"), "Playlist/Jingle.WAV");
}

TEST_F(FindOnDiskTest, TheExactSpellingComesFirst) {
    File("A.wav");
    File("a.wav");
    EXPECT_EQ(Find("a.wav"), "a.wav");
    EXPECT_EQ(Find("A.wav"), "A.wav");
}

TEST_F(FindOnDiskTest, TheBytewiseSmallestWinsATie) {
    File("aB.wav");
    File("Ab.wav");
    File("AB.wav");
    EXPECT_EQ(Find("ab.wav"), "AB.wav");
}

TEST_F(FindOnDiskTest, EachComponentTriesItsExactSpellingFirst) {
    Folder("Music");
    Folder("music");
    File("Music/a.wav");
    File("music/B.wav");
    // "music" is there exactly, so the other folder is not looked into.
    EXPECT_EQ(Find("music/a.wav"), "music/a.wav");
    EXPECT_EQ(Find("music/b.wav"), "music/B.wav");
}

TEST_F(FindOnDiskTest, WhatIsMissingStaysAsItStands) {
    Folder("Music");
    EXPECT_EQ(Find("music/None/Such.wav"), "Music/None/Such.wav");
    EXPECT_EQ(Find("Nowhere/at/all"), "Nowhere/at/all");
}

TEST_F(FindOnDiskTest, OnlyAToZHaveALowerCase) {
    File("\xC3\x84.wav");  // A with two dots
    EXPECT_EQ(Find("\xC3\xA4.wav"), "\xC3\xA4.wav");
    EXPECT_EQ(Find("\xC3\x84.WAV"), "\xC3\x84.wav");
}

TEST_F(FindOnDiskTest, ANameThatIsNotUtf8IsUsedByteForByte) {
    File("\xFF\xFE.WAV");
    EXPECT_EQ(Find("\xFF\xFE.wav"), "\xFF\xFE.WAV");
}

TEST_F(FindOnDiskTest, ALinkThatLeadsNowhereIsFoundByItsOwnName) {
    ASSERT_EQ(::symlink("nowhere", (folder_ / "Link.wav").c_str()), 0);
    EXPECT_EQ(Find("link.wav"), "Link.wav");
}

TEST_F(FindOnDiskTest, APathLongerThan260BytesIsFound) {
    std::string exact;
    std::string lower;
    for (int depth = 0; depth < 6; ++depth) {
        exact += "Folder" + std::string(60, 'X');
        lower += "folder" + std::string(60, 'x');
        Folder(exact);
        exact += "/";
        lower += "/";
    }
    File(exact + "Deep.WAV");
    ASSERT_GT(exact.size(), 260u);
    EXPECT_EQ(Find(lower + "deep.wav"), exact + "Deep.WAV");
}

TEST_F(FindOnDiskTest, APathThatTheSystemDoesNotTakeStaysAsItStands) {
    const std::string component(300, 'x');
    EXPECT_EQ(Find(component + "/a.wav"), component + "/a.wav");
    std::string path;
    while (path.size() < 5000) path += "folder/";
    EXPECT_EQ(Find(path + "a.wav"), path + "a.wav");
}

TEST_F(FindOnDiskTest, AClosingSeparatorStays) {
    Folder("Music");
    EXPECT_EQ(Find("music/"), "Music/");
    EXPECT_EQ(Find("Music\\"), "Music/");
}

TEST_F(FindOnDiskTest, AZeroByteFindsNothing) {
    File("a.wav");
    const std::string name("A.wav\0x", 7);
    EXPECT_EQ(Find(name), name);
}

TEST_F(FindOnDiskTest, RelativePathsStayRelative) {
    Folder("Music");
    File("Music/A.wav");
    char before[4096];
    ASSERT_NE(::getcwd(before, sizeof before), nullptr);
    SystemError error = 1;
    ASSERT_TRUE(SetWorkingDirectory(folder_.Path(), error));
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(FindOnDisk("music/a.wav"), "Music/A.wav");
    EXPECT_EQ(FindOnDisk("./music\\a.wav"), "./Music/A.wav");
    ASSERT_EQ(::chdir(before), 0);
}

TEST(PathTest, TheWorkingDirectoryStandsBeforeARelativePath) {
    TempFolder folder;
    char before[4096];
    ASSERT_NE(::getcwd(before, sizeof before), nullptr);
    SystemError error = 1;
    ASSERT_TRUE(SetWorkingDirectory(folder.Path(), error));
    std::string absolute;
    EXPECT_TRUE(MakeAbsolutePath("a\\./b//..\\c", absolute));
    EXPECT_EQ(absolute, folder / "a/c");
    ASSERT_EQ(::chdir(before), 0);
}

TEST(PathTest, AnAbsolutePathLosesEmptyAndDotComponents) {
    std::string absolute;
    EXPECT_TRUE(MakeAbsolutePath("\\Music//./Old/../New\\a.WAV", absolute));
    EXPECT_EQ(absolute, "/Music/New/a.WAV");
    EXPECT_TRUE(MakeAbsolutePath("/../../a", absolute));
    EXPECT_EQ(absolute, "/a");
    EXPECT_FALSE(MakeAbsolutePath("", absolute));
}

TEST(PathTest, ARemovedWorkingDirectoryGivesNoAbsolutePath) {
    char before[4096];
    ASSERT_NE(::getcwd(before, sizeof before), nullptr);
    auto folder = std::make_unique<TempFolder>();
    ASSERT_EQ(::chdir(folder->Path().c_str()), 0);
    folder.reset();
    std::string absolute;
    EXPECT_FALSE(MakeAbsolutePath("a", absolute));
    EXPECT_TRUE(MakeAbsolutePath("/a", absolute));
    ASSERT_EQ(::chdir(before), 0);
}

TEST(PathTest, TheWorkingDirectoryTakesBothSeparators) {
    TempFolder folder;
    ASSERT_EQ(::mkdir((folder / "Orv").c_str(), 0777), 0);
    char before[4096];
    ASSERT_NE(::getcwd(before, sizeof before), nullptr);
    SystemError error = 1;
    EXPECT_TRUE(SetWorkingDirectory(folder.Path() + "\\Orv", error));
    char now[4096];
    ASSERT_NE(::getcwd(now, sizeof now), nullptr);
    EXPECT_EQ(now, folder / "Orv");
    ASSERT_EQ(::chdir(before), 0);
    EXPECT_FALSE(SetWorkingDirectory(folder / "none", error));
    EXPECT_EQ(error, static_cast<SystemError>(ENOENT));
}

TEST(PathTest, OneSeparatorStandsBetweenTheTwoHalves) {
    EXPECT_EQ(AppendPath("a", "b"), "a/b");
    EXPECT_EQ(AppendPath("a/", "b"), "a/b");
    EXPECT_EQ(AppendPath("a\\", "./b/"), "a\\b/");
    EXPECT_EQ(AppendPath("", "./b"), "b");
}

TEST(PathTest, ServicesKeepTheirDataUnderVarLib) {
    EXPECT_EQ(ProgramDataFolder(), "/var/lib");
}

}  // namespace
}  // namespace Platform
