#include "Platform/Memory.h"

#include <gtest/gtest.h>

#include <vector>

#include "Platform/sim/Simulation.h"

namespace Platform {
namespace {

TEST(Memory, LocksTakeWholePagesUpToTheLimit) {
    Sim::Simulation sim;
    ASSERT_EQ(PageSize(), 4096u);
    const std::vector<u8> a(5000), b(1), c(1);
    sim.Memory().SetLockLimit(3 * 4096);
    EXPECT_TRUE(LockMemory(a.data(), a.size()));
    EXPECT_EQ(sim.Memory().LockedBytes(), 8192u);
    EXPECT_TRUE(LockMemory(b.data(), b.size()));
    EXPECT_FALSE(LockMemory(c.data(), c.size()));
    EXPECT_EQ(sim.Memory().LockedBytes(), 3 * 4096u);
    EXPECT_EQ(sim.Memory().Locks(), 2u);
    UnlockMemory(a.data(), a.size());
    EXPECT_TRUE(LockMemory(c.data(), c.size()));
    EXPECT_EQ(sim.Memory().LockedBytes(), 2 * 4096u);
}

TEST(Memory, NoBytesCannotBeLockedAndWhatIsNotLockedIsUnlockedWithoutHarm) {
    Sim::Simulation sim;
    const std::vector<u8> a(1);
    EXPECT_FALSE(LockMemory(a.data(), 0));
    EXPECT_FALSE(LockMemory(nullptr, 10));
    UnlockMemory(a.data(), a.size());
    EXPECT_EQ(sim.Memory().Locks(), 0u);
}

}  // namespace
}  // namespace Platform
