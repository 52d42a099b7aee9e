#include "VX/ListCopy.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using VX::CopyParamList;
using VX::ParamListBytes;
using VX::ParamListHolder;

namespace {

ParamListHolder NestedDeep(u32 lists) {
    ParamListHolder list;
    list.NewList();
    for (u32 i = 1; i < lists; i++) {
        ParamListHolder outer;
        outer.NewList();
        VXSetHandleValue(outer.Get(), "in", list.Get());
        list = outer;
    }
    return list;
}

}  // namespace

TEST(ListCopyTest, CopyHasEveryKindOfValueInTheSameOrder) {
    ParamListHolder list;
    list.NewList();
    ParamListHolder nested;
    nested.NewList();
    VXSetStringValue(nested.Get(), "name", "in");
    const i32 numbers[] = {1, -2};
    const HVXPARAMLIST rows[] = {nested.Get(), nullptr};
    VXSetInt64Value(list.Get(), "long", -5'000'000'000);
    VXSetStringValue(list.Get(), "text", "a\xFF z");
    VXSetInt32Value(list.Get(), "number", -7);
    VXSetBinaryValue(list.Get(), "binary", "\0x", 2);
    VXSetInt32Array(list.Get(), "numbers", numbers, 2);
    VXSetHandleValue(list.Get(), "list", nested.Get());
    VXSetHandleArray(list.Get(), "lists", rows, 2);

    ParamListHolder copy;
    ASSERT_TRUE(CopyParamList(list.Get(), copy));
    std::vector<std::string> keys;
    for (VXParamRecord r = VXGetFirstParam(copy.Get()); r != nullptr; r = VXGetNextParam(copy.Get(), r)) {
        keys.emplace_back(VXRecordKey(r));
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"long", "text", "number", "binary", "numbers", "list", "lists"}));
    EXPECT_EQ(VXGetInt64Value(copy.Get(), "long"), -5'000'000'000);
    EXPECT_STREQ(VXGetStringValue(copy.Get(), "text"), "a\xFF z");
    EXPECT_EQ(VXGetInt32Value(copy.Get(), "number"), -7);
    EXPECT_EQ(std::memcmp(VXGetBinaryValue(copy.Get(), "binary"), "\2\0\0\0\0x", 6), 0);
    EXPECT_EQ(VXReadInt32(VXRecordPayload(VXParamInfo(copy.Get(), "numbers"))), 2);
    EXPECT_EQ(VXReadInt32(VXRecordPayload(VXParamInfo(copy.Get(), "numbers")) + 8), -2);
    EXPECT_NE(copy.GetHandle("list").Get(), nested.Get());
    EXPECT_STREQ(VXGetStringValue(copy.GetHandle("list").Get(), "name"), "in");
    const u8* lists = VXRecordPayload(VXParamInfo(copy.Get(), "lists"));
    ASSERT_EQ(VXReadInt32(lists), 2);
    EXPECT_STREQ(VXGetStringValue(VXGetHandleById(copy.Get(), VXReadInt32(lists + 4)), "name"), "in");
    EXPECT_EQ(VXGetParamCount(VXGetHandleById(copy.Get(), VXReadInt32(lists + 8))), 0u);
}

TEST(ListCopyTest, CopyOfNoListIsAnEmptyList) {
    ParamListHolder copy;
    EXPECT_TRUE(CopyParamList(nullptr, copy));
    EXPECT_NE(copy.Get(), nullptr);
    EXPECT_EQ(VXGetParamCount(copy.Get()), 0u);
}

TEST(ListCopyTest, ListsAreCopied16DeepAndNoDeeper) {
    ParamListHolder copy;
    EXPECT_TRUE(CopyParamList(NestedDeep(16).Get(), copy));
    ParamListHolder refused;
    EXPECT_FALSE(CopyParamList(NestedDeep(17).Get(), refused));
    EXPECT_FALSE(static_cast<bool>(refused));
}

TEST(ListCopyTest, AListOfMoreThan64MegabytesIsNotCopied) {
    ParamListHolder list;
    list.NewList();
    const std::string half(32u << 20, 'x');
    VXSetBinaryValue(list.Get(), "a", half.data(), static_cast<u32>(half.size()));
    ParamListHolder copy;
    EXPECT_TRUE(CopyParamList(list.Get(), copy));
    VXSetBinaryValue(list.Get(), "b", half.data(), static_cast<u32>(half.size()));
    EXPECT_FALSE(CopyParamList(list.Get(), copy));
}

TEST(ListCopyTest, BytesOfAListCountWhatIsNestedInIt) {
    EXPECT_EQ(ParamListBytes(nullptr), 0u);
    ParamListHolder list;
    list.NewList();
    const u64 empty = ParamListBytes(list.Get());
    EXPECT_GT(empty, 0u);
    ParamListHolder nested;
    nested.NewList();
    VXSetStringValue(nested.Get(), "text", std::string(1000, 'x').c_str());
    VXSetHandleValue(list.Get(), "list", nested.Get());
    EXPECT_GE(ParamListBytes(list.Get()), empty + empty + 1000);
}
