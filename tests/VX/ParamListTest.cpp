// Goal: the lists keep what every reader in the system relies on: the record layout byte by byte, replaced values that
// stay readable, handles that are counted, and no damage from wrong arguments.

#include "VX/ParamList.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "VX/ListCopy.h"

using VX::ParamListHolder;

namespace {

ParamListHolder NewList() {
    ParamListHolder holder;
    holder.NewList();
    return holder;
}

// The bytes of a record, from its start.
std::vector<u8> RecordBytes(VXParamRecord record, u64 size) {
    return std::vector<u8>(record, record + size);
}

std::string KeyOf(VXParamRecord record) {
    return record != nullptr ? VXRecordKey(record) : "(none)";
}

}  // namespace

TEST(ParamListTest, ClosingNoListIsNoFault) {
    VXCloseHandle(nullptr);
    EXPECT_EQ(VXReferenceHandle(nullptr), nullptr);
}

TEST(ParamListTest, ParamCountOfANullHandleAndOfAnEmptyListIsZero) {
    EXPECT_EQ(VXGetParamCount(nullptr), 0u);
    EXPECT_EQ(VXGetParamCount(NewList().Get()), 0u);
}

TEST(ParamListTest, StringValueOfAnAbsentKeyIsNull) {
    const ParamListHolder list = NewList();
    VXSetInt32Value(list.Get(), "number", 1);
    EXPECT_EQ(VXGetStringValue(list.Get(), "text"), nullptr);
    EXPECT_EQ(VXGetStringValue(list.Get(), "number"), nullptr);
}

TEST(ParamListTest, HolderMadeFromABorrowedHandleLeavesTheCallersReferenceAlone) {
    const HVXPARAMLIST list = VXCreateParamList();
    VXSetStringValue(list, "key", "value");
    { const ParamListHolder holder = ParamListHolder::FromHandle(list); }
    EXPECT_STREQ(VXGetStringValue(list, "key"), "value");
    VXCloseHandle(list);
}

// The leak checker sees a reference that was not dropped, the address sanitizer one that was dropped twice.
TEST(ParamListTest, HolderMadeFromACountedReferenceDropsItWhenItGoes) {
    const HVXPARAMLIST parent = VXCreateParamList();
    const HVXPARAMLIST list = VXCreateParamList();
    VXSetHandleValue(parent, "nested", list);
    { const ParamListHolder holder = ParamListHolder::FromRefHandle(list); }
    // Only the parent's reference keeps it now.
    EXPECT_EQ(VXGetParamCount(VXGetHandleById(parent, VXReadInt32(VXRecordPayload(VXParamInfo(parent, "nested"))))),
              0u);
    VXCloseHandle(parent);
}

TEST(ParamListTest, SettingAKeyThatIsThereReplacesItsValue) {
    const ParamListHolder list = NewList();
    VXSetStringValue(list.Get(), "key", "first");
    VXSetStringValue(list.Get(), "key", "second, and longer");
    EXPECT_STREQ(VXGetStringValue(list.Get(), "key"), "second, and longer");
    VXSetInt32Value(list.Get(), "key", -5);
    EXPECT_EQ(VXGetInt32Value(list.Get(), "key"), -5);
    EXPECT_EQ(VXGetStringValue(list.Get(), "key"), nullptr);
    EXPECT_EQ(VXGetParamCount(list.Get()), 1u);
}

TEST(ParamListTest, StringRecordHasTheLayoutOfTheExchange) {
    const ParamListHolder list = NewList();
    VXSetStringValue(list.Get(), "OC", "Ab");
    EXPECT_EQ(RecordBytes(VXParamInfo(list.Get(), "OC"), 8), (std::vector<u8>{4, 'O', 'C', 0, 1, 'A', 'b', 0}));
}

TEST(ParamListTest, Int32RecordHasTheLayoutOfTheExchange) {
    const ParamListHolder list = NewList();
    VXSetInt32Value(list.Get(), "ID", -2);
    EXPECT_EQ(RecordBytes(VXParamInfo(list.Get(), "ID"), 9),
              (std::vector<u8>{4, 'I', 'D', 0, 2, 0xFE, 0xFF, 0xFF, 0xFF}));
}

TEST(ParamListTest, Int64RecordHasTypeThreeAndEightBytes) {
    const ParamListHolder list = NewList();
    VXSetInt64Value(list.Get(), "T", 0x0102030405060708);
    EXPECT_EQ(RecordBytes(VXParamInfo(list.Get(), "T"), 12), (std::vector<u8>{3, 'T', 0, 3, 8, 7, 6, 5, 4, 3, 2, 1}));
}

TEST(ParamListTest, BinaryRecordHasItsLengthInFrontOfTheBytes) {
    const ParamListHolder list = NewList();
    VXSetBinaryValue(list.Get(), "b", "\x01\x00\xFF", 3);
    const std::vector<u8> expected = {3, 'b', 0, 5, 3, 0, 0, 0, 1, 0, 0xFF};
    EXPECT_EQ(RecordBytes(VXParamInfo(list.Get(), "b"), 11), expected);
    EXPECT_EQ(RecordBytes(VXGetBinaryValue(list.Get(), "b"), 7), std::vector<u8>(expected.begin() + 4, expected.end()));
}

TEST(ParamListTest, NestedListRecordHasAnIdThatGivesTheHandle) {
    const ParamListHolder list = NewList();
    const ParamListHolder nested = NewList();
    VXSetHandleValue(list.Get(), "OD", nested.Get());
    const VXParamRecord record = VXParamInfo(list.Get(), "OD");
    EXPECT_EQ(VXRecordType(record), 4);
    EXPECT_EQ(VXGetHandleById(list.Get(), VXReadInt32(VXRecordPayload(record))), nested.Get());
}

TEST(ParamListTest, Int32ArrayRecordHasItsCountInFrontOfTheElements) {
    const ParamListHolder list = NewList();
    const i32 values[] = {7, -1};
    VXSetInt32Array(list.Get(), "IDA", values, 2);
    EXPECT_EQ(RecordBytes(VXParamInfo(list.Get(), "IDA"), 18),
              (std::vector<u8>{5, 'I', 'D', 'A', 0, 0x82, 2, 0, 0, 0, 7, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}));
    VXInt32Array array = {9, nullptr};
    EXPECT_EQ(VXGetInt32Array(&array, list.Get(), "IDA"), &array);
    EXPECT_EQ(array.count, 2u);
    i32 read[2] = {};
    std::memcpy(read, array.values, sizeof(read));
    EXPECT_EQ(read[0], 7);
    EXPECT_EQ(read[1], -1);
}

TEST(ParamListTest, HandleArrayHasType0x84AndGivesItsListsInOrder) {
    const ParamListHolder list = NewList();
    const ParamListHolder rows[] = {NewList(), NewList(), NewList()};
    const HVXPARAMLIST handles[] = {rows[0].Get(), rows[1].Get(), rows[2].Get()};
    VXSetHandleArray(list.Get(), "OD", handles, 3);
    EXPECT_EQ(VXRecordType(VXParamInfo(list.Get(), "OD")), 0x84);
    VXHandleArray array = {};
    EXPECT_EQ(VXGetHandleArray(&array, list.Get(), "OD"), &array);
    ASSERT_EQ(array.count, 3u);
    i32 ids[3] = {};
    std::memcpy(ids, array.ids, sizeof(ids));
    for (int i = 0; i < 3; i++) EXPECT_EQ(VXGetHandleById(list.Get(), ids[i]), handles[i]);
}

TEST(ParamListTest, ArraysOfAbsentKeysHaveNoElements) {
    const ParamListHolder list = NewList();
    VXSetInt32Value(list.Get(), "number", 3);
    const i32 dummy = 0;
    VXInt32Array numbers = {5, &dummy};
    VXHandleArray handles = {5, &dummy};
    EXPECT_EQ(VXGetInt32Array(&numbers, list.Get(), "number"), &numbers);
    EXPECT_EQ(VXGetHandleArray(&handles, nullptr, "absent"), &handles);
    EXPECT_EQ(numbers.count, 0u);
    EXPECT_TRUE(numbers.values == nullptr);
    EXPECT_EQ(handles.count, 0u);
    EXPECT_TRUE(handles.ids == nullptr);
    EXPECT_EQ(VXGetInt32Array(nullptr, list.Get(), "number"), nullptr);
    EXPECT_EQ(VXGetHandleArray(nullptr, list.Get(), "number"), nullptr);
}

TEST(ParamListTest, NumbersOfAbsentKeysAndOfOtherTypesAreZero) {
    const ParamListHolder list = NewList();
    VXSetStringValue(list.Get(), "text", "12");
    VXSetInt64Value(list.Get(), "long", 12);
    EXPECT_EQ(VXGetInt32Value(list.Get(), "absent"), 0);
    EXPECT_EQ(VXGetInt32Value(list.Get(), "text"), 0);
    EXPECT_EQ(VXGetInt32Value(list.Get(), "long"), 0);
    EXPECT_EQ(VXGetInt64Value(list.Get(), "absent"), 0);
    EXPECT_EQ(VXGetInt64Value(list.Get(), "text"), 0);
    EXPECT_EQ(VXGetBinaryValue(list.Get(), "text"), nullptr);
}

TEST(ParamListTest, Int64ValueIsReadWholeAndAlsoReadsAn32BitValue) {
    const ParamListHolder list = NewList();
    VXSetInt64Value(list.Get(), "min", std::numeric_limits<i64>::min());
    VXSetInt64Value(list.Get(), "max", std::numeric_limits<i64>::max());
    VXSetInt64Value(list.Get(), "low", 0x80000000);
    VXSetInt32Value(list.Get(), "small", -3);
    EXPECT_EQ(VXGetInt64Value(list.Get(), "min"), std::numeric_limits<i64>::min());
    EXPECT_EQ(VXGetInt64Value(list.Get(), "max"), std::numeric_limits<i64>::max());
    EXPECT_EQ(VXGetInt64Value(list.Get(), "low"), 0x80000000);
    EXPECT_EQ(VXGetInt64Value(list.Get(), "small"), -3);
}

TEST(ParamListTest, TextsAndRecordsReadBeforeAReplacementLiveAsLongAsTheList) {
    const ParamListHolder list = NewList();
    VXSetStringValue(list.Get(), "key", "first");
    VXSetBinaryValue(list.Get(), "bytes", "abc", 3);
    const char* text = VXGetStringValue(list.Get(), "key");
    const VXParamRecord record = VXParamInfo(list.Get(), "key");
    const u8* bytes = VXGetBinaryValue(list.Get(), "bytes");
    VXSetStringValue(list.Get(), "key", "second");
    VXSetBinaryValue(list.Get(), "bytes", "xyz", 3);
    VXSetInt32Value(list.Get(), "key", 3);
    EXPECT_STREQ(text, "first");
    EXPECT_STREQ(VXRecordKey(record), "key");
    EXPECT_EQ(std::memcmp(bytes + 4, "abc", 3), 0);
}

TEST(ParamListTest, AValueSetFromTheListsOwnTextIsTakenWhole) {
    const ParamListHolder list = NewList();
    VXSetStringValue(list.Get(), "key", "text of the list");
    VXSetStringValue(list.Get(), "key", VXGetStringValue(list.Get(), "key") + 5);
    EXPECT_STREQ(VXGetStringValue(list.Get(), "key"), "of the list");
}

TEST(ParamListTest, SettingAKeyAgainAndAgainDoesNotGrowTheList) {
    const ParamListHolder list = NewList();
    VXSetInt32Value(list.Get(), "ID", 0);
    VXSetStringValue(list.Get(), "unread", "0000");
    VXSetStringValue(list.Get(), "same", "text");
    const ParamListHolder nested = NewList();
    VXSetHandleValue(list.Get(), "nested", nested.Get());
    const HVXPARAMLIST pair[] = {nested.Get(), nullptr};
    VXSetHandleArray(list.Get(), "pair", pair, 2);
    const u64 before = VX::ParamListBytes(list.Get());
    for (i32 i = 1000; i < 2000; i++) {
        VXSetInt32Value(list.Get(), "ID", i);
        EXPECT_NE(VXParamInfo(list.Get(), "ID"), nullptr);
        VXSetStringValue(list.Get(), "unread", std::to_string(i).c_str());
        VXSetStringValue(list.Get(), "same", "text");
        EXPECT_STREQ(VXGetStringValue(list.Get(), "same"), "text");
        VXSetHandleValue(list.Get(), "nested", nested.Get());
        VXSetHandleArray(list.Get(), "pair", pair, 2);
    }
    EXPECT_EQ(VX::ParamListBytes(list.Get()), before);
    EXPECT_EQ(list.GetHandle("nested").Get(), nested.Get());
}

TEST(ParamListTest, WalkGivesEachParameterOnceInTheOrderOfTheirFirstSetting) {
    const ParamListHolder list = NewList();
    for (const char* key : {"c", "a", "b"}) VXSetStringValue(list.Get(), key, "x");
    VXSetStringValue(list.Get(), "c", "replaced");
    VXParamRecord record = VXGetFirstParam(list.Get());
    EXPECT_EQ(KeyOf(record), "c");
    record = VXGetNextParam(list.Get(), record);
    EXPECT_EQ(KeyOf(record), "a");
    record = VXGetNextParam(list.Get(), record);
    EXPECT_EQ(KeyOf(record), "b");
    EXPECT_EQ(VXGetNextParam(list.Get(), record), nullptr);
    EXPECT_EQ(VXGetNextParam(list.Get(), nullptr), nullptr);
    EXPECT_EQ(VXGetFirstParam(nullptr), nullptr);
    EXPECT_EQ(VXGetFirstParam(NewList().Get()), nullptr);
}

TEST(ParamListTest, WalkGoesOnBehindAParameterThatIsReplacedDuringIt) {
    const ParamListHolder list = NewList();
    VXSetStringValue(list.Get(), "a", "1");
    VXSetStringValue(list.Get(), "b", "2");
    const VXParamRecord first = VXGetFirstParam(list.Get());
    VXSetStringValue(list.Get(), "a", "replaced");
    EXPECT_EQ(KeyOf(VXGetNextParam(list.Get(), first)), "b");
}

// Past 16 keys the list finds them by an index instead of by looking at each.
TEST(ParamListTest, ALongListFindsEveryKeyAlsoAfterReplacements) {
    const ParamListHolder list = NewList();
    for (int round = 0; round < 3; round++) {
        for (int i = 0; i < 200; i++) {
            const std::string value = std::to_string(i * (round + 1)) + std::string(static_cast<u64>(round), '.');
            VXSetStringValue(list.Get(), ("key" + std::to_string(i)).c_str(), value.c_str());
        }
    }
    EXPECT_EQ(VXGetParamCount(list.Get()), 200u);
    for (int i = 0; i < 200; i++) {
        EXPECT_EQ(VXGetStringValue(list.Get(), ("key" + std::to_string(i)).c_str()), std::to_string(i * 3) + "..");
    }
    EXPECT_EQ(VXParamInfo(list.Get(), "key200"), nullptr);
    EXPECT_EQ(KeyOf(VXGetFirstParam(list.Get())), "key0");
}

TEST(ParamListTest, KeysOf253BytesFitARecordAndLongerOnesAreIgnored) {
    const ParamListHolder list = NewList();
    const std::string longest(253, 'k');
    VXSetInt32Value(list.Get(), longest.c_str(), 77);
    EXPECT_EQ(VXParamInfo(list.Get(), longest.c_str())[0], 255);
    EXPECT_EQ(VXGetInt32Value(list.Get(), longest.c_str()), 77);
    VXSetInt32Value(list.Get(), (longest + "k").c_str(), 78);
    VXSetHandleValue(list.Get(), (longest + "k").c_str(), nullptr);
    VXSetHandleArray(list.Get(), (longest + "k").c_str(), nullptr, 0);
    EXPECT_EQ(VXGetParamCount(list.Get()), 1u);
}

TEST(ParamListTest, NullListsNullKeysAndEmptyKeysAreIgnored) {
    const ParamListHolder list = NewList();
    const i32 number = 1;
    for (const char* key : {static_cast<const char*>(nullptr), ""}) {
        VXSetStringValue(list.Get(), key, "x");
        VXSetInt32Value(list.Get(), key, 1);
        VXSetInt64Value(list.Get(), key, 1);
        VXSetBinaryValue(list.Get(), key, "x", 1);
        VXSetInt32Array(list.Get(), key, &number, 1);
        VXSetHandleValue(list.Get(), key, nullptr);
        VXSetHandleArray(list.Get(), key, nullptr, 0);
        EXPECT_EQ(VXParamInfo(list.Get(), key), nullptr);
    }
    EXPECT_EQ(VXGetParamCount(list.Get()), 0u);
    VXSetStringValue(nullptr, "key", "x");
    VXSetInt32Value(nullptr, "key", 1);
    VXSetInt64Value(nullptr, "key", 1);
    VXSetBinaryValue(nullptr, "key", "x", 1);
    VXSetInt32Array(nullptr, "key", &number, 1);
    VXSetHandleValue(nullptr, "key", list.Get());
    VXSetHandleArray(nullptr, "key", nullptr, 0);
    EXPECT_EQ(VXGetStringValue(nullptr, "key"), nullptr);
    EXPECT_EQ(VXGetStringValue(list.Get(), nullptr), nullptr);
    EXPECT_EQ(VXGetInt32Value(nullptr, "key"), 0);
    EXPECT_EQ(VXGetInt64Value(nullptr, nullptr), 0);
    EXPECT_EQ(VXGetBinaryValue(nullptr, "key"), nullptr);
}

TEST(ParamListTest, NullTextBinaryAndArrayAreSetAsEmptyOnes) {
    const ParamListHolder list = NewList();
    VXSetStringValue(list.Get(), "text", nullptr);
    VXSetBinaryValue(list.Get(), "binary", nullptr, 5);
    VXSetInt32Array(list.Get(), "array", nullptr, 5);
    VXSetHandleArray(list.Get(), "lists", nullptr, 5);
    EXPECT_STREQ(VXGetStringValue(list.Get(), "text"), "");
    EXPECT_EQ(VXReadInt32(VXGetBinaryValue(list.Get(), "binary")), 0);
    EXPECT_EQ(VXReadInt32(VXRecordPayload(VXParamInfo(list.Get(), "array"))), 0);
    EXPECT_EQ(VXReadInt32(VXRecordPayload(VXParamInfo(list.Get(), "lists"))), 0);
}

TEST(ParamListTest, NullListsAmongNestedOnesBecomeEmptyLists) {
    const ParamListHolder list = NewList();
    const HVXPARAMLIST rows[] = {nullptr, nullptr};
    VXSetHandleArray(list.Get(), "rows", rows, 2);
    VXSetHandleValue(list.Get(), "one", nullptr);
    VXHandleArray array = {};
    VXGetHandleArray(&array, list.Get(), "rows");
    ASSERT_EQ(array.count, 2u);
    i32 ids[2] = {};
    std::memcpy(ids, array.ids, sizeof(ids));
    EXPECT_NE(VXGetHandleById(list.Get(), ids[0]), nullptr);
    EXPECT_NE(VXGetHandleById(list.Get(), ids[0]), VXGetHandleById(list.Get(), ids[1]));
    EXPECT_TRUE(static_cast<bool>(list.GetHandle("one")));
}

TEST(ParamListTest, AListNestedInItselfBecomesAnEmptyList) {
    const ParamListHolder list = NewList();
    VXSetHandleValue(list.Get(), "self", list.Get());
    EXPECT_NE(list.GetHandle("self").Get(), list.Get());
    EXPECT_EQ(VXGetParamCount(list.GetHandle("self").Get()), 0u);
}

TEST(ParamListTest, IdsThatNobodyGaveOutGiveNoHandle) {
    const ParamListHolder list = NewList();
    VXSetHandleValue(list.Get(), "one", nullptr);
    for (i32 id : {0, -1, 2, std::numeric_limits<i32>::min(), std::numeric_limits<i32>::max()}) {
        EXPECT_EQ(VXGetHandleById(list.Get(), id), nullptr) << id;
    }
    EXPECT_EQ(VXGetHandleById(nullptr, 1), nullptr);
}

TEST(ParamListTest, ANestedListLivesAsLongAsItsParent) {
    const ParamListHolder list = NewList();
    {
        const ParamListHolder nested = NewList();
        VXSetStringValue(nested.Get(), "name", "row");
        VXSetHandleValue(list.Get(), "row", nested.Get());
    }
    EXPECT_STREQ(VXGetStringValue(list.GetHandle("row").Get(), "name"), "row");
}

TEST(ParamListTest, ANestedListThatWasReadStaysWhenItsKeyIsSetAgain) {
    const ParamListHolder list = NewList();
    const ParamListHolder first = NewList();
    VXSetStringValue(first.Get(), "name", "first");
    VXSetHandleValue(list.Get(), "row", first.Get());
    const i32 id = VXReadInt32(VXRecordPayload(VXParamInfo(list.Get(), "row")));
    VXSetHandleValue(list.Get(), "row", nullptr);
    EXPECT_STREQ(VXGetStringValue(VXGetHandleById(list.Get(), id), "name"), "first");
    EXPECT_EQ(VXGetParamCount(list.GetHandle("row").Get()), 0u);
}

TEST(ParamListTest, AHolderOfANestedListOutlivesItsParent) {
    ParamListHolder list = NewList();
    const ParamListHolder nested = NewList();
    VXSetStringValue(nested.Get(), "name", "row");
    VXSetHandleValue(list.Get(), "row", nested.Get());
    const ParamListHolder held = list.GetHandle("row");
    list = ParamListHolder();
    EXPECT_STREQ(VXGetStringValue(held.Get(), "name"), "row");
    EXPECT_FALSE(static_cast<bool>(held.GetHandle("name")));
    EXPECT_FALSE(static_cast<bool>(ParamListHolder().GetHandle("name")));
}

TEST(ParamListTest, AVeryDeeplyNestedListIsLetGoWithoutHarm) {
    ParamListHolder list = NewList();
    for (int depth = 0; depth < 200000; depth++) {
        ParamListHolder outer = NewList();
        VXSetHandleValue(outer.Get(), "in", list.Get());
        list = outer;
    }
    list = ParamListHolder();
    EXPECT_FALSE(static_cast<bool>(list));
}

TEST(ParamListTest, HolderCopiesMovesSwapsAndIsFilledAnew) {
    ParamListHolder list;
    EXPECT_FALSE(static_cast<bool>(list));
    EXPECT_TRUE(list.NewList());
    const HVXPARAMLIST handle = list.Get();
    ParamListHolder copy(list);
    EXPECT_EQ(copy.Get(), handle);
    ParamListHolder moved(std::move(copy));
    EXPECT_EQ(moved.Get(), handle);
    EXPECT_EQ(copy.Get(), nullptr);  // NOLINT(bugprone-use-after-move): empty by contract
    copy = moved;
    EXPECT_TRUE(copy.NewList());
    EXPECT_NE(copy.Get(), handle);
    copy.Swap(moved);
    EXPECT_EQ(copy.Get(), handle);
}

TEST(ParamListTest, AllocatorServesStandardContainers) {
    std::vector<int, VX::VXLFHallocator_<int>> numbers;
    for (int i = 0; i < 1000; i++) numbers.push_back(i);
    EXPECT_EQ(numbers[999], 999);
    void* memory = VXAllocate(0);
    EXPECT_NE(memory, nullptr);
    VXFree(memory);
    VXFree(nullptr);
}
