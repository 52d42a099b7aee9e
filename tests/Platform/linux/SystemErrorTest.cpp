#include "Platform/SystemError.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace Platform {
namespace {

TEST(SystemErrorTest, ANumberHasTheSystemsText) {
    EXPECT_EQ(SystemErrorText(ENOENT), "No such file or directory");
    EXPECT_EQ(SystemErrorText(0), "Success");
}

TEST(SystemErrorTest, ANumberThatTheSystemDoesNotKnowHasNoText) {
    EXPECT_EQ(SystemErrorText(100000), "");
    EXPECT_EQ(SystemErrorText(0xFFFFFFFF), "");
}

}  // namespace
}  // namespace Platform
