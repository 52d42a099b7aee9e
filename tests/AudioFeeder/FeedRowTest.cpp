#include "AudioFeeder/FeedRow.h"

#include <gtest/gtest.h>

#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using FeederTest::MakeList;
using Orv::FeedRow;

TEST(FeedRow, AnEmptyRowHasNoFieldAndReadsAsEmptyTextAndZero) {
    const FeedRow row;
    EXPECT_FALSE(row.Has("thename"));
    EXPECT_STREQ(row.Text("thename"), "");
    EXPECT_EQ(row.Number("feedtype"), 0);
    EXPECT_EQ(row.flag, 0);
}

TEST(FeedRow, AFieldIsReadFromTheOverrideListIfThatHasItAndElseFromTheBaseList) {
    FeedRow row(MakeList({{"thename", "base"}, {"thefile", "file"}, {"thetype", 1}, {"feedtype", 2}}));
    row.overrides = MakeList({{"thename", "override"}, {"thetype", 7}});
    EXPECT_STREQ(row.Text("thename"), "override");
    EXPECT_STREQ(row.Text("thefile"), "file");
    EXPECT_EQ(row.Number("thetype"), 7);
    EXPECT_EQ(row.Number("feedtype"), 2);
    EXPECT_TRUE(row.Has("thename"));
    EXPECT_TRUE(row.Has("thefile"));
    EXPECT_FALSE(row.Has("pipename"));
}

TEST(FeedRow, AFieldOfTheOverrideListHidesTheBaseEvenWhenItsTypeIsAnother) {
    FeedRow row(MakeList({{"thename", "base"}}));
    row.overrides = MakeList({{"thename", 5}});
    EXPECT_STREQ(row.Text("thename"), "");
}

}  // namespace
