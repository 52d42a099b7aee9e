#include "ServiceProcess/ClientSettings.h"

#include <gtest/gtest.h>

#include "Platform/sim/Simulation.h"

namespace Orv {
namespace {

ClientSettings Read(const std::string& text) {
    Platform::Sim::ResetProcessWorld();
    Platform::Sim::Files().AddFile("/s.ini", text);
    CommonSettings settings;
    EXPECT_TRUE(settings.Load("/s.ini"));
    return ReadClientSettings(settings);
}
u32 StallSeconds(const std::string& value, bool valid) {
    const ClientSettings clients = Read("[General]\nClientStallSeconds=" + value + "\n");
    EXPECT_EQ(clients.stallSecondsAreValid, valid) << value;
    return clients.stallSeconds;
}

TEST(ClientSettings, WithoutTheKeyClientsAreWaitedForWithoutEnd) {
    for (const char* text : {"\n", "[General]\nAppDataPath=/x\n", "ClientStallSeconds=30\n"}) {
        const ClientSettings clients = Read(text);
        EXPECT_EQ(clients.stallSeconds, 0u);
        EXPECT_TRUE(clients.stallSecondsAreValid);
    }
}

TEST(ClientSettings, ANumberOfSecondsUpToADayIsTaken) {
    EXPECT_EQ(StallSeconds("1", true), 1u);
    EXPECT_EQ(StallSeconds(" 30 ; half a minute", true), 30u);
    EXPECT_EQ(StallSeconds("0x3C", true), 60u);
    EXPECT_EQ(StallSeconds("86400", true), 86'400u);
}

TEST(ClientSettings, ANumberOutOfRangeOrNoNumberIsTheSameAsNoKeyButToldApart) {
    for (const char* bad : {"0", "86401", "-5", "+5", "never", "", "030", "99999999999999999999"}) {
        EXPECT_EQ(StallSeconds(bad, false), 0u) << bad;
    }
}

}  // namespace
}  // namespace Orv
