// Goal: the whole service keeps its promises through random days with random faults, whatever the seed.
// Method: the shipped libraries run on the simulated platform, one step at a time, beside a model that was written from
// the rules; the model predicts every block, byte by byte, every pass of a pump and every line of a feed. A failing
// seed is printed with the command that plays it again.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>

#include "tests/sim/SimRun.h"
#include "tests/support/Process.h"

namespace {

using OrvSim::RunOptions;

// Sanitizers make it some ten times slower, and look for something else.
constexpr u64 kSeedsOfAPart = ORV_SIM_SEEDS_OF_A_PART;

void PlayPart(u64 part) {
    OrvSim::Counts counts;
    for (u64 seed = part * 25 + 1; seed <= part * 25 + kSeedsOfAPart; ++seed) {
        const RunOptions options = OrvSim::OptionsOf(seed);
        const OrvSim::RunResult result = OrvSim::Run(options);
        ASSERT_TRUE(result.good) << "seed " << seed << ", at " << result.failedAtMilliseconds
                                 << " ms: " << result.failure << "\nAgain: " << OrvSim::Replay(options);
        counts.Add(result.counts);
    }
    // A run that judges nothing is right too.
    EXPECT_GT(counts.blocksHeard, 1000 * kSeedsOfAPart);
    EXPECT_GT(counts.clientBytes, 1'000'000 * kSeedsOfAPart);
    EXPECT_GT(counts.changes, 10 * kSeedsOfAPart);
    EXPECT_GT(counts.lateReads, 0U);
    EXPECT_GT(counts.announcements, 0U);
    EXPECT_GT(counts.rests, 0U);
    EXPECT_GT(counts.tableChecks, 0U);
    EXPECT_GT(counts.levelChanges, 0U);
    EXPECT_GT(counts.clockTurns, 0U);
    // Nearly every other seed has a live source that is heard; a few of them need not.
    if (kSeedsOfAPart >= 25) {
        EXPECT_GT(counts.liveBlocks, 0U);
        EXPECT_GT(counts.refusedConnects, 0U);
        EXPECT_GT(counts.nameClashes, 0U);
        EXPECT_GT(counts.nameTakeovers, 0U);
    }
}

TEST(SimulationTest, Seeds1To25AreRight) {
    PlayPart(0);
}
TEST(SimulationTest, Seeds26To50AreRight) {
    PlayPart(1);
}
TEST(SimulationTest, Seeds51To75AreRight) {
    PlayPart(2);
}
TEST(SimulationTest, Seeds76To100AreRight) {
    PlayPart(3);
}
TEST(SimulationTest, Seeds101To125AreRight) {
    PlayPart(4);
}
TEST(SimulationTest, Seeds126To150AreRight) {
    PlayPart(5);
}
TEST(SimulationTest, Seeds151To175AreRight) {
    PlayPart(6);
}
TEST(SimulationTest, Seeds176To200AreRight) {
    PlayPart(7);
}

TEST(SimulationTest, TheProgramTellsItsVersionAndItsUse) {
    const OrvTest::TempFolder folder;
    const std::string file = folder / "out";
    for (const auto& [option, said] : {std::pair("--version", "orv-sim " ORV_VERSION "\n"),
                                       std::pair("--help", "--seeds COUNT"), std::pair("-h", "--racing yes|no")}) {
        const std::string command = std::string(ORV_SIM_PROGRAM) + " " + option + " > " + file;
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        EXPECT_NE(OrvTest::ReadFileText(file).find(said), std::string::npos) << command;
    }
}

// Each run in a process of its own, since the numbers of feeds count on within one. The program prints a hash over
// every byte that went to the log and to clients, with its time, and over who ran when.
TEST(SimulationTest, TwoRunsOfASeedGiveTheSameLogTheSameBytesAndTheSameSteps) {
    for (const char* seed : {"7", "8"}) {
        const OrvTest::TempFolder folder;
        std::string logs[2];
        std::string outputs[2];
        for (int run = 0; run < 2; ++run) {
            const std::string base = folder / (run == 0 ? "a" : "b");
            const std::string command =
                std::string(ORV_SIM_PROGRAM) + " --seed " + seed + " --log " + base + ".log > " + base + ".out";
            ASSERT_EQ(std::system(command.c_str()), 0) << command;
            logs[run] = OrvTest::ReadFileText(base + ".log");
            outputs[run] = OrvTest::ReadFileText(base + ".out");
        }
        EXPECT_GT(logs[0].size(), 100'000U);
        EXPECT_NE(outputs[0].find("hash"), std::string::npos);
        EXPECT_TRUE(logs[0] == logs[1]) << "the logs differ, seed " << seed;
        EXPECT_EQ(outputs[0], outputs[1]);
    }
}

TEST(SimulationTest, AnotherSeedIsAnotherDay) {
    RunOptions options;
    options.seconds = 60;
    const u64 first = OrvSim::Run(options).counts.clientBytes;
    options.seed = 2;
    EXPECT_NE(OrvSim::Run(options).counts.clientBytes, first);
}

}  // namespace
