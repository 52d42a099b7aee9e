#include "AudioFeeder/JsonText.h"

#include <gtest/gtest.h>

#include <limits>

namespace Orv {
namespace {

TEST(JsonText, ObjectsArraysAndValuesAreSeparatedByCommasAlone) {
    JsonText json;
    json.BeginObject().Key("a").Number(u64{1}).Key("b").BeginArray().Number(i64{-2}).Bool(true).Null().EndArray();
    json.Key("c").BeginObject().EndObject().Key("d").BeginArray().BeginObject().EndObject().BeginObject().EndObject();
    json.EndArray().Key("e").Number(1.25, 1).EndObject();
    EXPECT_EQ(json.Get(), R"({"a":1,"b":[-2,true,null],"c":{},"d":[{},{}],"e":1.2})");
}

TEST(JsonText, QuotesBackslashesAndControlCharactersAreEscaped) {
    EXPECT_EQ(JsonText().Text("a\"b\\c\n\t\x01\x7f").Get(), "\"a\\\"b\\\\c\\u000a\\u0009\\u0001\\u007f\"");
    EXPECT_EQ(JsonText().Text(std::string_view("\0", 1)).Get(), "\"\\u0000\"");
}

TEST(JsonText, GoodUtf8PassesAndEachBadByteIsReplaced) {
    const std::string good = "\xC3\xA4 \xE2\x82\xAC \xF0\x9F\x8E\xB5 \xED\x9F\xBF \xF4\x8F\xBF\xBF";
    EXPECT_EQ(ValidUtf8(good), good);
    const std::string r = "\xEF\xBF\xBD";
    EXPECT_EQ(ValidUtf8("\xE4x"), r + "x");                   // Latin-1
    EXPECT_EQ(ValidUtf8("\xC0\xAF"), r + r);                  // overlong
    EXPECT_EQ(ValidUtf8("\xE0\x80\xAF"), r + r + r);          // overlong
    EXPECT_EQ(ValidUtf8("\xED\xA0\x80"), r + r + r);          // a surrogate
    EXPECT_EQ(ValidUtf8("\xF4\x90\x80\x80"), r + r + r + r);  // behind the last code point
    EXPECT_EQ(ValidUtf8("\xF0\x9F\x8E"), r + r + r);          // cut off
    EXPECT_EQ(ValidUtf8("\xFF\x80"), r + r);
}

TEST(JsonText, ANumberThatIsNoneReadsAsNought) {
    EXPECT_EQ(FixedPoint(std::numeric_limits<double>::infinity(), 2), "0.00");
    EXPECT_EQ(FixedPoint(std::numeric_limits<double>::quiet_NaN(), 0), "0");
    EXPECT_EQ(FixedPoint(-0.5, 3), "-0.500");
}

}  // namespace
}  // namespace Orv
