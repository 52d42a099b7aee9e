// Goal: a file of rows becomes exactly the changes it states, and what is wrong in it is told with its place.
#include "Tools/orvctl/RowFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tools/orvctl/ToolError.h"

namespace Orv {
namespace {

using ::testing::HasSubstr;

std::string Refusal(const std::string& text) {
    try {
        ParseRowFile(text);
    } catch (const ToolError& error) {
        EXPECT_EQ(error.Code(), ExitCode::BadCommandLine);
        return error.what();
    }
    return "(none)";
}

TEST(RowFile, RemovalsComeFirstAndRowsStateTheirWholeContent) {
    const std::vector<Change> changes = ParseRowFile(R"({
        "parameters": [{"name": "X", "value": "1"}],
        "feeds": [{"type": "sorted", "pipe": "a", "max-volume": 5, "nonstop": false, "folder": null}],
        "remove": {"announcements": ["n"]}})");
    ASSERT_EQ(changes.size(), 3u);
    EXPECT_EQ(changes[0].table, "ANNOUNCEMENT");
    EXPECT_EQ(changes[0].action, Action::Drop);
    EXPECT_EQ(changes[0].key, "n");
    EXPECT_EQ(changes[1].table, "PARAMETER");
    EXPECT_EQ(changes[1].action, Action::Put);
    EXPECT_EQ(changes[2].table, "AUDIOFEED");
    EXPECT_EQ(changes[2].key, "a");
    const std::vector<std::pair<std::string, Value>> values = {
        {"feedtype", 3}, {"maxvolume", 5}, {"nonstop", 0}, {"thename", Value()}};
    EXPECT_EQ(changes[2].values, values);
}

TEST(RowFile, ColumnNamesOfTheTablesAreTakenToo) {
    const std::vector<Change> changes =
        ParseRowFile(R"({"announcements": [{"thename": "a", "thetype": 1, "thefile": "f"}]})");
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].key, "a");
    const std::vector<std::pair<std::string, Value>> values = {{"thetype", 1}, {"thefile", std::string("f")}};
    EXPECT_EQ(changes[0].values, values);
}

TEST(RowFile, WhatIsWrongIsToldWithItsPlace) {
    EXPECT_THAT(Refusal("{"), HasSubstr("The file is no JSON: parse error at line 1"));
    EXPECT_THAT(Refusal(""), HasSubstr("The file is no JSON"));
    EXPECT_THAT(Refusal("[]"), HasSubstr("is no JSON object"));
    EXPECT_THAT(Refusal(R"({"food": []})"), HasSubstr("\"food\": is no section"));
    EXPECT_THAT(Refusal(R"({"feeds": {}})"), HasSubstr("feeds: is no list"));
    EXPECT_THAT(Refusal(R"({"feeds": [1]})"), HasSubstr("feeds[0]: is no object"));
    EXPECT_THAT(Refusal(R"({"feeds": [{"type": "sorted"}]})"), HasSubstr("feeds[0]: has no \"pipe\""));
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": "a"}, {"pipe": "b", "colour": 1}]})"),
                HasSubstr("feeds[1].colour: is no column of a feed; there are pipe, folder"));
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": 3}]})"), HasSubstr("feeds[0].pipe: is no text"));
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": "a", "type": "jazz"}]})"), HasSubstr("feeds[0].type: \"jazz\" cannot"));
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": "a", "max-volume": true}]})"), HasSubstr("give a whole number"));
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": "a", "max-volume": 1.5}]})"), HasSubstr("give a whole number"));
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": "a", "max-volume": 2147483648}]})"), HasSubstr("is outside"));
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": "a", "max-volume": -2147483649}]})"), HasSubstr("is outside"));
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": "a", "max-volume": 18446744073709551615}]})"), HasSubstr("is outside"));
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": "a\u0000b"}]})"), HasSubstr("control character"));
    EXPECT_THAT(Refusal(R"({"remove": ["a"]})"), HasSubstr("remove: is no object"));
    EXPECT_THAT(Refusal(R"({"remove": {"feeds": "a"}})"), HasSubstr("remove.feeds: is no list"));
    EXPECT_THAT(Refusal(R"({"remove": {"feeds": [null]}})"), HasSubstr("remove.feeds[0]: is null"));
}

TEST(RowFile, WhatStandsTwiceIsRefusedInsteadOfGuessed) {
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": "Hold"}, {"pipe": "hold"}]})"), HasSubstr("stands in the file already"));
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": "a"}], "remove": {"feeds": ["A"]}})"),
                HasSubstr("stands in the file already"));
    EXPECT_THAT(Refusal(R"({"feeds": [], "feeds": []})"), HasSubstr("stands twice"));
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": "a", "pipe": "b"}]})"), HasSubstr("stands twice"));
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": "a", "type": 1, "feedtype": 2}]})"), HasSubstr("stands there already"));
    EXPECT_EQ(ParseRowFile(R"({"feeds": [{"pipe": "a"}, {"pipe": "b"}]})").size(), 2u);
}

TEST(RowFile, ATextThatIsNoUtf8IsWrittenAsBytesAndReadBack) {
    for (const std::string& text : {std::string("caf\xE9"), std::string("\xC0\xAF"), std::string("\xED\xA0\x80"),
                                    std::string("\xF4\x90\x80\x80"), std::string("\xE2\x82")}) {
        const Json json = TextToJson(text);
        ASSERT_TRUE(json.is_object()) << text;
        const ColumnWords& column = AdministeredTables()[0].columns[1];
        EXPECT_EQ(ParseJson(column, "x", json), Value(text));
    }
    EXPECT_EQ(TextToJson("caf\xE9"), Json({{"hex", "636166e9"}}));
    EXPECT_TRUE(TextToJson("na\xC3\xAFve \xF0\x9F\x8E\xB5").is_string());
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": {"hex": "6"}}]})"), HasSubstr("odd number"));
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": {"hex": "6g"}}]})"), HasSubstr("no byte"));
    EXPECT_THAT(Refusal(R"({"feeds": [{"pipe": {"hex": "00"}}]})"), HasSubstr("no byte"));
}

}  // namespace
}  // namespace Orv
