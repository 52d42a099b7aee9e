// Goal: paths of the simulated world follow the rules of Platform/Path.h.
#include "Platform/Path.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "Platform/NamedPipe.h"
#include "Platform/sim/Simulation.h"

namespace {

using Platform::SystemError;
using Platform::Sim::Simulation;

std::string Absolute(const std::string& path) {
    std::string absolute;
    EXPECT_TRUE(Platform::MakeAbsolutePath(path, absolute)) << path;
    return absolute;
}

TEST(PathTest, OnlyAToZHaveALowerCase) {
    EXPECT_EQ(Platform::LowerAscii("AZ[@Music\xC3\x84\xFF.WAV"), "az[@music\xC3\x84\xFF.wav");
}

TEST(PathTest, APathIsMadeAbsoluteWithoutALookAtTheDisk) {
    Simulation sim;
    sim.Files().AddFolder("/data/Orv");
    sim.Files().SetWorkingDirectory("/data/Orv");
    EXPECT_EQ(Absolute("Playlist/x.wav"), "/data/Orv/Playlist/x.wav");
    EXPECT_EQ(Absolute(".\\Playlist\\\\x.wav"), "/data/Orv/Playlist/x.wav");
    EXPECT_EQ(Absolute("../not/there/../x/."), "/data/not/x");
    EXPECT_EQ(Absolute("/../../a//b/"), "/a/b");
    EXPECT_EQ(Absolute("\\a"), "/a");
    EXPECT_EQ(Absolute("..\\..\\.."), "/");
    std::string absolute;
    EXPECT_FALSE(Platform::MakeAbsolutePath("", absolute));
}

TEST(PathTest, APathIsAppendedWithOneSeparator) {
    EXPECT_EQ(Platform::AppendPath("/data", "Logs"), "/data/Logs");
    EXPECT_EQ(Platform::AppendPath("/data/", "Logs"), "/data/Logs");
    EXPECT_EQ(Platform::AppendPath("\\data\\", "Logs"), "\\data\\Logs");
    EXPECT_EQ(Platform::AppendPath("/data", "./Bin/x.ini"), "/data/Bin/x.ini");
    EXPECT_EQ(Platform::AppendPath("/data", ".\\\\Bin"), "/data/Bin");
    EXPECT_EQ(Platform::AppendPath("/data", "/Bin"), "/data/Bin");
    EXPECT_EQ(Platform::AppendPath("/data", "../Bin"), "/data/../Bin");
    EXPECT_EQ(Platform::AppendPath("/data", ".Bin"), "/data/.Bin");
    EXPECT_EQ(Platform::AppendPath("", "Bin"), "Bin");
    EXPECT_EQ(Platform::AppendPath("/data", ""), "/data/");
}

TEST(PathTest, WhatIsOnTheDiskIsFoundWhateverItsCase) {
    Simulation sim;
    sim.Files().AddFile("/data/Music/Jingle.WAV", "x");
    EXPECT_EQ(Platform::FindOnDisk("/DATA/music/JINGLE.wav"), "/data/Music/Jingle.WAV");
    EXPECT_EQ(Platform::FindOnDisk("\\data\\music\\jingle.wav"), "/data/Music/Jingle.WAV");
    EXPECT_EQ(Platform::FindOnDisk("/data/MUSIC/"), "/data/Music/");
}

TEST(PathTest, TheExactSpellingComesFirstThenTheBytewiseSmallest) {
    Simulation sim;
    sim.Files().AddFile("/a/bC.wav", "");
    sim.Files().AddFile("/a/Bc.wav", "");
    sim.Files().AddFile("/a/bc.wav", "");
    EXPECT_EQ(Platform::FindOnDisk("/a/bc.wav"), "/a/bc.wav");
    EXPECT_EQ(Platform::FindOnDisk("/a/bC.wav"), "/a/bC.wav");
    EXPECT_EQ(Platform::FindOnDisk("/a/BC.WAV"), "/a/Bc.wav");
}

TEST(PathTest, ComponentsThatDoNotExistStayAsTheyStand) {
    Simulation sim;
    sim.Files().AddFolder("/Data");
    EXPECT_EQ(Platform::FindOnDisk("/data/None/X.wav"), "/Data/None/X.wav");
    EXPECT_EQ(Platform::FindOnDisk("None\\X.wav"), "None/X.wav");
    EXPECT_EQ(Platform::FindOnDisk(""), "");
}

TEST(PathTest, ARelativePathStaysRelative) {
    Simulation sim;
    sim.Files().AddFile("/data/Music/a.wav", "x");
    sim.Files().SetWorkingDirectory("/data");
    EXPECT_EQ(Platform::FindOnDisk("music/A.wav"), "Music/a.wav");
}

TEST(PathTest, TheWorkingDirectoryChangesToAFolderOnly) {
    Simulation sim;
    sim.Files().AddFile("/var/lib/Orv/x", "");
    SystemError error = 99;
    EXPECT_TRUE(Platform::SetWorkingDirectory("/var/lib/orv", error));
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(sim.Files().WorkingDirectory(), "/var/lib/Orv");
    EXPECT_FALSE(Platform::SetWorkingDirectory("x", error));
    EXPECT_EQ(error, static_cast<u32>(ENOTDIR));
    EXPECT_FALSE(Platform::SetWorkingDirectory("/none", error));
    EXPECT_EQ(error, static_cast<u32>(ENOENT));
    EXPECT_EQ(sim.Files().WorkingDirectory(), "/var/lib/Orv");
}

TEST(PathTest, TheProgramDataFolderCanBeSet) {
    Simulation sim;
    EXPECT_EQ(Platform::ProgramDataFolder(), "/var/lib");
    sim.Files().SetProgramDataFolder("/elsewhere");
    EXPECT_EQ(Platform::ProgramDataFolder(), "/elsewhere");
}

TEST(PathTest, APipeNameBecomesOneFileName) {
    EXPECT_EQ(Platform::PipeFileName("FeedMain"), "feedmain");
    EXPECT_EQ(Platform::PipeFileName("a/b%c"), "a%2fb%25c");
    EXPECT_EQ(Platform::PipeFileName("../x"), "%2e.%2fx");
    EXPECT_EQ(Platform::PipeFileName("..."), "%2e..");
    EXPECT_EQ(Platform::PipeFileName(std::string("a\0\n\x7F", 4)), "a%00%0a%7f");
    EXPECT_EQ(Platform::PipeFileName("\xC3\x84"), "\xC3\x84");
}

}  // namespace
