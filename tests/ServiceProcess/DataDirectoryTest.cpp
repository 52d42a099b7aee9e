#include "ServiceProcess/DataDirectory.h"

#include <gtest/gtest.h>

#include "Platform/sim/Simulation.h"

namespace {

class DataDirectoryTest : public testing::Test {
protected:
    void SetUp() override { Platform::Sim::ResetProcessWorld(); }
};

TEST_F(DataDirectoryTest, TheNameIsAppendedWithABackslash) {
    EXPECT_EQ(Orv::GetDataDirectory(), "/var/lib\\Orv");
    Platform::Sim::Files().SetProgramDataFolder("");
    EXPECT_EQ(Orv::GetDataDirectory(), "\\Orv");
}

TEST_F(DataDirectoryTest, EnteringItMakesItTheWorkingDirectory) {
    Platform::Sim::Files().AddFolder("/var/lib/Orv");
    testing::internal::CaptureStderr();
    EXPECT_TRUE(Orv::EnterDataDirectory());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(Platform::Sim::Files().WorkingDirectory(), "/var/lib/Orv");
}

TEST_F(DataDirectoryTest, AFailureIsToldWithPathAndErrorNumber) {
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Orv::EnterDataDirectory());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to set current dir to /var/lib\\Orv, error: 2\n");
    EXPECT_EQ(Platform::Sim::Files().WorkingDirectory(), "/");
}

}  // namespace
