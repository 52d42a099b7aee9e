// Goal: a password that is accepted can be written into the settings file and comes out of it as it was. Method: each
// refusal on its own, and the rule against the settings file's own reader.
#include "ConfigService/Credentials.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ServiceProcess/CommonSettings.h"
#include "tests/support/Process.h"

namespace Orv {
namespace {

using ::testing::HasSubstr;

TEST(Credentials, APasswordThatTheSettingsFileCannotCarryIsRefusedWithTheReason) {
    EXPECT_THAT(WhyPasswordRefused(""), HasSubstr("is empty"));
    EXPECT_THAT(WhyPasswordRefused("a\"b"), HasSubstr("double quote"));
    EXPECT_THAT(WhyPasswordRefused("a\tb"), HasSubstr("control character"));
    EXPECT_THAT(WhyPasswordRefused(std::string("a\0b", 3)), HasSubstr("control character"));
    EXPECT_THAT(WhyPasswordRefused(" a"), HasSubstr("blank"));
    EXPECT_THAT(WhyPasswordRefused("a "), HasSubstr("blank"));
    EXPECT_THAT(WhyPasswordRefused("a#b\\"), HasSubstr("backslash"));
    EXPECT_THAT(WhyPasswordRefused(std::string(257, 'x')), HasSubstr("256 bytes"));
    EXPECT_EQ(WhyPasswordRefused(std::string(256, 'x')), "");
    EXPECT_EQ(WhyPasswordRefused("with a:colon, a blank and \\"), "");
}

TEST(Credentials, AUserNameWithAColonIsRefusedToo) {
    EXPECT_THAT(WhyUserNameRefused("a:b"), HasSubstr("colon"));
    EXPECT_THAT(WhyUserNameRefused(""), HasSubstr("is empty"));
    EXPECT_THAT(WhyUserNameRefused("a\"b"), HasSubstr("double quote"));
    EXPECT_THAT(WhyUserNameRefused("a\n"), HasSubstr("control character"));
    EXPECT_THAT(WhyUserNameRefused(" a"), HasSubstr("blank"));
    EXPECT_EQ(WhyUserNameRefused("J\xC3\xBCrgen o'neil"), "");
}

TEST(Credentials, EveryAcceptedPasswordOfTheseComesOutOfASettingsFileUnchanged) {
    const OrvTest::TempFolder folder;
    const char alphabet[] = {'a', ' ', '"', '\\', '#', ';', '=', '[', ':', '\''};
    u32 accepted = 0;
    for (int i = 0; i < 1000; ++i) {
        const std::string password{alphabet[i / 100], alphabet[i / 10 % 10], alphabet[i % 10]};
        if (!WhyPasswordRefused(password).empty()) continue;
        ++accepted;
        // As it is told to people: between quotes when it holds "#" or ";".
        const bool quoted = password.find_first_of("#;") != std::string::npos;
        const std::string path = folder / "settings.ini";
        OrvTest::WriteFileText(path, "[ConfService]\nconfPass=" + (quoted ? '"' + password + '"' : password) + "\n");
        CommonSettings settings;
        ASSERT_TRUE(settings.Load(path.c_str()));
        EXPECT_EQ(settings.GetValue("[ConfService].confPass").AsString(), password);
    }
    EXPECT_GT(accepted, 400u);
}

TEST(Credentials, TheNameEndsAtTheFirstColonAndAClosingNulIsLeftOff) {
    std::string name;
    std::string password;
    ASSERT_TRUE(SplitCredentials(std::string_view("me:a:b\0", 7), name, password));
    EXPECT_EQ(name, "me");
    EXPECT_EQ(password, "a:b");
    ASSERT_TRUE(SplitCredentials(":", name, password));
    EXPECT_EQ(name, "");
    EXPECT_FALSE(SplitCredentials("nocolon", name, password));
    EXPECT_FALSE(SplitCredentials("", name, password));
}

TEST(Credentials, APasswordFilesFirstLineCounts) {
    EXPECT_EQ(FirstLine("secret\n"), "secret");
    EXPECT_EQ(FirstLine("secret\r\nmore\n"), "secret");
    EXPECT_EQ(FirstLine("secret"), "secret");
    EXPECT_EQ(FirstLine(""), "");
}

}  // namespace
}  // namespace Orv
