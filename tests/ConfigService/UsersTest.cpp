// Goal: users come, change and go with their rules, and their passwords are kept as Argon2id hashes only.
#include "ConfigService/Users.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "Platform/Clock.h"
#include "tests/support/Process.h"

namespace Orv {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class UsersTest : public ::testing::Test {
protected:
    void SetUp() override {
        users_ = Open();
        ASSERT_EQ(users_->Add("root", Role::Admin, "secret").outcome, UserOutcome::Done);
    }
    std::unique_ptr<Users> Open() const {
        std::string reason;
        auto users = Users::Open(folder_ / "config.db", reason);
        EXPECT_NE(users, nullptr) << reason;
        return users;
    }
    bool Right(const std::string& name, const std::string& password) const {
        return users_->Verify(users_->FindHash(name), password);
    }

    OrvTest::TempFolder folder_;
    std::unique_ptr<Users> users_;
};

TEST_F(UsersTest, TheRightPasswordMatchesAndNoOther) {
    EXPECT_TRUE(Right("root", "secret"));
    EXPECT_FALSE(Right("root", "Secret"));
    EXPECT_FALSE(Right("root", ""));
    EXPECT_FALSE(Right("nobody", "secret"));
    EXPECT_FALSE(users_->Verify("", ""));
}

TEST_F(UsersTest, ThePasswordIsKeptAsAnArgon2idHash) {
    EXPECT_THAT(users_->FindHash("root"), StartsWith("$argon2id$v=19$m=32768,t=3,p=1$"));
    users_.reset();
    EXPECT_EQ(OrvTest::ReadFileText(folder_ / "config.db").find("secret"), std::string::npos);
}

TEST_F(UsersTest, OneLoginCostsWellUnderHalfASecond) {
    u64 best = UINT64_MAX;
    for (int i = 0; i < 3; ++i) {
        const u64 begin = Platform::SteadyMilliseconds();
        EXPECT_TRUE(Right("root", "secret"));
        best = std::min(best, Platform::SteadyMilliseconds() - begin);
    }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(best, 400u);
#endif
    EXPECT_GT(best, 5u) << "a hash that costs nothing protects nothing";
}

TEST_F(UsersTest, UsersOutliveTheProcess) {
    ASSERT_EQ(users_->Add("feeder", Role::Reader, "x").outcome, UserOutcome::Done);
    users_ = Open();
    const std::vector<User> list = users_->List();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].name, "feeder");
    EXPECT_EQ(list[0].role, Role::Reader);
    EXPECT_EQ(list[1].name, "root");
    EXPECT_EQ(list[1].role, Role::Admin);
    EXPECT_TRUE(Right("feeder", "x"));
}

TEST_F(UsersTest, AChangeByAnotherProgramIsSeenAtOnce) {
    ASSERT_EQ(Open()->Add("other", Role::Reader, "x").outcome, UserOutcome::Done);
    EXPECT_TRUE(Right("other", "x"));
    EXPECT_EQ(users_->FindRole("other"), Role::Reader);
}

TEST_F(UsersTest, ATakenNameIsRefused) {
    const UserResult result = users_->Add("root", Role::Reader, "x");
    EXPECT_EQ(result.outcome, UserOutcome::Refused);
    EXPECT_EQ(result.field, "name");
    EXPECT_TRUE(Right("root", "secret"));
}

TEST_F(UsersTest, BadNamesAndPasswordsAreRefusedWithTheField) {
    EXPECT_EQ(users_->Add("a:b", Role::Reader, "x").field, "name");
    EXPECT_EQ(users_->Add("ab", Role::Reader, "a\"b").field, "password");
    EXPECT_EQ(users_->SetPassword("root", "a ").field, "password");
    EXPECT_TRUE(Right("root", "secret"));
    EXPECT_EQ(users_->List().size(), 1u);
}

TEST_F(UsersTest, APasswordAndARoleCanBeChanged) {
    ASSERT_EQ(users_->Add("feeder", Role::Reader, "x").outcome, UserOutcome::Done);
    EXPECT_EQ(users_->SetPassword("feeder", "y").outcome, UserOutcome::Done);
    EXPECT_FALSE(Right("feeder", "x"));
    EXPECT_TRUE(Right("feeder", "y"));
    EXPECT_EQ(users_->SetRole("feeder", Role::Admin).outcome, UserOutcome::Done);
    EXPECT_EQ(users_->FindRole("feeder"), Role::Admin);
}

TEST_F(UsersTest, TheLastAdminStays) {
    ASSERT_EQ(users_->Add("feeder", Role::Reader, "x").outcome, UserOutcome::Done);
    EXPECT_THAT(users_->Remove("root").text, HasSubstr("last user of role admin"));
    EXPECT_EQ(users_->SetRole("root", Role::Reader).outcome, UserOutcome::Refused);
    EXPECT_EQ(users_->SetRole("root", Role::Admin).outcome, UserOutcome::Done);
    ASSERT_EQ(users_->Add("second", Role::Admin, "x").outcome, UserOutcome::Done);
    EXPECT_EQ(users_->Remove("root").outcome, UserOutcome::Done);
    EXPECT_FALSE(users_->FindRole("root").has_value());
}

TEST_F(UsersTest, AMissingUserIsToldAsMissing) {
    EXPECT_EQ(users_->Remove("x").outcome, UserOutcome::NotFound);
    EXPECT_EQ(users_->SetRole("x", Role::Admin).outcome, UserOutcome::NotFound);
    EXPECT_EQ(users_->SetPassword("x", "y").outcome, UserOutcome::NotFound);
}

}  // namespace
}  // namespace Orv
