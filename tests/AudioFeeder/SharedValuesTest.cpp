#include "AudioFeeder/SharedValues.h"

#include <gtest/gtest.h>

#include "AudioFeeder/Parameters.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using namespace FeederTest;
using Texts = std::vector<std::string>;

TEST(SharedValues, TheGlobalLimitIsThePercentageClampedAndScaled) {
    const std::pair<i32, i16> cases[] = {{100, 32767}, {50, 16383}, {1, 327}, {0, 0}, {-3, 0}, {101, 32767}};
    for (const auto& [percent, level] : cases) {
        Orv::SetMaxVolume(percent);
        EXPECT_EQ(Orv::GlobalLevelSetting().maxLevel, level) << percent;
    }
}

TEST(SharedValues, LimitAndAutogainAreSetOneByOne) {
    Orv::SetMaxVolume(50);
    Orv::SetAutogain(true);
    EXPECT_EQ(Orv::GlobalLevelSetting(), (Orv::LevelSetting{16383, true}));
    Orv::SetAutogain(false);
    EXPECT_EQ(Orv::GlobalLevelSetting(), (Orv::LevelSetting{16383, false}));
    Orv::SetMaxVolume(0);
}

TEST(SharedValues, ARootPathIsStoredAndLoggedANullOneIsOnlyLoggedAndAnEmptyOneCountsAsAText) {
    FeederWorld world;
    world.Run([&] {
        Orv::SetRootPath("/prompts");
        EXPECT_EQ(Orv::RootPath(), "/prompts");
        Orv::SetRootPath(nullptr);
        EXPECT_EQ(Orv::RootPath(), "/prompts");
        Orv::SetRootPath("");
        EXPECT_EQ(Orv::RootPath(), "");
        const Texts lines = world.LogOf("Root path");
        ASSERT_GE(lines.size(), 3U);
        EXPECT_EQ(Texts(lines.end() - 3, lines.end()),
                  (Texts{" Info|Root path updated: /prompts", " Info|Root path is not specified",
                         " Info|Root path updated: "}));
        for (const LogLine& line : world.Log()) {
            if (line.text.find("Root path") != std::string::npos) {
                EXPECT_EQ(line.source, "PipeManager");
            }
        }
    });
}

TEST(SharedValues, AnEmptyOrNullDefaultAudioFileKeepsThePreviousOne) {
    FeederWorld world;
    world.Run([&] {
        Orv::SetDefaultAudioFile("/d.wav");
        Orv::SetDefaultAudioFile("");
        Orv::SetDefaultAudioFile(nullptr);
        std::string file;
        Orv::GetDefaultAudioFile(file);
        EXPECT_EQ(file, "/d.wav");
    });
}

TEST(SharedValues, EachInstanceNumberIsTheNextOne) {
    const i32 first = Orv::NextInstanceId();
    EXPECT_GE(first, 1);
    EXPECT_EQ(Orv::NextInstanceId(), first + 1);
}

TEST(Parameters, NumbersAreReadAsAtoiReadsThem) {
    EXPECT_EQ(Orv::NumberFromText("50"), 50);
    EXPECT_EQ(Orv::NumberFromText(" 7 %"), 7);
    EXPECT_EQ(Orv::NumberFromText("-3"), -3);
    EXPECT_EQ(Orv::NumberFromText("loud"), 0);
    EXPECT_EQ(Orv::NumberFromText(""), 0);
    EXPECT_EQ(Orv::NumberFromText("99999999999999999999"), 2147483647);
    EXPECT_EQ(Orv::NumberFromText("-99999999999999999999"), -2147483647 - 1);
}

TEST(Parameters, ASwitchIsOnForExactlyOne) {
    EXPECT_TRUE(Orv::SwitchFromText("1"));
    for (const char* text : {"", "0", "1 ", " 1", "01", "11", "true"}) EXPECT_FALSE(Orv::SwitchFromText(text)) << text;
}

}  // namespace
