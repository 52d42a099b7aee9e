// Goal: guessing is slow, the right password is quick, and the log tells of it. Method: the gate over simulated time,
// with a password check that takes a simulated 100 ms and one caller at a time, as hashing does.
#include "ConfigService/LoginGate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"

namespace Orv {
namespace {

using ::testing::HasSubstr;

constexpr u64 kHashMilliseconds = 100;

class SlowCheck : public IPasswordCheck {
public:
    std::string FindHash(const std::string& name) const override { return name == "me" ? hash : ""; }
    bool Verify(const std::string& stored, const std::string& password) const override {
        Platform::LockGuard<Platform::Mutex> guard(mutex_);
        Platform::SleepMilliseconds(kHashMilliseconds);
        ++hashed;
        return !stored.empty() && password == stored.substr(5);
    }
    std::string hash = "hash:right";
    mutable u32 hashed = 0;

private:
    mutable Platform::Mutex mutex_;
};

class LoginGateTest : public ::testing::Test {
protected:
    // Runs `body` in simulated time.
    template <typename Body>
    void Simulate(const Body& body) {
        Platform::Sim::Simulation simulation;
        simulation.Run([&] {
            lines_.clear();
            ServiceLog log([this](const std::string& line) { lines_.push_back(line); });
            SlowCheck check;
            LoginGate gate(check, log);
            check_ = &check;
            gate_ = &gate;
            body();
        });
    }
    // The answer, and how long it took in milliseconds.
    std::pair<bool, u64> Login(const std::string& credentials, const std::string& remote = "ipv4:127.0.0.1:1000") {
        const u64 begin = Platform::SteadyMilliseconds();
        std::string user;
        const bool right = gate_->Check(credentials, remote, user);
        return {right, Platform::SteadyMilliseconds() - begin};
    }

    std::vector<std::string> lines_;
    SlowCheck* check_ = nullptr;
    LoginGate* gate_ = nullptr;
};

TEST_F(LoginGateTest, ThreeWrongAnswersComeAtOnceAndThenAtMostOneASecond) {
    Simulate([&] {
        std::vector<u64> answers;
        for (int i = 0; i < 6; ++i) {
            // A new connection, and so a new port, for each try: the address counts.
            EXPECT_FALSE(Login("me:wrong", "ipv4:127.0.0.1:" + std::to_string(2000 + i)).first);
            answers.push_back(Platform::SteadyMilliseconds());
        }
        EXPECT_EQ(answers[1] - answers[0], kHashMilliseconds);
        EXPECT_EQ(answers[2] - answers[1], kHashMilliseconds);
        for (int i = 3; i < 6; ++i) EXPECT_EQ(answers[i] - answers[i - 1], 1000u) << i;
    });
}

TEST_F(LoginGateTest, AttemptsSideBySideGetOneAnswerASecondTogether) {
    Simulate([&] {
        std::vector<u64> answers;
        std::vector<Platform::Thread> threads;
        const u64 begin = Platform::SteadyMilliseconds();
        for (int i = 0; i < 10; ++i) {
            threads.emplace_back("guess", [&] {
                EXPECT_FALSE(Login("me:wrong").first);
                answers.push_back(Platform::SteadyMilliseconds() - begin);
            });
        }
        for (Platform::Thread& thread : threads) thread.Join();
        ASSERT_EQ(answers.size(), 10u);
        EXPECT_LE(answers[2], 3 * kHashMilliseconds);
        for (int i = 3; i < 10; ++i) EXPECT_GE(answers[i] - answers[i - 1], 1000u) << i;
        EXPECT_LE(answers[9], 7 * 1000 + 10 * kHashMilliseconds);
    });
}

TEST_F(LoginGateTest, ARightPasswordIsAnsweredWithinTwoSecondsWhileTheSameAddressGuesses) {
    Simulate([&] {
        std::vector<Platform::Thread> threads;
        for (int i = 0; i < 10; ++i) {
            threads.emplace_back("guess", [&] {
                for (int j = 0; j < 3; ++j) Login("me:wrong");
            });
        }
        Platform::SleepMilliseconds(50);
        const auto [right, milliseconds] = Login("me:right");
        EXPECT_TRUE(right);
        EXPECT_LE(milliseconds, 2000u);
        for (Platform::Thread& thread : threads) thread.Join();
    });
}

TEST_F(LoginGateTest, APasswordThatWasRightBeforeIsKnownWithoutHashingEvenInAStorm) {
    Simulate([&] {
        EXPECT_TRUE(Login("me:right").first);
        std::vector<Platform::Thread> threads;
        for (int i = 0; i < 100; ++i) threads.emplace_back("guess", [&] { Login("me:wrong"); });
        Platform::SleepMilliseconds(10);
        const auto [right, milliseconds] = Login("me:right");
        EXPECT_TRUE(right);
        EXPECT_EQ(milliseconds, 0u);
        for (Platform::Thread& thread : threads) thread.Join();
        EXPECT_EQ(check_->hashed, 1u + 16u) << "of a hundred at a time sixteen are looked at";
    });
}

TEST_F(LoginGateTest, WhatComesOnTopOfSixteenAtATimeIsTurnedAwayAtOnceEvenIfItIsRight) {
    Simulate([&] {
        std::vector<Platform::Thread> threads;
        for (int i = 0; i < 16; ++i) threads.emplace_back("guess", [&] { Login("me:wrong"); });
        Platform::SleepMilliseconds(10);
        EXPECT_EQ(Login("me:right"), (std::pair<bool, u64>(false, 0)));
        EXPECT_EQ(Login("me:right"), (std::pair<bool, u64>(false, 0)));
        EXPECT_TRUE(Login("me:right", "ipv4:127.0.0.2:1").first) << "another address has sixteen of its own";
        for (Platform::Thread& thread : threads) thread.Join();
        EXPECT_TRUE(Login("me:right").first);
    });
    EXPECT_EQ(std::count_if(lines_.begin(), lines_.end(),
                            [](const std::string& line) { return line.find("turned away") != std::string::npos; }),
              1)
        << "one line a second";
}

TEST_F(LoginGateTest, FortyEightInAllAreUnderWayAtATime) {
    Simulate([&] {
        std::vector<Platform::Thread> threads;
        for (int i = 0; i < 60; ++i) {
            threads.emplace_back("guess", [&, i] { Login("me:wrong", "ipv4:127.0.0." + std::to_string(i) + ":1"); });
        }
        for (Platform::Thread& thread : threads) thread.Join();
        EXPECT_EQ(check_->hashed, 48u);
    });
}

TEST_F(LoginGateTest, ARememberedPasswordIsForgottenWithItsHash) {
    Simulate([&] {
        EXPECT_TRUE(Login("me:right").first);
        check_->hash = "hash:other";
        EXPECT_FALSE(Login("me:right").first);
        EXPECT_TRUE(Login("me:other").first);
        check_->hash = "";
        EXPECT_FALSE(Login("me:other").first);
    });
}

TEST_F(LoginGateTest, AnotherAddressIsNotSlowedDown) {
    Simulate([&] {
        for (int i = 0; i < 5; ++i) Login("me:wrong", "ipv4:127.0.0.1:1");
        EXPECT_EQ(Login("me:wrong", "ipv4:127.0.0.2:1").second, kHashMilliseconds);
    });
}

TEST_F(LoginGateTest, TenQuietMinutesForgive) {
    Simulate([&] {
        for (int i = 0; i < 5; ++i) Login("me:wrong");
        Platform::SleepMilliseconds(600000);
        EXPECT_EQ(Login("me:wrong").second, kHashMilliseconds);
    });
}

TEST_F(LoginGateTest, AnUnknownUserTakesAsLongAsAWrongPassword) {
    Simulate([&] {
        EXPECT_EQ(Login("nobody:x").second, kHashMilliseconds);
        EXPECT_FALSE(Login("nobody:").first);
    });
}

TEST_F(LoginGateTest, NonsenseIsRefusedWithoutHashing) {
    Simulate([&] {
        EXPECT_FALSE(Login("nocolon").first);
        EXPECT_FALSE(Login("").first);
        EXPECT_FALSE(Login("me:" + std::string(100000, 'x')).first);
        EXPECT_EQ(check_->hashed, 0u);
    });
}

TEST_F(LoginGateTest, EachWrongAttemptIsOneLineOfTheLogWithoutThePassword) {
    Simulate([&] { Login("mal\nlory:s3cret"); });
    ASSERT_EQ(lines_.size(), 1u);
    EXPECT_THAT(lines_[0], HasSubstr("Warn  Wrong credentials from ipv4:127.0.0.1:1000 for user \"mal?lory\""));
    EXPECT_EQ(lines_[0].find("s3cret"), std::string::npos);
}

TEST_F(LoginGateTest, StopAnswersThoseWhoWait) {
    Simulate([&] {
        for (int i = 0; i < 4; ++i) Login("me:wrong");
        u64 waited = 0;
        Platform::Thread guess("guess", [&] { waited = Login("me:wrong").second; });
        Platform::SleepMilliseconds(200);
        gate_->Stop();
        guess.Join();
        EXPECT_EQ(waited, 200u);
    });
}

TEST_F(LoginGateTest, ThePortIsNoPartOfAPeer) {
    EXPECT_EQ(LoginGate::PeerOf("ipv4:127.0.0.1:4711"), "ipv4:127.0.0.1");
    EXPECT_EQ(LoginGate::PeerOf("ipv6:[::1]:4711"), "ipv6:[::1]");
    EXPECT_EQ(LoginGate::PeerOf("in process"), "in process");
}

}  // namespace
}  // namespace Orv
