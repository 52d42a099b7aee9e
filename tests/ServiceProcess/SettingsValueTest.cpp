#include <gtest/gtest.h>

#include <optional>

#include "ServiceProcess/CommonSettings.h"

namespace {

std::optional<i64> Parsed(const std::string& text) {
    i64 number = -77;
    if (!Orv::ParseInteger(text, number)) {
        EXPECT_EQ(number, -77) << text;
        return std::nullopt;
    }
    return number;
}

TEST(ParseIntegerTest, DecimalDigitsRunToTheFirstOtherCharacter) {
    EXPECT_EQ(Parsed("5484"), 5484);
    EXPECT_EQ(Parsed(" \t\r\n12"), 12);
    EXPECT_EQ(Parsed("12 34"), 12);
    EXPECT_EQ(Parsed("12abc"), 12);
    EXPECT_EQ(Parsed("12.9"), 12);
    EXPECT_EQ(Parsed("12-3"), 12);
    EXPECT_EQ(Parsed("9223372036854775807"), 9223372036854775807);
}

TEST(ParseIntegerTest, BlankTextsAreNoNumber) {
    EXPECT_EQ(Parsed(""), std::nullopt);
    EXPECT_EQ(Parsed(" \t "), std::nullopt);
}

TEST(ParseIntegerTest, AFirstCharacterThatIsNoDigitMakesItNoNumber) {
    EXPECT_EQ(Parsed("-5"), std::nullopt);
    EXPECT_EQ(Parsed("+5"), std::nullopt);
    EXPECT_EQ(Parsed("abc"), std::nullopt);
    EXPECT_EQ(Parsed("x10"), std::nullopt);
    EXPECT_EQ(Parsed(".5"), std::nullopt);
    EXPECT_EQ(Parsed("\"5\""), std::nullopt);
    EXPECT_EQ(Parsed("\xFF"), std::nullopt);
}

TEST(ParseIntegerTest, ALeadingZeroIsZeroAloneOrBeforeAPointAndNoNumberBeforeAnythingElse) {
    EXPECT_EQ(Parsed("0"), 0);
    EXPECT_EQ(Parsed("0.9"), 0);
    EXPECT_EQ(Parsed("0123"), std::nullopt);
    EXPECT_EQ(Parsed("08"), std::nullopt);
    EXPECT_EQ(Parsed("00"), std::nullopt);
    EXPECT_EQ(Parsed("0 "), std::nullopt);
}

TEST(ParseIntegerTest, HexadecimalDigitsFollowZeroX) {
    EXPECT_EQ(Parsed("0x1F"), 31);
    EXPECT_EQ(Parsed("0XaBc"), 2748);
    EXPECT_EQ(Parsed("0x"), 0);
    EXPECT_EQ(Parsed("0xg"), 0);
    EXPECT_EQ(Parsed("0x10h"), 16);
    EXPECT_EQ(Parsed("0x1.5"), 1);
}

TEST(ParseIntegerTest, TooManyDigitsWrap) {
    EXPECT_EQ(Parsed("18446744073709551617"), 1);
    EXPECT_EQ(Parsed("0x10000000000000002"), 2);
}

TEST(SettingsValueTest, AsStringIsEmptyOneOrAllQuoted) {
    EXPECT_EQ((Orv::SettingsValue{"s", "k", {}}.AsString()), "");
    EXPECT_EQ((Orv::SettingsValue{"s", "k", {"a b"}}.AsString()), "a b");
    EXPECT_EQ((Orv::SettingsValue{"s", "k", {"a", "", "b c"}}.AsString()), "\"a\" \"\" \"b c\"");
}

TEST(SettingsValueTest, AsIntegerReadsTheFirstValueAndIsZeroOtherwise) {
    EXPECT_EQ((Orv::SettingsValue{"s", "k", {"5484", "7"}}.AsInteger()), 5484);
    EXPECT_EQ((Orv::SettingsValue{"s", "k", {"-1"}}.AsInteger()), 0);
    EXPECT_EQ((Orv::SettingsValue{"s", "k", {}}.AsInteger()), 0);
}

TEST(SettingsValueTest, FullNameHasTheSectionInBrackets) {
    EXPECT_EQ((Orv::SettingsValue{"a/b", "Key", {}}.FullName()), "[a/b].Key");
    EXPECT_EQ((Orv::SettingsValue{"", "Key", {}}.FullName()), "[].Key");
}

TEST(SettingsValueTest, AValueExistsWhenItsKeyOrItsSectionIsNotEmpty) {
    EXPECT_FALSE(Orv::EmptySettingsValue().Exists());
    EXPECT_TRUE((Orv::SettingsValue{"s", "", {}}.Exists()));
    EXPECT_TRUE((Orv::SettingsValue{"", "k", {}}.Exists()));
    EXPECT_EQ(&Orv::EmptySettingsValue(), &Orv::EmptySettingsValue());
    EXPECT_EQ(Orv::EmptySettingsValue().AsString(), "");
}

}  // namespace
