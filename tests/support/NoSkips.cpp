// Part of each test program. With ORV_NO_SKIP in the environment, as ./test.sh sets it for root, a test that skips
// itself fails: a machine on which it cannot be made is then found, and not passed over.
#include <gtest/gtest.h>

#include <cstdlib>

namespace {

class NoSkips : public testing::EmptyTestEventListener {
    void OnTestEnd(const testing::TestInfo& test) override {
        if (test.result()->Skipped()) ADD_FAILURE() << "It was skipped, which ORV_NO_SKIP does not allow";
    }
};

[[maybe_unused]] const bool kListens = [] {
    if (std::getenv("ORV_NO_SKIP") != nullptr) testing::UnitTest::GetInstance()->listeners().Append(new NoSkips);
    return true;
}();

}  // namespace
