// Goal: rows, changes and results cross the link unharmed, and a request that makes no sense is refused.
#include "ConfigService/Wire.h"

#include <gtest/gtest.h>

#include "ConfigService/AdminProtocol.h"

namespace Orv {
namespace {

TEST(Wire, ARowCarriesItsIdAndOnlyTheColumnsThatAreSet) {
    Row row;
    row.id = 7;
    row.values = {std::string("Hold"), {}, 3, {}, {}, {}, {}, 0, {}};
    const VX::ParamListHolder list = RowToList(Tables()[AudioFeed], row);
    EXPECT_EQ(VXGetParamCount(list.Get()), 4u);
    EXPECT_EQ(VXGetInt32Value(list.Get(), "idaudiofeed"), 7);
    EXPECT_EQ(VXRecordType(VXParamInfo(list.Get(), "idaudiofeed")), VXTypeInt32);
    EXPECT_STREQ(VXGetStringValue(list.Get(), "pipename"), "Hold");
    EXPECT_EQ(VXRecordType(VXParamInfo(list.Get(), "pipename")), VXTypeString);
    EXPECT_EQ(VXGetInt32Value(list.Get(), "feedtype"), 3);
    EXPECT_EQ(VXRecordType(VXParamInfo(list.Get(), "feedtype")), VXTypeInt32);
    EXPECT_NE(VXParamInfo(list.Get(), "maxvolume"), nullptr);
    EXPECT_EQ(VXParamInfo(list.Get(), "thename"), nullptr);
    EXPECT_EQ(VXParamInfo(list.Get(), "autogain"), nullptr);
    EXPECT_EQ(RowFromList(Tables()[AudioFeed], list), row);
}

TEST(Wire, ChangesCrossUnharmed) {
    const std::vector<Change> changes = {
        {"AUDIOFEED", Action::Add, 0, "a", {{"feedtype", -5}, {"thename", std::string()}}},
        {"ANNOUNCEMENT", Action::Set, 12, "", {{"thetype", Value()}}},
        {"PARAMETER", Action::Put, 0, "X", {{"value", std::string("\xFFyz")}}},
        {"AUDIOFEED", Action::Remove, 0, "b", {}},
        {"AUDIOFEED", Action::Drop, 0, "c", {}},
    };
    std::vector<Finding> errors;
    const std::vector<Change> read = ChangesFromList(ChangesToList(changes), errors);
    EXPECT_TRUE(errors.empty());
    ASSERT_EQ(read.size(), changes.size());
    for (u32 i = 0; i < changes.size(); ++i) {
        EXPECT_EQ(read[i].table, changes[i].table);
        EXPECT_EQ(read[i].action, changes[i].action);
        EXPECT_EQ(read[i].id, changes[i].id);
        EXPECT_EQ(read[i].key, changes[i].key);
        EXPECT_EQ(read[i].values, changes[i].values);
    }
}

TEST(Wire, ResultsCrossUnharmed) {
    ApplyResult result;
    result.transaction = 5'000'000'000;
    result.changed.push_back({AudioFeed, 3, "Updated", "new", "old", {"pipename", "maxvolume"}, {"maxvolume"}});
    result.warnings.push_back({0, "AUDIOFEED", "new", "thename", "is empty", false});
    std::string word;
    const ApplyResult read = ResultFromList(ResultToList(result), word);
    EXPECT_EQ(word, "ok");
    EXPECT_EQ(read.outcome, Outcome::Done);
    EXPECT_EQ(read.transaction, 5'000'000'000);
    ASSERT_EQ(read.changed.size(), 1u);
    EXPECT_EQ(read.changed[0].table, AudioFeed);
    EXPECT_EQ(read.changed[0].id, 3);
    EXPECT_STREQ(read.changed[0].kind, "Updated");
    EXPECT_EQ(read.changed[0].key, "new");
    EXPECT_EQ(read.changed[0].oldKey, "old");
    EXPECT_EQ(read.changed[0].columns, (std::vector<std::string>{"pipename", "maxvolume"}));
    EXPECT_EQ(read.changed[0].alike, std::vector<std::string>{"maxvolume"});
    ASSERT_EQ(read.warnings.size(), 1u);
    EXPECT_EQ(read.warnings[0].text, "is empty");
}

TEST(Wire, TheResultWordTellsMissingRowsFromOtherRefusals) {
    std::string word;
    ApplyResult result;
    result.outcome = Outcome::Refused;
    result.errors.push_back({0, "AUDIOFEED", "x", "", "does not exist", true});
    EXPECT_EQ(ResultFromList(ResultToList(result), word).outcome, Outcome::Refused);
    EXPECT_EQ(word, "notfound");
    result.errors.push_back({1, "AUDIOFEED", "y", "feedtype", "is 7", false});
    ResultFromList(ResultToList(result), word);
    EXPECT_EQ(word, "refused");
    result.outcome = Outcome::Failed;
    EXPECT_EQ(ResultFromList(ResultToList(result), word).outcome, Outcome::Failed);
    EXPECT_EQ(word, "failed");
    EXPECT_EQ(ResultFromList(VX::ParamListHolder(), word).outcome, Outcome::Refused);
    EXPECT_EQ(word, "");
}

TEST(Wire, AnUnknownActionAndAValueOfAnotherTypeAreRefused) {
    VX::ParamListHolder values;
    values.NewList();
    VXSetInt64Value(values.Get(), "feedtype", 3);
    VX::ParamListHolder change;
    change.NewList();
    VXSetStringValue(change.Get(), "action", "set");
    VXSetHandleValue(change.Get(), "values", values.Get());
    VX::ParamListHolder other;
    other.NewList();
    VXSetStringValue(other.Get(), "action", "explode");
    VX::ParamListHolder request;
    request.NewList();
    SetLists(request, "changes", {change, other});
    std::vector<Finding> errors;
    ChangesFromList(request, errors);
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_EQ(errors[0].change, 0);
    EXPECT_EQ(errors[0].field, "feedtype");
    EXPECT_EQ(errors[1].change, 1);
    EXPECT_EQ(errors[1].field, "action");
}

TEST(Wire, IdsArePackedLittleEndian) {
    VX::ParamListHolder list;
    list.NewList();
    SetIds(list, "ids", {1, -2, 0x01020304});
    const u8* value = VXGetBinaryValue(list.Get(), "ids");
    ASSERT_NE(value, nullptr);
    const u8 expected[] = {12, 0, 0, 0, 1, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF, 4, 3, 2, 1};
    EXPECT_TRUE(std::equal(std::begin(expected), std::end(expected), value));
    EXPECT_EQ(GetIds(list, "ids"), (std::vector<i32>{1, -2, 0x01020304}));
    EXPECT_TRUE(GetIds(list, "other").empty());
    VXSetBinaryValue(list.Get(), "odd", "1234567", 7);
    EXPECT_EQ(GetIds(list, "odd").size(), 1u) << "a broken tail is no id";
}

}  // namespace
}  // namespace Orv
