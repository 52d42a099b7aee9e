#include "Platform/FolderSearch.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include "tests/support/Process.h"

namespace Platform {
namespace {

using OrvTest::TempFolder;
using OrvTest::WriteFileText;

// What a search gives: each name with whether it is a folder.
std::map<std::string, bool> Search(const std::string& folder, const std::string& extension) {
    const auto search = SearchFolder(folder, extension);
    std::map<std::string, bool> found;
    std::string name;
    bool isFolder = false;
    while (search->Next(name, isFolder)) {
        EXPECT_TRUE(found.emplace(name, isFolder).second) << name << " was given twice";
    }
    EXPECT_FALSE(search->Next(name, isFolder)) << "a search that is over stays over";
    return found;
}

TEST(FolderSearchTest, NamesMatchByTheirTailWhateverItsCase) {
    TempFolder folder;
    for (const char* name : {"a.wav", "B.WAV", "c.Wav", "d.raw", "e.wav.bak", "wav", ".wav", "\xFF.wav"}) {
        WriteFileText(folder / name, "");
    }
    const std::map<std::string, bool> expected{
        {"a.wav", false}, {"B.WAV", false}, {"c.Wav", false}, {".wav", false}, {"\xFF.wav", false}};
    EXPECT_EQ(Search(folder.Path(), ".wav"), expected);
    EXPECT_EQ(Search(folder.Path(), ".WAV"), expected);
    EXPECT_EQ(Search(folder.Path(), ".raw"), (std::map<std::string, bool>{{"d.raw", false}}));
}

TEST(FolderSearchTest, AFolderAndALinkToOneAreTold) {
    TempFolder folder;
    WriteFileText(folder / "file.wav", "");
    ASSERT_EQ(::mkdir((folder / "folder.wav").c_str(), 0777), 0);
    ASSERT_EQ(::mkfifo((folder / "fifo.wav").c_str(), 0666), 0);
    ASSERT_EQ(::symlink("folder.wav", (folder / "to-folder.wav").c_str()), 0);
    ASSERT_EQ(::symlink("file.wav", (folder / "to-file.wav").c_str()), 0);
    ASSERT_EQ(::symlink("nothing", (folder / "to-nothing.wav").c_str()), 0);
    const std::map<std::string, bool> expected{{"file.wav", false},    {"folder.wav", true},
                                               {"fifo.wav", false},    {"to-folder.wav", true},
                                               {"to-file.wav", false}, {"to-nothing.wav", false}};
    EXPECT_EQ(Search(folder.Path(), ".wav"), expected);
}

TEST(FolderSearchTest, DotAndDotDotAreNeverGiven) {
    TempFolder folder;
    WriteFileText(folder / "...", "");
    EXPECT_EQ(Search(folder.Path(), ""), (std::map<std::string, bool>{{"...", false}}));
}

TEST(FolderSearchTest, TheFolderIsFoundWhateverItsCase) {
    TempFolder folder;
    ASSERT_EQ(::mkdir((folder / "Playlist").c_str(), 0777), 0);
    WriteFileText(folder / "Playlist/a.wav", "");
    EXPECT_EQ(Search(folder.Path() + "\\playlist", ".wav").size(), 1u);
}

TEST(FolderSearchTest, WhatIsNoFolderGivesNothing) {
    TempFolder folder;
    WriteFileText(folder / "file", "");
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0666), 0);
    EXPECT_TRUE(Search(folder / "none", "").empty());
    EXPECT_TRUE(Search(folder / "file", "").empty());
    EXPECT_TRUE(Search(folder / "fifo", "").empty());
    EXPECT_TRUE(Search("", "").empty());
    EXPECT_TRUE(Search(std::string("/\0x", 3), "").empty());
}

}  // namespace
}  // namespace Platform
