// Goal: what is encoded is decoded again and read alike by any language's parser; what no encoder makes is refused.

#include "VX/ListCodec.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>

#include "VX/Link.pb.h"

using orv::vx::ParamList;
using VX::DecodeParamList;
using VX::EncodeParamList;
using VX::ParamListHolder;

namespace {

ParamListHolder MakeEverything() {
    ParamListHolder list;
    list.NewList();
    ParamListHolder nested;
    nested.NewList();
    VXSetStringValue(nested.Get(), "name", "in");
    const i32 numbers[] = {1, -2, std::numeric_limits<i32>::min()};
    const HVXPARAMLIST rows[] = {nested.Get(), nullptr};
    VXSetStringValue(list.Get(), "text\xFF", "a\xFE z");
    VXSetStringValue(list.Get(), "empty", "");
    VXSetInt32Value(list.Get(), "number", -7);
    VXSetInt64Value(list.Get(), "long", std::numeric_limits<i64>::min());
    VXSetBinaryValue(list.Get(), "binary", "\0x", 2);
    VXSetInt32Array(list.Get(), "numbers", numbers, 3);
    VXSetInt32Array(list.Get(), "none", nullptr, 0);
    VXSetHandleValue(list.Get(), "list", nested.Get());
    VXSetHandleArray(list.Get(), "lists", rows, 2);
    return list;
}

std::string Encode(const ParamListHolder& list) {
    std::string bytes;
    EXPECT_TRUE(EncodeParamList(list.Get(), bytes));
    return bytes;
}

bool Decodes(const std::string& bytes) {
    ParamListHolder list;
    return DecodeParamList(bytes, list);
}

// One parameter with a good value, for the tests that spoil something about it.
ParamList OneParam() {
    ParamList message;
    message.add_params()->set_key("key");
    message.mutable_params(0)->set_number(1);
    return message;
}

}  // namespace

TEST(ListCodecTest, EveryKindOfValueArrivesUnchangedAndInOrder) {
    ParamListHolder read;
    ASSERT_TRUE(DecodeParamList(Encode(MakeEverything()), read));
    std::string keys;
    for (VXParamRecord r = VXGetFirstParam(read.Get()); r != nullptr; r = VXGetNextParam(read.Get(), r)) {
        keys += VXRecordKey(r) + std::string(" ") + std::to_string(VXRecordType(r)) + ",";
    }
    EXPECT_EQ(keys, "text\xFF 1,empty 1,number 2,long 3,binary 5,numbers 130,none 130,list 4,lists 132,");
    EXPECT_STREQ(VXGetStringValue(read.Get(), "text\xFF"), "a\xFE z");
    EXPECT_STREQ(VXGetStringValue(read.Get(), "empty"), "");
    EXPECT_EQ(VXGetInt32Value(read.Get(), "number"), -7);
    EXPECT_EQ(VXGetInt64Value(read.Get(), "long"), std::numeric_limits<i64>::min());
    EXPECT_EQ(std::memcmp(VXGetBinaryValue(read.Get(), "binary"), "\2\0\0\0\0x", 6), 0);
    const u8* numbers = VXRecordPayload(VXParamInfo(read.Get(), "numbers"));
    EXPECT_EQ(VXReadInt32(numbers), 3);
    EXPECT_EQ(VXReadInt32(numbers + 8), -2);
    EXPECT_EQ(VXReadInt32(numbers + 12), std::numeric_limits<i32>::min());
    EXPECT_EQ(VXReadInt32(VXRecordPayload(VXParamInfo(read.Get(), "none"))), 0);
    EXPECT_STREQ(VXGetStringValue(read.GetHandle("list").Get(), "name"), "in");
    const u8* lists = VXRecordPayload(VXParamInfo(read.Get(), "lists"));
    ASSERT_EQ(VXReadInt32(lists), 2);
    EXPECT_STREQ(VXGetStringValue(VXGetHandleById(read.Get(), VXReadInt32(lists + 4)), "name"), "in");
    EXPECT_EQ(VXGetParamCount(VXGetHandleById(read.Get(), VXReadInt32(lists + 8))), 0u);
}

TEST(ListCodecTest, NoListIsEncodedAsAnEmptyOne) {
    std::string bytes = "old";
    EXPECT_TRUE(EncodeParamList(nullptr, bytes));
    EXPECT_EQ(bytes, "");
    ParamListHolder read;
    EXPECT_TRUE(DecodeParamList("", read));
    EXPECT_EQ(VXGetParamCount(read.Get()), 0u);
    EXPECT_NE(read.Get(), nullptr);
}

TEST(ListCodecTest, TheGeneratedParserReadsTheSame) {
    ParamList message;
    ASSERT_TRUE(message.ParseFromString(Encode(MakeEverything())));
    ASSERT_EQ(message.params_size(), 9);
    EXPECT_EQ(message.params(0).key(), "text\xFF");
    EXPECT_EQ(message.params(3).long_number(), std::numeric_limits<i64>::min());
    EXPECT_EQ(message.params(5).numbers().values(1), -2);
    EXPECT_EQ(message.params(8).lists().lists(0).params(0).text(), "in");
}

TEST(ListCodecTest, ListsNested16DeepPassAndDeeperOnesDoNot) {
    ParamListHolder list;
    list.NewList();
    ParamList message;
    for (u32 depth = 2; depth <= 17; depth++) {
        ParamListHolder outer;
        outer.NewList();
        VXSetHandleValue(outer.Get(), "in", list.Get());
        list = outer;
        ParamList wrapped;
        wrapped.add_params()->set_key("in");
        *wrapped.mutable_params(0)->mutable_lists()->add_lists() = message;
        message = wrapped;
        std::string bytes;
        EXPECT_EQ(EncodeParamList(list.Get(), bytes), depth <= 16) << depth;
        EXPECT_EQ(Decodes(message.SerializeAsString()), depth <= 16) << depth;
    }
}

TEST(ListCodecTest, MoreThan64MegabytesAreNeitherEncodedNorDecoded) {
    ParamListHolder list;
    list.NewList();
    const std::string text((64u << 20) - 20, 'x');
    VXSetStringValue(list.Get(), "a", text.c_str());
    EXPECT_TRUE(Decodes(Encode(list)));
    VXSetStringValue(list.Get(), "b", "0123456789");
    std::string bytes;
    EXPECT_FALSE(EncodeParamList(list.Get(), bytes));
    EXPECT_FALSE(Decodes(std::string((64u << 20) + 1, '\0')));
}

TEST(ListCodecTest, MoreParametersThanAllowedAreRefused) {
    // Each list of an array counts as one, and so does each parameter, at whatever depth: 9 of its own, 2 lists in the
    // array, 1 parameter in the one of them and 1 in the nested list.
    const std::string bytes = Encode(MakeEverything());
    ParamListHolder list;
    EXPECT_TRUE(DecodeParamList(bytes, list, 13));
    EXPECT_FALSE(DecodeParamList(bytes, list, 12));
    EXPECT_EQ(VX::MaxParameters, 4'194'304u);
}

TEST(ListCodecTest, KeysThatNoRecordCanCarryAreRefused) {
    ParamList message = OneParam();
    EXPECT_TRUE(Decodes(message.SerializeAsString()));
    message.mutable_params(0)->set_key(std::string(253, 'k'));
    EXPECT_TRUE(Decodes(message.SerializeAsString()));
    for (const std::string& key : {std::string(254, 'k'), std::string(), std::string("a\0b", 3)}) {
        message.mutable_params(0)->set_key(key);
        EXPECT_FALSE(Decodes(message.SerializeAsString()));
    }
}

TEST(ListCodecTest, AKeyThatStandsTwiceIsRefused) {
    ParamList message = OneParam();
    *message.add_params() = message.params(0);
    EXPECT_FALSE(Decodes(message.SerializeAsString()));
}

TEST(ListCodecTest, ATextWithANulInItIsRefused) {
    ParamList message = OneParam();
    message.mutable_params(0)->set_text(std::string("a\0b", 3));
    EXPECT_FALSE(Decodes(message.SerializeAsString()));
}

TEST(ListCodecTest, AParameterWithoutAValueOrWithTwoIsRefused) {
    ParamList none;
    none.add_params()->set_key("key");
    EXPECT_FALSE(Decodes(none.SerializeAsString()));
    // key "k", number 1, number 1
    EXPECT_FALSE(Decodes(std::string("\x0A\x07\x0A\x01k\x18\x01\x18\x01", 9)));
    EXPECT_TRUE(Decodes(std::string("\x0A\x05\x0A\x01k\x18\x01", 7)));
}

TEST(ListCodecTest, TheValueMayStandInFrontOfItsKeyAndUnknownFieldsAreSkipped) {
    ParamListHolder list;
    // number 5, an unknown field 15 with bytes, key "k"; behind it an unknown field 9 of the list itself
    ASSERT_TRUE(DecodeParamList(std::string("\x0A\x09\x18\x05\x7A\x02zz\x0A\x01k\x48\x01", 13), list));
    EXPECT_EQ(VXGetInt32Value(list.Get(), "k"), 5);
}

TEST(ListCodecTest, NumbersMayComePackedOrOneByOne) {
    ParamListHolder list;
    // key "k", numbers: 1 unpacked, then 2 and 3 packed
    ASSERT_TRUE(DecodeParamList(std::string("\x0A\x0B\x0A\x01k\x3A\x06\x08\x01\x0A\x02\x02\x03", 13), list));
    const u8* payload = VXRecordPayload(VXParamInfo(list.Get(), "k"));
    ASSERT_EQ(VXReadInt32(payload), 3);
    EXPECT_EQ(VXReadInt32(payload + 4), 1);
    EXPECT_EQ(VXReadInt32(payload + 12), 3);
}

TEST(ListCodecTest, AMessageCutAnywhereIsRefusedOrShorter) {
    const std::string bytes = Encode(MakeEverything());
    u32 whole = 0;
    for (u64 length = 0; length < bytes.size(); length++) {
        ParamListHolder list;
        if (!DecodeParamList(bytes.substr(0, length), list)) continue;
        // Only between two parameters.
        EXPECT_LT(VXGetParamCount(list.Get()), 9u);
        whole++;
    }
    EXPECT_EQ(whole, 9u);
}

TEST(ListCodecTest, ARefusedMessageLeavesTheHolderAlone) {
    ParamListHolder list;
    list.NewList();
    const HVXPARAMLIST before = list.Get();
    EXPECT_FALSE(DecodeParamList("\xFF", list));
    EXPECT_EQ(list.Get(), before);
}

// Goal: no bytes do harm. Method: good messages with random damage, seeded; whatever is accepted must encode again to
// something that reads the same. The sanitizers watch.
TEST(ListCodecTest, DamagedMessagesDoNoHarm) {
    const std::string good = Encode(MakeEverything());
    std::mt19937 random(20240229);
    u32 accepted = 0;
    u32 refused = 0;
    for (int round = 0; round < 50'000; round++) {
        std::string bytes = good;
        for (u32 damage = 1 + random() % 4; damage > 0; damage--) {
            const u64 at = random() % bytes.size();
            switch (random() % 3) {
                case 0:
                    bytes[at] = static_cast<char>(random());
                    break;
                case 1:
                    bytes.erase(at, 1 + random() % 4);
                    break;
                default:
                    bytes.insert(at, 1, static_cast<char>(random()));
                    break;
            }
            if (bytes.empty()) break;
        }
        ParamListHolder list;
        if (!DecodeParamList(bytes, list)) {
            refused++;
            continue;
        }
        accepted++;
        const std::string again = Encode(list);
        ParamListHolder reread;
        ASSERT_TRUE(DecodeParamList(again, reread));
        ASSERT_EQ(Encode(reread), again);
    }
    EXPECT_GT(accepted, 1'000u);
    EXPECT_GT(refused, 1'000u);
}
