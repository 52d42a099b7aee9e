// Goal: a test that skips itself is a failure where none may. Method: this program runs itself, once with and once
// without ORV_NO_SKIP, and is told to skip.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/Process.h"

namespace OrvTest {
namespace {

// Never part of a message: CTest takes a test that prints it for skipped.
constexpr char kSkipped[] = "[  SKIPPED ]";

TEST(NoSkips, ASkippedTestFailsWhereNoneMaySkip) {
    if (std::getenv("ORV_SKIP_THIS") != nullptr) GTEST_SKIP() << "told to";
    const auto skip = [](const std::string& noSkip) {
        return OrvTest::Run({std::filesystem::read_symlink("/proc/self/exe")}, "", 30000,
                            {{"ORV_SKIP_THIS", "1"}, {"ORV_NO_SKIP", noSkip}});
    };
    const RunResult allowed = skip("");
    EXPECT_EQ(allowed.exitCode, 0);
    EXPECT_NE(allowed.output.find(kSkipped), std::string::npos);
    const RunResult refused = skip("1");
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.output.find("told to"), std::string::npos) << "the reason is told";
    EXPECT_NE(refused.output.find("[  FAILED  ] NoSkips."), std::string::npos) << "and the name";
    EXPECT_EQ(refused.output.find(kSkipped), std::string::npos);
}

}  // namespace
}  // namespace OrvTest
