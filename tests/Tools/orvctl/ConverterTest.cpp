// Goal: however orv-convert ends, or does not, the person is told why and is kept waiting no longer than allowed.
// Method: scripts in its place that end in each way; the path of the output is the last argument of each.
#include "Tools/orvctl/Converter.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/support/Process.h"

namespace Orv {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kDone[] =
    R"(echo '{"done":{"format":"FLAC","rate":44100,"channels":2,"seconds":1.5,"lufs":null,"factor":1,"notes":[]}}')";

class ConvertFileTest : public testing::Test {
protected:
    // What comes of a file when this script stands in the place of the program.
    Converted Convert(const std::string& script, u32 spareSeconds = 60) {
        ConvertSettings settings;
        settings.program = folder_ / "orv-convert";
        settings.seconds = 1;
        settings.spareSeconds = spareSeconds;
        OrvTest::WriteFileText(settings.program, "#!/bin/sh\necho $$ >'" + Number() + "'\n" + script + "\n");
        EXPECT_EQ(::chmod(settings.program.c_str(), 0755), 0);
        return ConvertFile(
            "song.flac", folder_ / "song.wav", settings,
            [this](double share) { stop_.store(stopAtProgress_ && share > 0.0); }, stop_);
    }
    std::string Number() const { return folder_ / "number"; }
    // One that was ended before it could write its number runs no longer either.
    bool ProgramRuns() const {
        const std::string number = OrvTest::ReadFileText(Number());
        return !number.empty() && ::kill(std::stoi(number), 0) == 0;
    }

    OrvTest::TempFolder folder_;
    std::atomic<bool> stop_{false};
    bool stopAtProgress_ = false;
};

TEST_F(ConvertFileTest, WhatWasDoneIsTold) {
    const Converted done = Convert(kDone);
    EXPECT_EQ(done.refusal, "");
    EXPECT_EQ(done.format, "FLAC");
    EXPECT_EQ(done.rate, 44100u);
    EXPECT_EQ(done.seconds, 1.5);
}

TEST_F(ConvertFileTest, ADecoderThatBreaksIsTheFilesFault) {
    EXPECT_EQ(Convert("kill -SEGV $$").refusal, "broke the decoder (signal 11); it is damaged, or made to do so");
    EXPECT_EQ(Convert("kill -ABRT $$").refusal, "broke the decoder (signal 6); it is damaged, or made to do so");
}

// A program that the system had ended for want of memory was told as a damaged file, which it is not.
TEST_F(ConvertFileTest, AnEndByOthersIsNotTheFilesFault) {
    for (const std::string signal : {"KILL", "TERM"}) {
        EXPECT_THAT(Convert("kill -" + signal + " $$").refusal,
                    AllOf(HasSubstr("for want of memory"), HasSubstr("import it again"), Not(HasSubstr("damaged"))));
    }
}

TEST_F(ConvertFileTest, TheTimeLimitNamesTheOptionThatRaisesIt) {
    EXPECT_EQ(Convert("kill -XCPU $$").refusal,
              "takes more than the 1 s of processor time that it may have (--time-limit)");
}

TEST_F(ConvertFileTest, AnEndWithoutAnAnswerIsARefusalWhateverTheCode) {
    EXPECT_EQ(Convert("exit 0").refusal, "could not be converted: orv-convert ended with code 0");
    EXPECT_EQ(Convert("exit 3").refusal, "could not be converted: orv-convert ended with code 3");
    EXPECT_EQ(Convert(std::string(kDone) + "\nexit 1").refusal,
              "could not be converted: orv-convert ended with code 1");
    EXPECT_THAT(Convert("echo '{\"done\":{}}'").refusal, HasSubstr("is it of this version?"));
}

TEST_F(ConvertFileTest, AProgramThatIsNotThereIsNamed) {
    const Converted done = ConvertFile(
        "a", "b", {folder_ / "none", {}, 16, 1, 60}, [](double) {}, stop_);
    EXPECT_EQ(done.refusal,
              "could not be converted: " + (folder_ / "none") + " cannot be started, No such file or directory");
}

TEST_F(ConvertFileTest, AFileThatIsNotReadInTimeIsGivenUpAndItsProgramEnded) {
    EXPECT_EQ(Convert("exec sleep 1000", 0).refusal,
              "could not be converted within 1 s; look at the disk that it lies on");
    EXPECT_FALSE(ProgramRuns());
}

// The end of its output was taken for its own end, for which there was neither a limit nor a stop.
TEST_F(ConvertFileTest, AProgramThatGoesOnWithoutItsOutputIsGivenUpInTimeToo) {
    EXPECT_THAT(Convert("exec sleep 1000 >&-", 0).refusal, HasSubstr("within 1 s"));
    EXPECT_FALSE(ProgramRuns());
}

TEST_F(ConvertFileTest, AStopEndsTheProgram) {
    stopAtProgress_ = true;
    EXPECT_EQ(Convert("echo '{\"progress\":0.5}'; exec sleep 1000").refusal, "was not converted: stopped");
    ASSERT_NE(OrvTest::ReadFileText(Number()), "");
    EXPECT_FALSE(ProgramRuns());
}

}  // namespace
}  // namespace Orv
