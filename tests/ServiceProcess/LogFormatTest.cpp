#include "ServiceProcess/LogFormat.h"

#include <gtest/gtest.h>

namespace {

constexpr Platform::CalendarTime kMoment{2024, 3, 5, 13, 5, 9, 123};

TEST(LogFormatTest, ALineStartsWithItsTimeAndAThreadIdOfEightDigits) {
    EXPECT_STREQ(Orv::LogLineStart(kMoment, 4712).text, "13:05:09.123|00004712|");
    EXPECT_STREQ(Orv::LogLineStart({2024, 1, 1, 0, 0, 0, 0}, 1).text, "00:00:00.000|00000001|");
}

TEST(LogFormatTest, AThreadIdOfMoreThanEightDigitsIsWrittenInFull) {
    EXPECT_STREQ(Orv::LogLineStart(kMoment, 123456789).text, "13:05:09.123|123456789|");
    EXPECT_STREQ(Orv::LogLineStart(kMoment, 18446744073709551615u).text, "13:05:09.123|18446744073709551615|");
}

TEST(LogFormatTest, TheDateLineHasFourTwoAndTwoDigits) {
    EXPECT_STREQ(Orv::LogDateLine(kMoment).text, "#Date: 2024/03/05\n");
}

TEST(LogFormatTest, FileStampAndDayFolderArePaddedWithZeros) {
    EXPECT_EQ(Orv::LogFileStamp(kMoment), ".2024-03-05.130509");
    EXPECT_EQ(Orv::LogDayFolder(kMoment), "./20240305/");
}

}  // namespace
