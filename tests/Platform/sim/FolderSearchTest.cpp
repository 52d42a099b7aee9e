// Goal: folder searches of the simulated world keep the contract of Platform/FolderSearch.h, in an order that is the
// same at every run.
#include "Platform/FolderSearch.h"

#include <gtest/gtest.h>

#include <string>

#include "Platform/sim/Simulation.h"

namespace {

using Platform::Sim::SearchOrder;
using Platform::Sim::Simulation;

std::string Search(const std::string& folder, const std::string& extension) {
    const auto search = Platform::SearchFolder(folder, extension);
    std::string found;
    std::string name;
    bool isFolder = false;
    while (search->Next(name, isFolder)) found += name + (isFolder ? "/ " : " ");
    return found;
}

TEST(FolderSearchTest, ASearchGivesWhatHasTheExtensionInTheOrderOfInsertion) {
    Simulation sim;
    for (const char* name : {"/p/b.wav", "/p/a.raw", "/p/C.WAV", "/p/.wav", "/p/wav", "/p/a.wav"}) {
        sim.Files().AddFile(name, "x");
    }
    sim.Files().AddFolder("/p/folder.wav");
    EXPECT_EQ(Search("/P", ".wav"), "b.wav C.WAV .wav a.wav folder.wav/ ");
    sim.Files().SetSearchOrder(SearchOrder::ByName);
    EXPECT_EQ(Search("/p", ".WAV"), ".wav C.WAV a.wav b.wav folder.wav/ ");
    sim.Files().SetSearchOrder(SearchOrder::Reversed);
    EXPECT_EQ(Search("/p", ".wav"), "folder.wav/ a.wav .wav C.WAV b.wav ");
    EXPECT_EQ(Search("/p", ".raw"), "a.raw ");
}

TEST(FolderSearchTest, ASearchOfWhatCannotBeReadIsAtItsEndAtOnce) {
    Simulation sim;
    sim.Files().AddFile("/p/a.wav", "x");
    EXPECT_EQ(Search("/none", ".wav"), "");
    EXPECT_EQ(Search("/p/a.wav", ".wav"), "");
    sim.Files().MakeUnreadable("/p");
    EXPECT_EQ(Search("/p", ".wav"), "");
}

TEST(FolderSearchTest, ASearchUnderWayLeavesOutWhatHasGone) {
    Simulation sim;
    for (const char* name : {"/p/a.wav", "/p/b.wav", "/p/c.wav"}) sim.Files().AddFile(name, "x");
    const auto search = Platform::SearchFolder("/p", ".wav");
    EXPECT_EQ(sim.Files().Counters().searchesAlive, 1u);
    std::string name;
    bool isFolder = true;
    ASSERT_TRUE(search->Next(name, isFolder));
    EXPECT_EQ(name, "a.wav");
    EXPECT_FALSE(isFolder);
    sim.Files().Remove("/p/b.wav");
    ASSERT_TRUE(search->Next(name, isFolder));
    EXPECT_EQ(name, "c.wav");
    EXPECT_FALSE(search->Next(name, isFolder));
}

}  // namespace
