// The settings file: each test puts a file on a simulated disk, loads it and looks at the tree and the messages.
#include "ServiceProcess/CommonSettings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <random>

#include "Platform/sim/Simulation.h"

namespace {

using Texts = std::vector<std::string>;

class CommonSettingsTest : public testing::Test {
protected:
    void SetUp() override { Platform::Sim::ResetProcessWorld(); }

    bool Load(const std::string& text) {
        Platform::Sim::Files().AddFile("/s.ini", text);
        settings_.messages.clear();
        return settings_.Load("/s.ini");
    }
    const Orv::SettingsValue& Get(const char* name) { return settings_.GetValue(name); }
    Texts Values(const char* name) { return Get(name).values; }
    // The values of `key` in a file of this one line.
    Texts ValuesOf(const std::string& line) {
        Load(line);
        return Values("key");
    }

    Orv::CommonSettings settings_;
};

TEST_F(CommonSettingsTest, ReadsKeysOfSectionsAndOfTheRoot) {
    EXPECT_TRUE(Load("top = 1\n[General]\nAppDataPath=/var/lib/Orv\n\n[ConfService]\nConfPort = 5484\n"));
    EXPECT_EQ(Get("top").AsString(), "1");
    EXPECT_EQ(Get("[].top").AsString(), "1");
    EXPECT_EQ(Get("[General].AppDataPath").AsString(), "/var/lib/Orv");
    EXPECT_EQ(Get("[ConfService].ConfPort").AsInteger(), 5484);
    EXPECT_TRUE(settings_.messages.empty());
    EXPECT_EQ(settings_.fileName, "/s.ini");
    EXPECT_EQ(settings_.lineNumber, 6u);
}

// A disk that failed was taken for the end of the file: the service ran with defaults for all that stood behind.
TEST_F(CommonSettingsTest, AFileThatCannotBeReadToItsEndIsLoadedAndSaysThatItIsNotWhole) {
    const std::string text = "top=1\n[General]\nAppDataPath=/data\n" + std::string(300, '#') + "\nlast=1\n";
    for (const u64 firstBad : {0, 280}) {
        Platform::Sim::Files().FailReads("/s.ini", EIO, firstBad);
        settings_.messages.clear();
        EXPECT_TRUE(Load(text));
        EXPECT_FALSE(settings_.whole);
        EXPECT_EQ(settings_.messages, Texts{"Config.Error: Can not read file '/s.ini'"});
    }
    Platform::Sim::Files().ClearFaults();
    EXPECT_TRUE(Load(text));
    EXPECT_TRUE(settings_.whole);
    EXPECT_EQ(Get("[General].AppDataPath").AsString(), "/data");
}

TEST_F(CommonSettingsTest, AKeyWithoutAValueGivesAWarningExistsAndReadsAsEmpty) {
    Load("[a]\nkey=\n");
    EXPECT_EQ(settings_.messages, Texts{"/s.ini(2): Warning: Key [a].key has empty value"});
    EXPECT_TRUE(Get("[a].key").Exists());
    EXPECT_EQ(Get("[a].key").AsString(), "");
    EXPECT_FALSE(Get("[a].other").Exists());
}

TEST_F(CommonSettingsTest, AValueOfOnlyACommentIsEmptyToo) {
    Load("a = # note\nb=;\n");
    EXPECT_EQ(settings_.messages,
              (Texts{"/s.ini(1): Warning: Key [].a has empty value", "/s.ini(2): Warning: Key [].b has empty value"}));
    EXPECT_TRUE(Get("a").Exists());
    EXPECT_TRUE(Values("b").empty());
}

TEST_F(CommonSettingsTest, ACommentBehindAValueIsCutOff) {
    EXPECT_EQ(ValuesOf("key=value # note"), Texts{"value"});
    EXPECT_EQ(ValuesOf("key=value;note"), Texts{"value"});
    EXPECT_EQ(ValuesOf("key=\"a\" # note"), Texts{"a"});
    EXPECT_TRUE(settings_.messages.empty());
}

TEST_F(CommonSettingsTest, CommentCharactersBetweenQuotesAreText) {
    EXPECT_EQ(ValuesOf("key = \"a;b\""), Texts{"a;b"});
    EXPECT_EQ(ValuesOf("key = \"a#b\" ; c"), Texts{"a#b"});
}

TEST_F(CommonSettingsTest, TwoQuotedValuesComeBackQuotedWithOneBlankBetweenThem) {
    EXPECT_EQ(ValuesOf("key=\"a\"    \"b\""), (Texts{"a", "b"}));
    EXPECT_EQ(Get("key").AsString(), "\"a\" \"b\"");
}

TEST_F(CommonSettingsTest, TextAroundAQuotedValueIsAValueOfItsOwn) {
    EXPECT_EQ(ValuesOf("key=a\"b\"c"), (Texts{"a", "b", "c"}));
    EXPECT_EQ(ValuesOf("key= a \"b\""), (Texts{"a", "b"}));
}

TEST_F(CommonSettingsTest, TheLastValueKeepsItsLeadingBlankBehindAClosingQuote) {
    EXPECT_EQ(ValuesOf("key=\"a\" b"), (Texts{"a", " b"}));
    EXPECT_EQ(ValuesOf("key=\"a\" b # c"), (Texts{"a", "b"}));
}

TEST_F(CommonSettingsTest, AnEmptyPairOfQuotesIsOneEmptyValue) {
    EXPECT_EQ(ValuesOf("key=\"\""), Texts{""});
    EXPECT_EQ(ValuesOf("key=\" \""), Texts{" "});
}

TEST_F(CommonSettingsTest, AnUnmatchedQuoteGivesAWarningAndTheValueWithItsOpeningQuote) {
    EXPECT_EQ(ValuesOf("key=\"a"), Texts{"\"a"});
    EXPECT_EQ(settings_.messages, Texts{"/s.ini(1): Warning: Unmatched DQUOTE(\"), assuming the value '\"a'"});
    EXPECT_EQ(ValuesOf("key=x \"a # b"), Texts{"x \"a # b"});
    EXPECT_EQ(ValuesOf("key=\"x\" \"a"), (Texts{"x", " \"a"}));
    EXPECT_EQ(settings_.messages, Texts{"/s.ini(1): Warning: Unmatched DQUOTE(\"), assuming the value ' \"a'"});
}

TEST_F(CommonSettingsTest, ABackslashInFrontOfAQuoteMakesItTextAndStays) {
    EXPECT_EQ(ValuesOf(R"(key=a\"b)"), Texts{R"(a\"b)"});
    EXPECT_EQ(ValuesOf(R"(key="a\"b")"), Texts{R"(a\"b)"});
    EXPECT_EQ(ValuesOf(R"(key=a\"b "c" d)"), (Texts{R"(a\"b)", "c", " d"}));
    EXPECT_EQ(ValuesOf(R"(key="a\")"), Texts{R"("a\")"});  // the last quote does not close
}

// The text behind a closing quote begins anew: its first quote opens, whatever stands in front of it.
TEST_F(CommonSettingsTest, AQuoteDirectlyBehindAClosingOneOpens) {
    EXPECT_EQ(ValuesOf(R"(key="a""b")"), (Texts{"a", "b"}));
    EXPECT_EQ(ValuesOf(R"(key="a"\"b)"), (Texts{"a", R"(\"b)"}));
}

TEST_F(CommonSettingsTest, ALineThatBeginsWithAnEqualsSignIsDroppedWithoutAMessage) {
    Load("=value\n  = other\n");
    EXPECT_TRUE(settings_.messages.empty());
    EXPECT_TRUE(settings_.valuesByKey.empty());
}

TEST_F(CommonSettingsTest, ALineWithoutAnEqualsSignIsDroppedWithAWarning) {
    Load("  just text  \n");
    EXPECT_EQ(settings_.messages, Texts{"/s.ini(1): Warning: Invalid line {just text}. Ignored."});
}

TEST_F(CommonSettingsTest, ACommentBehindTextIsDroppedWithAWarning) {
    Load("some text # a=b\nother;a=b\n");
    EXPECT_EQ(settings_.messages,
              (Texts{"/s.ini(1): Warning: Comment line has non-space sybols in front: 'some text '. Ignored.",
                     "/s.ini(2): Warning: Comment line has non-space sybols in front: 'other'. Ignored."}));
    EXPECT_TRUE(settings_.valuesByKey.empty());
}

TEST_F(CommonSettingsTest, CommentsAndBlankLinesAreSkippedButCounted) {
    Load("# a=1\n\n   ; b=2\n \t \nkey\n");
    EXPECT_EQ(settings_.messages, Texts{"/s.ini(5): Warning: Invalid line {key}. Ignored."});
    EXPECT_EQ(settings_.lineNumber, 5u);
}

TEST_F(CommonSettingsTest, ARepeatedKeyIsOverriddenWithAWarning) {
    Load("[s]\nKey=\"a\" \"b\"\nKEY=c\n");
    EXPECT_EQ(settings_.messages,
              Texts{"/s.ini(3): Warning: Overriding value for key '[s].Key'; prev. value was '\"a\" \"b\"'"});
    EXPECT_EQ(Values("[s].key"), Texts{"c"});
    EXPECT_EQ(Get("[s].key").key, "KEY");
    EXPECT_EQ(Get("[s].key").section, "s");
}

TEST_F(CommonSettingsTest, AKeyRepeatedWithAnEmptyValueIsLeftWithNoValues) {
    Load("key=a\nkey=\n");
    EXPECT_EQ(settings_.messages, (Texts{"/s.ini(2): Warning: Overriding value for key '[].key'; prev. value was 'a'",
                                         "/s.ini(2): Warning: Key [].key has empty value"}));
    EXPECT_TRUE(Values("key").empty());
    EXPECT_TRUE(Get("key").Exists());
}

TEST_F(CommonSettingsTest, KeysIgnoreCaseAndSectionsDoNot) {
    Load("[ConfService]\nConfPort=1\n[confservice]\nConfPort=2\n");
    EXPECT_EQ(Get("[ConfService].confport").AsString(), "1");
    EXPECT_EQ(Get("[ConfService].CONFPORT").AsString(), "1");
    EXPECT_EQ(Get("[confservice].ConfPort").AsString(), "2");
    EXPECT_EQ(Get("[CONFSERVICE].ConfPort").AsString(), "");
}

TEST_F(CommonSettingsTest, OnlyAToZHaveALowerCase) {
    Load("\xC3\x84=1\n");
    EXPECT_TRUE(Get("\xC3\x84").Exists());
    EXPECT_FALSE(Get("\xC3\xA4").Exists());
}

TEST_F(CommonSettingsTest, KeysMayHoldBlanksAndAnyOtherCharacter) {
    Load("my key.with-things [x] = 1\n");
    EXPECT_EQ(Get("MY key.with-things [x]").AsString(), "1");
}

TEST_F(CommonSettingsTest, ASectionAtTheTopThatComesAgainMerges) {
    Load("[a]\nx=1\n[b]\n[a]\ny=2\n");
    EXPECT_EQ(settings_.children.size(), 2u);
    EXPECT_EQ(Get("[a].x").AsString(), "1");
    EXPECT_EQ(Get("[a].y").AsString(), "2");
    EXPECT_TRUE(settings_.messages.empty());
}

TEST_F(CommonSettingsTest, ASecondNestedSectionHidesBehindTheFirst) {
    Load("[a/b]\nx=1\n[a/b]\ny=2\nx=3\n");
    ASSERT_EQ(settings_.children.size(), 1u);
    ASSERT_EQ(settings_.children[0].children.size(), 2u);
    EXPECT_EQ(settings_.children[0].children[1].name, "a/b");
    EXPECT_EQ(settings_.children[0].children[1].valuesByKey.at("y").values, Texts{"2"});
    EXPECT_EQ(Get("[a/b].x").AsString(), "1");
    EXPECT_FALSE(Get("[a/b].y").Exists());
    EXPECT_TRUE(settings_.messages.empty());
}

TEST_F(CommonSettingsTest, SectionNamesAreNotTrimmed) {
    Load("[ a ]\nx=1\n");
    EXPECT_EQ(Get("[ a ].x").AsString(), "1");
    EXPECT_FALSE(Get("[a].x").Exists());
}

TEST_F(CommonSettingsTest, TextBehindTheBracketOfASectionLineIsIgnored) {
    Load("  [a] = x ] y=2\nz=1\n");
    EXPECT_EQ(Get("[a].z").AsString(), "1");
    EXPECT_TRUE(settings_.messages.empty());
}

TEST_F(CommonSettingsTest, ABracketThatIsNotClosedKeepsTheCurrentSection) {
    Load("[a]\n[b\nx=1\n");
    EXPECT_EQ(settings_.messages,
              Texts{"/s.ini(2): Warning: Invalid section name '[b'. Skipped. Current section is [a]"});
    EXPECT_EQ(Get("[a].x").AsString(), "1");
}

TEST_F(CommonSettingsTest, AnEmptyPartInsideAPathIsIgnoredWithAWarning) {
    Load("[a//b]\nx=1\n");
    EXPECT_EQ(settings_.messages,
              Texts{"/s.ini(1): Warning: Empty sub-section's name is ignored while parsing section name 'a//b'"});
    EXPECT_EQ(Get("[a/b].x").AsString(), "1");
}

TEST_F(CommonSettingsTest, ALeadingSlashIsPassedOverWithoutAWord) {
    Load("[//a]\nx=1\n");
    EXPECT_TRUE(settings_.messages.empty());
    EXPECT_EQ(Get("[a].x").AsString(), "1");
}

TEST_F(CommonSettingsTest, AnEmptyLastPartNamesThePositionReached) {
    Load("[a]\n[]\nx=1\n[a/b/]\ny=2\n[/]\nz=3\n");
    EXPECT_EQ(settings_.messages, (Texts{"/s.ini(2): Warning: Check section name. Current section is ",
                                         "/s.ini(4): Warning: Check section name. Current section is a/b",
                                         "/s.ini(6): Warning: Check section name. Current section is "}));
    EXPECT_EQ(Get("x").AsString(), "1");
    EXPECT_EQ(Get("[a/b].y").AsString(), "2");
    EXPECT_EQ(Get("z").AsString(), "3");
}

TEST_F(CommonSettingsTest, TwoSlashesAtTheEndOfAPathGiveBothWarnings) {
    Load("[a//]\nx=1\n");
    EXPECT_EQ(settings_.messages,
              (Texts{"/s.ini(1): Warning: Empty sub-section's name is ignored while parsing section name 'a//'",
                     "/s.ini(1): Warning: Check section name. Current section is a"}));
    EXPECT_EQ(Get("[a].x").AsString(), "1");
}

TEST_F(CommonSettingsTest, ALookupTakesAPointASlashOrNothingBehindTheBracket) {
    Load("[a]\nkey=1\n.key=2\n/key=3\n");
    EXPECT_EQ(Get("[a].key").AsString(), "1");
    EXPECT_EQ(Get("[a]/key").AsString(), "1");
    EXPECT_EQ(Get("[a]key").AsString(), "1");
    EXPECT_EQ(Get("[a]..key").AsString(), "2");
    EXPECT_EQ(Get("[a]./key").AsString(), "3");
}

TEST_F(CommonSettingsTest, AFailedSectionLookupLeavesOneMessageOnly) {
    Load("nonsense\n[a]\nmore nonsense\n");
    ASSERT_EQ(settings_.messages.size(), 2u);
    EXPECT_EQ(&Get("[b].x"), &Orv::EmptySettingsValue());
    EXPECT_EQ(settings_.messages, Texts{"/s.ini(3): Error: Section 'b' is not found!"});
}

TEST_F(CommonSettingsTest, ALookupWithoutAClosingBracketLeavesOneMessageOnly) {
    Load("nonsense\n");
    EXPECT_EQ(&Get("[a.x"), &Orv::EmptySettingsValue());
    EXPECT_EQ(settings_.messages, Texts{"/s.ini(1): Error: Invalid value name: '[a.x'"});
}

TEST_F(CommonSettingsTest, AMissingKeyMakesNoMessage) {
    Load("[a]\n");
    EXPECT_EQ(&Get("[a].x"), &Orv::EmptySettingsValue());
    EXPECT_EQ(&Get("x"), &Orv::EmptySettingsValue());
    EXPECT_EQ(&Get(""), &Orv::EmptySettingsValue());
    EXPECT_TRUE(settings_.messages.empty());
}

// The search goes down into every section whose name begins the wanted one, case aside, in the order of the file.
TEST_F(CommonSettingsTest, TheSectionSearchGoesDepthFirstThroughNamesThatBeginTheWantedOne) {
    Load("[A/b]\nx=1\n[a/b]\nx=2\n[a/b/c]\nx=3\n[ab]\nx=4\n");
    EXPECT_EQ(Get("[A/b].x").AsString(), "1");
    EXPECT_EQ(Get("[a/b].x").AsString(), "2");
    EXPECT_EQ(Get("[a/b/c].x").AsString(), "3");
    EXPECT_EQ(Get("[ab].x").AsString(), "4");
    EXPECT_EQ(Get("[a/B].x").AsString(), "");
}

TEST_F(CommonSettingsTest, LinesOfAnyLengthAreReadWhole) {
    for (const std::size_t length : {249u, 250u, 251u, 252u, 253u, 506u, 508u, 4096u}) {
        const std::string value(length, 'v');
        Load("key=" + value + "\nnext=1\n");
        EXPECT_EQ(Get("key").AsString(), value);
        EXPECT_EQ(Get("next").AsString(), "1");
        EXPECT_EQ(settings_.lineNumber, 2u) << length;
    }
}

TEST_F(CommonSettingsTest, ALongTextOfOnlyBlanksIsNoValueAndNoMessage) {
    Load(std::string(600, ' ') + "\nkey=1\n");
    EXPECT_TRUE(settings_.messages.empty());
    EXPECT_EQ(settings_.valuesByKey.size(), 1u);
    EXPECT_EQ(settings_.lineNumber, 2u);
}

TEST_F(CommonSettingsTest, ALastLineWithoutALineEndCounts) {
    Load("a=1\nb=2");
    EXPECT_EQ(Get("b").AsString(), "2");
    EXPECT_EQ(settings_.lineNumber, 2u);
}

TEST_F(CommonSettingsTest, CarriageReturnsAreCutOff) {
    Load("[a]\r\nkey=1\r\n\r\nother=\"2\"\r\n");
    EXPECT_EQ(Get("[a].key").AsString(), "1");
    EXPECT_EQ(Values("[a].other"), Texts{"2"});
    EXPECT_TRUE(settings_.messages.empty());
}

TEST_F(CommonSettingsTest, AFileThatCannotBeOpenedGivesFalseAndOneMessageWithoutAPlace) {
    EXPECT_FALSE(settings_.Load("/nowhere.ini"));
    EXPECT_EQ(settings_.messages, Texts{"Config.Error: Can not open file '/nowhere.ini'"});
    EXPECT_EQ(settings_.fileName, "");
}

TEST_F(CommonSettingsTest, AfterAReloadOfAFileThatHasVanishedEveryLookupGivesItsDefault) {
    Load("bad line\ntop=1\n[a]\nx=1\n");
    Platform::Sim::Files().Remove("/s.ini");
    EXPECT_FALSE(settings_.Load("/s.ini"));
    EXPECT_EQ(settings_.messages.size(), 2u);  // messages survive a reload
    EXPECT_EQ(settings_.lineNumber, 0u);
    EXPECT_TRUE(settings_.children.empty());
    EXPECT_EQ(&Get("top"), &Orv::EmptySettingsValue());
    EXPECT_EQ(&Get("[a].x"), &Orv::EmptySettingsValue());
    EXPECT_EQ(settings_.messages, Texts{"(0): Error: Section 'a' is not found!"});
}

TEST_F(CommonSettingsTest, AReloadReplacesTheWholeTree) {
    Load("top=1\n[a]\nx=1\n");
    Load("[b]\ny=2\n");
    EXPECT_FALSE(Get("top").Exists());
    EXPECT_EQ(settings_.children.size(), 1u);
    EXPECT_EQ(Get("[b].y").AsString(), "2");
    EXPECT_EQ(settings_.lineNumber, 2u);
}

TEST_F(CommonSettingsTest, AMessageIsCutToItsBuffer) {
    Load(std::string(5000, 'x') + "\n");
    const std::string text = "Invalid line {" + std::string(1023 - 14, 'x');
    EXPECT_EQ(settings_.messages, Texts{"/s.ini(1): Warning: " + text});
}

TEST_F(CommonSettingsTest, PercentSignsInTheFileAreText) {
    Load("100%s %n\n");
    EXPECT_EQ(settings_.messages, Texts{"/s.ini(1): Warning: Invalid line {100%s %n}. Ignored."});
}

// Files put together at random from the characters that mean something. Whatever they hold, every line is counted, and
// what the tree holds is found by its full name, unless an earlier section of that name hides it.
TEST_F(CommonSettingsTest, NothingInAFileStopsTheReader) {
    const std::string alphabet = "[]/=\"#;\\ \t\r\n\nab\xC3";
    std::mt19937 engine(20240305);
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (u32 length = engine() % 400; length > 0; --length) text += alphabet[engine() % alphabet.size()];
        ASSERT_TRUE(Load(text));
        const auto lineFeeds = std::count(text.begin(), text.end(), '\n');
        const bool openEnd = !text.empty() && text.back() != '\n';
        ASSERT_EQ(settings_.lineNumber, lineFeeds + (openEnd ? 1 : 0)) << text;
        for (const auto& [key, value] : settings_.valuesByKey) {
            ASSERT_EQ(&settings_.GetValue(("[]." + key).c_str()), &value) << text;
        }
        for (const auto& section : settings_.children) {
            for (const auto& [key, value] : section.valuesByKey) {
                ASSERT_EQ(&settings_.GetValue(("[" + section.name + "]." + key).c_str()), &value) << text;
            }
        }
    }
}

}  // namespace
