// Goal: seeds come from the simulation's seed or from a script, and each thread draws for itself.
#include "Platform/Random.h"

#include <gtest/gtest.h>

#include <vector>

#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"

namespace {

using Platform::Thread;
using Platform::Sim::Simulation;

std::vector<u32> FiveSeeds(u64 seed) {
    Simulation sim(seed);
    std::vector<u32> seeds;
    for (int i = 0; i < 5; ++i) seeds.push_back(Platform::RandomSeed());
    return seeds;
}

TEST(RandomTest, SeedsFollowTheSeedOfTheSimulation) {
    EXPECT_EQ(FiveSeeds(4), FiveSeeds(4));
    EXPECT_NE(FiveSeeds(4), FiveSeeds(5));
}

TEST(RandomTest, AScriptComesFirst) {
    const u32 firstDrawn = FiveSeeds(4)[0];
    Simulation sim(4);
    sim.Random().Script({7, 8});
    sim.Random().Script(9);
    EXPECT_EQ(Platform::RandomSeed(), 7u);
    EXPECT_EQ(Platform::RandomSeed(), 8u);
    EXPECT_EQ(Platform::RandomSeed(), 9u);
    EXPECT_EQ(Platform::RandomSeed(), firstDrawn);
    EXPECT_EQ(sim.Random().SeedsGiven(), 4u);
}

// The values of the minimal standard generator with the factor 48271: 48271 * seed modulo 2^31 - 1.
TEST(RandomTest, AThreadThatHasNotSeededStartsAsIfSeededWithOneAndDrawsForItself) {
    Simulation sim;
    std::vector<i32> draws;
    sim.Run([&] {
        Platform::SeedThreadRand(5);
        EXPECT_EQ(Platform::ThreadRand(), 241'355);
        Thread thread("drawer", [&] {
            draws.push_back(Platform::ThreadRand());
            draws.push_back(Platform::ThreadRand());
        });
        thread.Join();
        Platform::SeedThreadRand(1);
        EXPECT_EQ(Platform::ThreadRand(), 48'271);
    });
    EXPECT_EQ(draws, (std::vector<i32>{48'271, 182'605'794}));
}

TEST(RandomTest, EachValueOfAThreadsGeneratorIsTold) {
    Simulation sim;
    std::vector<i32> told;
    sim.Random().SetDrawHook([&](i32 value) { told.push_back(value); });
    sim.Run([&] {
        Platform::SeedThreadRand(5);
        EXPECT_EQ(Platform::ThreadRand(), 241'355);
        sim.Random().SetDrawHook({});
        Platform::ThreadRand();
    });
    EXPECT_EQ(told, (std::vector<i32>{241'355}));
}

}  // namespace
