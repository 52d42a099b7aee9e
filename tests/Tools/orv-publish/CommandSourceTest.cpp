// Goal: a command's runs, ends and restarts, in simulated time. Method: scripted runs instead of processes.
#include "Tools/orv-publish/CommandSource.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"
#include "tests/Tools/orv-publish/Fakes.h"

namespace Orv {
namespace {

using PublishTest::Messages;
using PublishTest::Same;
using PublishTest::ScriptedStream;
using PublishTest::Sound;

// One run: what it writes, and how it ends; without an end it goes on after its output has ended.
struct ScriptedRun {
    std::string output;
    std::optional<Platform::CommandEnd> end;
};

class ScriptedCommand : public Platform::IRunningCommand {
public:
    explicit ScriptedCommand(ScriptedRun run) : end_(run.end), stream_({std::move(run.output)}) {}
    Platform::IInputStream& Output() override { return stream_; }
    bool Ended(Platform::CommandEnd& end) override {
        if (end_) end = *end_;
        return end_.has_value();
    }

private:
    const std::optional<Platform::CommandEnd> end_;
    ScriptedStream stream_;
};

class CommandSourceTest : public testing::Test {
protected:
    // Plays the runs through, one read each 20 ms; stops at the end or when there is no run left to start.
    std::string Play(std::deque<ScriptedRun> runs, bool restart) {
        std::string all;
        sim_.Run([&] {
            bool over = false;
            const auto start = [&](Platform::SystemError& error) -> std::unique_ptr<Platform::IRunningCommand> {
                error = EAGAIN;
                starts_.push_back(sim_.Elapsed() / 1'000'000);
                over = runs.empty();
                if (runs.empty()) return nullptr;
                ScriptedRun run = runs.front();
                runs.pop_front();
                return std::make_unique<ScriptedCommand>(run);
            };
            CommandSource source(start, restart, [this](const std::string& text) { told_.push_back(text); });
            u8 bytes[8000];
            for (;;) {
                u64 taken = 0;
                const auto outcome = source.Read(bytes, sizeof bytes, taken);
                all.append(reinterpret_cast<const char*>(bytes), taken);
                if (outcome == ISource::Outcome::End || over) break;
                if (outcome == ISource::Outcome::Nothing) Platform::SleepMilliseconds(20);
            }
            result_ = source.Result();
        });
        return all;
    }

    Platform::Sim::Simulation sim_;
    Messages told_;
    std::vector<u64> starts_;
    i32 result_ = -1;
};

TEST_F(CommandSourceTest, ItsOutputPlaysAndItsEndIsTold) {
    EXPECT_TRUE(Same(Play({{Sound(24000), Platform::CommandEnd{0, 0}}}, false), Sound(24000)));
    EXPECT_EQ(told_, (Messages{"the command ended with exit code 0 after 1.500 s of sound."}));
    EXPECT_EQ(result_, 0);
}

TEST_F(CommandSourceTest, AnExitCodeOrASignalIsToldAndIsAFailure) {
    Play({{Sound(16000), Platform::CommandEnd{3, 0}}}, false);
    EXPECT_EQ(result_, 4);
    Play({{"", Platform::CommandEnd{-1, 9}}}, false);
    EXPECT_EQ(result_, 4);
    Play({{"", Platform::CommandEnd{127, 0}}}, false);
    EXPECT_EQ(result_, 4);
    EXPECT_EQ(told_,
              (Messages{"the command ended with exit code 3 after 1.000 s of sound.",
                        "the command was ended by signal 9 after 0.000 s of sound.",
                        "the command ended with exit code 127 after 0.000 s of sound (the shell has not found it)."}));
}

TEST_F(CommandSourceTest, ACommandThatClosesItsOutputAndStaysIsEndedAfterTwoSeconds) {
    Play({{Sound(16000), std::nullopt}}, false);
    EXPECT_EQ(told_, (Messages{"the command has closed its output after 1.000 s of sound, and was ended."}));
    EXPECT_EQ(result_, 0);
    EXPECT_EQ(sim_.Elapsed() / 1'000'000, 2000u);
}

TEST_F(CommandSourceTest, OneThatCannotBeStartedIsAFailureOfTheSource) {
    Play({}, false);
    EXPECT_EQ(told_, (Messages{"the command cannot be started: Resource temporarily unavailable."}));
    EXPECT_EQ(result_, 1);
}

TEST_F(CommandSourceTest, ARestartFollowsEachEndAfterWaitsThatDoubleUpToThirtySeconds) {
    const ScriptedRun failing{Sound(100), Platform::CommandEnd{1, 0}};
    const std::string heard = Play({failing, failing, failing, failing, failing, failing, failing}, true);
    EXPECT_EQ(heard.size(), 700u);
    ASSERT_EQ(starts_.size(), 8u);
    EXPECT_EQ(starts_, (std::vector<u64>{0, 1000, 3000, 7000, 15000, 31000, 61000, 91000}));
    EXPECT_EQ(told_[0], "the command ended with exit code 1 after 0.006 s of sound; it is started again in 1 s.");
    EXPECT_EQ(told_[6], "the command ended with exit code 1 after 0.006 s of sound; it is started again in 30 s.");
}

TEST_F(CommandSourceTest, ARunOfTenSecondsOfSoundBeginsTheWaitsAnew) {
    const ScriptedRun failing{Sound(2), Platform::CommandEnd{1, 0}};
    Play({failing, failing, {Sound(160000), Platform::CommandEnd{0, 0}}}, true);
    EXPECT_EQ(starts_, (std::vector<u64>{0, 1000, 3000, 4000}));
}

TEST_F(CommandSourceTest, AHalfSampleOfOneRunIsNotJoinedToTheNext) {
    EXPECT_EQ(Play({{"abc", Platform::CommandEnd{0, 0}}, {"defg", Platform::CommandEnd{0, 0}}}, true), "abdefg");
}

}  // namespace
}  // namespace Orv
