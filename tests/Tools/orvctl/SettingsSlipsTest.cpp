// Goal: a slip of the hand in a settings file is told, and keys of other programs are left alone. Method: files made
// here.
#include "Tools/orvctl/SettingsSlips.h"

#include <gmock/gmock.h>

#include "tests/support/Process.h"

namespace Orv {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> SlipsIn(const std::string& text) {
    const OrvTest::TempFolder folder;
    OrvTest::WriteFileText(folder / "settings.ini", text);
    CommonSettings settings;
    EXPECT_TRUE(settings.Load((folder / "settings.ini").c_str()));
    return FindSlips(settings);
}

TEST(SettingsSlips, KeysAsTheyCountAreNone) {
    EXPECT_THAT(SlipsIn("[General]\nappdatapath=/a/\nPipePath=/p\nStatusPath=/s\nPreloadFiles=\"a\" \"b\"\n"
                        "PreloadMegabytes=64\nClientStallSeconds=30\n"
                        "[ConfService]\nconfNIC=127.0.0.1\nConfPort=0x156D\nconfUser=feeder\nconfPass=secret\n"),
                IsEmpty());
}

TEST(SettingsSlips, AKeyThatIsNearlyOneIsTold) {
    EXPECT_THAT(
        SlipsIn("[General]\nAppDatPath=/a/\n[ConfService]\nconfUsr=feeder\n"),
        ElementsAre("AppDatPath under [General] is no key of this service; AppDataPath under [General] may be meant",
                    "confUsr under [ConfService] is no key of this service; confUser under [ConfService] may be "
                    "meant"));
}

TEST(SettingsSlips, AKeyInTheWrongSectionIsTold) {
    EXPECT_THAT(SlipsIn("AppDataPath=/a/\n[general]\nPipePath=/p\n[ConfService]\nStatusPath=/s\n"),
                ElementsAre("AppDataPath stands under no section, where it does not count; move it under [General]",
                            "PipePath stands under [general], where it does not count; move it under [General]",
                            "StatusPath stands under [ConfService], where it does not count; move it under [General]"));
}

TEST(SettingsSlips, APortThatIsReadInPartIsTold) {
    EXPECT_THAT(SlipsIn("[ConfService]\nConfPort=54x5\n"),
                ElementsAre("ConfPort under [ConfService] is \"54x5\", which is read as 54"));
    EXPECT_THAT(SlipsIn("[ConfService]\nConfPort=0x15zz\n"),
                ElementsAre("ConfPort under [ConfService] is \"0x15zz\", which is read as 21"));
    EXPECT_THAT(SlipsIn("[ConfService]\nConfPort=0x156d\n"), IsEmpty());
    EXPECT_THAT(SlipsIn("[ConfService]\nConfPort=0X156D\n"), IsEmpty());
}

TEST(SettingsSlips, OtherKeysAndSectionsAreOtherPrograms) {
    EXPECT_THAT(SlipsIn("[General]\nLicence=/l\nPath=/p\n[Media]\nPipePath=/m\nPipePaths=/n\nConfPort=1x\n"),
                IsEmpty());
}

}  // namespace
}  // namespace Orv
