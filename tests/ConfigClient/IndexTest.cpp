#include "ConfigClient/Index.h"

#include <gtest/gtest.h>

#include "Rows.h"

namespace {

using ConfigConnection::char_pointer;
using ConfigConnection::combined_key;
using ConfigConnection::ConcreteIndex;
using ConfigConnection::IndexImpl;
using Ids = std::vector<i32>;

template <typename Key>
Ids All(const IndexImpl& index, const Key& key) {
    Ids ids;
    index.FindAll(ids, key);
    return ids;
}
Ids All(const IndexImpl& index) {
    Ids ids;
    index.GetAll(ids);
    return ids;
}

TEST(KeyTest, TextsCompareByBytesAsUnsignedValuesAndNullCountsAsEmpty) {
    EXPECT_TRUE(char_pointer("a") < char_pointer("b"));
    EXPECT_TRUE(char_pointer("B") < char_pointer("a"));
    EXPECT_TRUE(char_pointer("z") < char_pointer("\xC3\xA4"));
    EXPECT_TRUE(char_pointer(nullptr) < char_pointer("a"));
    EXPECT_FALSE(char_pointer(nullptr) < char_pointer(""));
    EXPECT_FALSE(char_pointer("") < char_pointer(nullptr));
    const std::string copy = "same";
    EXPECT_FALSE(char_pointer("same") < char_pointer(copy.c_str()));
}

TEST(KeyTest, CombinedKeysOrderByNumberThenByText) {
    EXPECT_TRUE((combined_key{-1, "z"} < combined_key{1, "a"}));
    EXPECT_TRUE((combined_key{1, "a"} < combined_key{1, "b"}));
    EXPECT_TRUE((combined_key{1, nullptr} < combined_key{1, "a"}));
    EXPECT_FALSE((combined_key{1, nullptr} < combined_key{1, ""}));
    EXPECT_EQ(sizeof(combined_key), 12u);
}

TEST(IndexTest, OfEqualKeysTheOneAddedFirstComesFirst) {
    ConcreteIndex<char_pointer> index("thename");
    index.Add("x", 9);
    index.Add("x", 3);
    index.Add("x", 5);
    EXPECT_EQ(index.FindOne("x", 0), 9);
    EXPECT_EQ(index.FindOne("x", 1), 3);
    EXPECT_EQ(index.FindOne("x", 2), 5);
    EXPECT_EQ(index.FindOne("x", 3), 0);
    EXPECT_EQ(All(index, char_pointer("x")), (Ids{9, 3, 5}));
}

TEST(IndexTest, ANegativePlaceStepsBackIntoLesserKeysAndOffTheMapGivesZero) {
    ConcreteIndex<i32> index("n");
    index.Add(10, 1);
    index.Add(20, 2);
    index.Add(20, 3);
    index.Add(30, 4);
    EXPECT_EQ(index.FindOne(30, -1), 3);
    EXPECT_EQ(index.FindOne(30, -3), 1);
    EXPECT_EQ(index.FindOne(30, -4), 0);
    EXPECT_EQ(index.FindOne(20, -1), 1);
    EXPECT_EQ(index.FindOne(10, -1), 0);
    EXPECT_EQ(index.FindOne(25, 0), 0);   // no such key
    EXPECT_EQ(index.FindOne(25, -1), 3);  // from the place where it would stand
    EXPECT_EQ(index.FindOne(99, -1), 4);
}

TEST(IndexTest, GetAllAndGetAtGoInTheOrderOfTheKeys) {
    ConcreteIndex<i32> index("n");
    EXPECT_EQ(index.GetAt(0), 0);
    index.Add(30, 1);
    index.Add(-10, 2);
    index.Add(20, 3);
    EXPECT_EQ(All(index), (Ids{2, 3, 1}));
    EXPECT_EQ(index.GetAt(0), 2);
    EXPECT_EQ(index.GetAt(2), 1);
    EXPECT_EQ(index.GetAt(3), 0);
    EXPECT_EQ(index.Count(), 3);
}

TEST(IndexTest, RemovingTakesTheEntryThatTheIdLeadsToWhateverTheKey) {
    ConcreteIndex<char_pointer> index("thename");
    index.Add("a", 1);
    index.Add("b", 2);
    index.Remove(char_pointer("b"), 1);
    EXPECT_EQ(index.FindOne("a", 0), 0);
    EXPECT_EQ(index.FindOne("b", 0), 2);
    index.Remove(char_pointer("a"), 7);
    EXPECT_EQ(index.Count(), 1);
}

TEST(IndexTest, ASecondEntryOfAnIdIsAnOrphanThatRemovingLeavesBehind) {
    ConcreteIndex<char_pointer> index("thename");
    index.Add("a", 1);
    index.Add("b", 1);
    EXPECT_EQ(index.Count(), 2);
    index.Remove(char_pointer("b"), 1);  // takes the first entry, "a"
    EXPECT_EQ(index.Count(), 1);
    EXPECT_EQ(index.FindOne("a", 0), 0);
    EXPECT_EQ(index.FindOne("b", 0), 1);
    index.Remove(char_pointer("b"), 1);
    EXPECT_EQ(index.Count(), 1);
}

TEST(IndexTest, ACombinedKeyWithANullTextStandsForEveryTextOfItsNumberInAFullSearch) {
    ConcreteIndex<combined_key> index("a_b", "a", "b");
    index.Add(combined_key{1, "x"}, 1);
    index.Add(combined_key{2, "z"}, 2);
    index.Add(combined_key{2, "y"}, 3);
    index.Add(combined_key{3, "a"}, 4);
    EXPECT_EQ(All(index, combined_key{2, nullptr}), (Ids{3, 2}));
    EXPECT_EQ(All(index, combined_key{2, "z"}), Ids{2});
    EXPECT_EQ(All(index, combined_key{2, ""}), Ids{});
    EXPECT_EQ(All(index, combined_key{4, nullptr}), Ids{});
    EXPECT_EQ(index.FindOne(combined_key{2, nullptr}, 0), 0);
    EXPECT_EQ(index.FindOne(combined_key{2, "y"}, 0), 3);
}

TEST(IndexTest, ACombinedIndexMakesItsKeyOfAnIntegerAndAText) {
    const ConcreteIndex<combined_key> index("num_txt", "num", "txt");
    const auto row = MakeRow({{"num", 7}, {"txt", "seven"}});
    const combined_key key = index.MakeKey(row.Get());
    EXPECT_EQ(i32{key.number}, 7);
    EXPECT_STREQ(key.text, "seven");
    const auto expectZero = [&index](const VX::ParamListHolder& other) {
        const combined_key zero = index.MakeKey(other.Get());
        EXPECT_EQ(i32{zero.number}, 0);
        EXPECT_TRUE(zero.text == nullptr);
    };
    expectZero(MakeRow({{"num", "7"}, {"txt", "seven"}}));
    expectZero(MakeRow({{"num", 7}, {"txt", 8}}));
    expectZero(MakeRow({{"num", 7}}));
    expectZero(MakeRow({{"txt", "seven"}}));
}

// Each kind has only the forms for its own key.
TEST(IndexTest, TheFormsOfOtherKeysFindAndAddNothing) {
    ConcreteIndex<char_pointer> text("f");
    text.Add(5, 1);
    text.Add(combined_key{5, "x"}, 1);
    EXPECT_EQ(text.Count(), 0);
    text.Add("x", 1);
    text.Remove(5, 1);
    text.Remove(combined_key{5, "x"}, 1);
    EXPECT_EQ(text.Count(), 1);
    EXPECT_EQ(text.FindOne(5, 0), 0);
    EXPECT_EQ(text.FindOne(combined_key{0, "x"}, 0), 0);
    EXPECT_EQ(All(text, 5), Ids{});
    EXPECT_EQ(All(text, combined_key{0, "x"}), Ids{});
    EXPECT_TRUE(text.MakeKey(MakeRow({{"f", "x"}}).Get()).text == nullptr);

    ConcreteIndex<i32> number("f");
    number.Add("x", 1);
    EXPECT_EQ(number.Count(), 0);
    number.Add(5, 1);
    number.Remove("x", 1);
    EXPECT_EQ(number.Count(), 1);
    EXPECT_EQ(number.FindOne("x", 0), 0);

    ConcreteIndex<combined_key> combined("a_b", "a", "b");
    combined.Add("x", 1);
    combined.Add(5, 1);
    EXPECT_EQ(combined.Count(), 0);
}

TEST(IndexTest, AnIndexKnowsItsNameAndWhetherItsKeyIsOneField) {
    EXPECT_TRUE(ConcreteIndex<char_pointer>("f").Simple());
    EXPECT_TRUE(ConcreteIndex<i32>("f").Simple());
    EXPECT_FALSE(ConcreteIndex<combined_key>("a_b", "a", "b").Simple());
    EXPECT_STREQ(ConcreteIndex<i32>("field").Name(), "field");
    EXPECT_EQ(std::string(ConcreteIndex<i32>(std::string(300, 'x').c_str()).Name()), std::string(255, 'x'));
    const MTObjects::THolder<IndexImpl> holder(new ConcreteIndex<i32>("f"));
    EXPECT_TRUE(holder.IsValid());
}

}  // namespace
