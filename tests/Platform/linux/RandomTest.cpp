#include "Platform/Random.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <set>
#include <vector>

#include "Platform/Thread.h"

namespace Platform {
namespace {

std::vector<i32> LibraryDraws(u32 seed, int count) {
    std::srand(seed);
    std::vector<i32> draws;
    for (int i = 0; i < count; ++i) draws.push_back(std::rand());
    return draws;
}

std::vector<i32> OurDraws(int count) {
    std::vector<i32> draws;
    for (int i = 0; i < count; ++i) draws.push_back(ThreadRand());
    return draws;
}

TEST(RandomTest, ASeedGivesTheDrawsOfTheLibrarysOwnGenerator) {
    for (const u32 seed : {0u, 1u, 42u, 4294967295u}) {
        SeedThreadRand(seed);
        EXPECT_EQ(OurDraws(100), LibraryDraws(seed, 100)) << "seed " << seed;
    }
}

TEST(RandomTest, AThreadThatHasNotSeededStartsAsIfSeededWithOne) {
    SeedThreadRand(7);
    std::vector<i32> draws;
    Thread thread("draws", [&] { draws = OurDraws(10); });
    thread.Join();
    EXPECT_EQ(draws, LibraryDraws(1, 10));
}

TEST(RandomTest, ADrawOnAnotherThreadChangesNothingHere) {
    SeedThreadRand(42);
    std::vector<i32> draws = OurDraws(5);
    Thread thread("draws", [] {
        SeedThreadRand(3);
        OurDraws(17);
    });
    thread.Join();
    for (const i32 draw : OurDraws(5)) draws.push_back(draw);
    EXPECT_EQ(draws, LibraryDraws(42, 10));
}

// Eight equal values of 32 random bits have a chance of 1 in 2^224.
TEST(RandomTest, SeedsOfTheSystemDiffer) {
    std::set<u32> seeds;
    for (int i = 0; i < 8; ++i) seeds.insert(RandomSeed());
    EXPECT_GT(seeds.size(), 1u);
}

}  // namespace
}  // namespace Platform
