#include "ServiceProcess/PreloadSettings.h"

#include <gtest/gtest.h>

#include "Platform/sim/Simulation.h"

namespace Orv {
namespace {

using Texts = std::vector<std::string>;

PreloadSettings Read(const std::string& text) {
    Platform::Sim::ResetProcessWorld();
    Platform::Sim::Files().AddFile("/s.ini", text);
    CommonSettings settings;
    EXPECT_TRUE(settings.Load("/s.ini"));
    return ReadPreloadSettings(settings);
}
std::vector<std::string> Names(const std::string& value) {
    return Read("[General]\nPreloadFiles=" + value + "\n").names;
}
u32 Megabytes(const std::string& value, bool valid) {
    const PreloadSettings preload = Read("[General]\nPreloadMegabytes=" + value + "\n");
    EXPECT_EQ(preload.megabytesAreValid, valid) << value;
    return preload.megabytes;
}

TEST(PreloadSettings, WithoutTheKeysNothingIsPreloadedAndTheLimitIsSixtyFour) {
    for (const char* text : {"\n", "[General]\nAppDataPath=/x\n", "PreloadFiles=a.wav\n"}) {
        const PreloadSettings preload = Read(text);
        EXPECT_EQ(preload.names, Texts{});
        EXPECT_EQ(preload.megabytes, 64u);
        EXPECT_TRUE(preload.megabytesAreValid);
    }
}

TEST(PreloadSettings, EachNameStandsInQuotesOfItsOwnAndOneAloneNeedsNone) {
    EXPECT_EQ(Names("Playlist/hold music"), Texts{"Playlist/hold music"});
    EXPECT_EQ(Names("\"Playlist/hold\" \"/srv/closed; now.wav\"  ; a comment"),
              (Texts{"Playlist/hold", "/srv/closed; now.wav"}));
    EXPECT_EQ(Names("\" a.wav \" \"\""), Texts{"a.wav"});
    EXPECT_EQ(Names(""), Texts{});
}

TEST(PreloadSettings, ALimitOutOfRangeOrNoNumberLeavesTheDefault) {
    EXPECT_EQ(Megabytes("1", true), 1u);
    EXPECT_EQ(Megabytes("1048576", true), 1'048'576u);
    for (const char* bad : {"0", "1048577", "-5", "many", "", "99999999999999999999"}) {
        EXPECT_EQ(Megabytes(bad, false), 64u) << bad;
    }
}

}  // namespace
}  // namespace Orv
