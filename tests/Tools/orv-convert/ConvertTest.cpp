// Goal: what comes out is what went in, at 8000 Hz, one channel, the loudness asked for and no peak cut off.
// Method: tones whose level and loudness follow from their formulas, given by a sound file of the test's own.
#include "Tools/orv-convert/Convert.h"

#include <gmock/gmock.h>

#include <cmath>
#include <numbers>

#include "Tools/orv-convert/Resampler.h"
#include "tests/support/Process.h"

namespace Orv {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class Tone : public ISoundFile {
public:
    Tone(u32 rate, u32 channels, double seconds, double left, double right, double hertz = 1000.0)
        : rate_(rate),
          channels_(channels),
          frames_(static_cast<u64>(seconds * rate)),
          levels_{left, right},
          hertz_(hertz) {}
    const char* Format() const override { return "WAV"; }
    u32 Rate() const override { return rate_; }
    u32 Channels() const override { return channels_; }
    u64 StatedFrames() const override { return stated ? *stated : frames_; }
    const std::vector<float>& Read(u64 frames) override {
        samples_.clear();
        for (; frames > 0 && at_ < frames_; --frames, ++at_) {
            const double value = std::sin(2.0 * std::numbers::pi * hertz_ * static_cast<double>(at_) / rate_);
            for (u32 c = 0; c < channels_; ++c) samples_.push_back(static_cast<float>(levels_[c] * value));
        }
        return samples_;
    }
    std::optional<u64> stated;

private:
    const u32 rate_;
    const u32 channels_;
    const u64 frames_;
    const double levels_[2];
    const double hertz_;
    u64 at_ = 0;
    std::vector<float> samples_;
};

Conversion Converted(ISoundFile& file, std::optional<double> target = std::nullopt, double longest = 100.0) {
    return Convert(file, target, {longest}, [](double) {});
}

double RmsDb(const std::vector<i16>& samples) {
    double squares = 0.0;
    for (const i16 sample : samples) squares += static_cast<double>(sample) * sample;
    return 10.0 * std::log10(squares / static_cast<double>(samples.size()) / 32768.0 / 32768.0);
}

i32 Peak(const std::vector<i16>& samples) {
    i32 peak = 0;
    for (const i16 sample : samples) peak = std::max(peak, std::abs(static_cast<i32>(sample)));
    return peak;
}

std::string WhyRefused(ISoundFile& file, double longest) {
    try {
        Converted(file, std::nullopt, longest);
    } catch (const Refusal& refusal) {
        return refusal.what();
    }
    return "(none)";
}

TEST(Convert, AnyRateBecomes8000HzOfTheSameLengthAndLevel) {
    for (const u32 rate : {8000u, 11025u, 16000u, 22050u, 44100u, 48000u, 96000u}) {
        Tone tone(rate, 1, 3.0, 0.5, 0.5);
        const Conversion result = Converted(tone);
        EXPECT_EQ(result.samples.size(), 24000u) << rate;
        // A sine of half of full scale: -6.02 dB, and 3.01 dB less for its mean.
        EXPECT_NEAR(RmsDb(result.samples), -9.03, 0.02) << rate;
    }
}

TEST(Convert, WhatTheTelephoneCannotCarryIsFilteredOutInsteadOfFoldedBack) {
    Tone tone(48000, 1, 2.0, 0.5, 0.5, 5000.0);
    const Conversion result = Converted(tone);
    const std::vector<i16> middle(result.samples.begin() + 4000, result.samples.end() - 4000);
    EXPECT_LE(Peak(middle), 1);
}

TEST(Convert, StereoBecomesTheMeanOfBoth) {
    Tone tone(8000, 2, 1.0, 0.5, 0.25);
    EXPECT_NEAR(RmsDb(Converted(tone).samples), 20.0 * std::log10(0.375) - 3.01, 0.02);
}

TEST(Convert, LeftAndRightThatCancelEachOtherAreTold) {
    Tone tone(8000, 2, 1.0, 0.5, -0.49);
    EXPECT_THAT(Converted(tone).notes, Contains(HasSubstr("cancel each other")));
}

// By its definition a 1000 Hz sine of full scale has -3.01 LUFS in one channel; of a tenth, -23.01.
TEST(Convert, TheLoudnessAskedForIsReached) {
    for (const double level : {0.02, 0.1, 0.9}) {
        Tone tone(48000, 1, 5.0, level, level);
        const Conversion result = Converted(tone, -23.0);
        ASSERT_TRUE(result.before.lufs);
        EXPECT_NEAR(*result.before.lufs, 20.0 * std::log10(level) - 3.01, 0.1);
        EXPECT_NEAR(RmsDb(result.samples), -23.0, 0.15) << level;
        EXPECT_THAT(result.notes, IsEmpty());
    }
}

TEST(Convert, ALoudnessThatWouldCutPeaksIsHeldBelowThem) {
    Tone tone(8000, 1, 5.0, 0.1, 0.1);
    const Conversion result = Converted(tone, 0.0);
    EXPECT_TRUE(result.change.heldByPeak);
    EXPECT_LE(Peak(result.samples), 29205);  // 1 dB below full scale
    EXPECT_GE(Peak(result.samples), 28500);
    EXPECT_THAT(result.notes, Contains(HasSubstr("held at -4.0 LUFS by its peaks")));
}

TEST(Convert, WithoutALoudnessTheLevelStaysUnlessPeaksWouldBeCut) {
    Tone quiet(8000, 1, 1.0, 0.05, 0.05);
    EXPECT_EQ(Converted(quiet).change.factor, 1.0);
    Tone over(8000, 1, 1.0, 2.0, 2.0);
    const Conversion result = Converted(over);
    EXPECT_LE(Peak(result.samples), 29205);
    EXPECT_THAT(result.notes, Contains(HasSubstr("or its peaks would be cut off")));
}

TEST(Convert, SilenceStaysSilenceAndIsTold) {
    Tone silence(44100, 2, 2.0, 0.0, 0.0);
    const Conversion result = Converted(silence, -23.0);
    EXPECT_EQ(Peak(result.samples), 0);
    EXPECT_THAT(result.notes, Contains("is silent"));
}

TEST(Convert, APieceTooShortToMeasureKeepsItsLevel) {
    Tone tone(8000, 1, 0.2, 0.5, 0.5);
    const Conversion result = Converted(tone, -23.0);
    EXPECT_EQ(result.change.factor, 1.0);
    EXPECT_THAT(result.notes, Contains(HasSubstr("its level was kept")));
}

TEST(Convert, ANumberThatIsNoneBecomesSilence) {
    Tone tone(8000, 1, 1.0, std::nan(""), 0.0);
    EXPECT_EQ(Peak(Converted(tone).samples), 0);
}

TEST(Convert, WhatIsTooLongIsRefusedByItsHeaderAndByItsSound) {
    Tone tone(8000, 1, 61.0, 0.1, 0.1);
    EXPECT_EQ(WhyRefused(tone, 60.0), "is longer than 1 minutes; cut it into pieces");
    Tone unknown(8000, 1, 61.0, 0.1, 0.1);
    unknown.stated = 0;
    EXPECT_EQ(WhyRefused(unknown, 60.0), "is longer than 1 minutes; cut it into pieces");
    Tone none(8000, 1, 0.0, 0.1, 0.1);
    EXPECT_EQ(WhyRefused(none, 60.0), "holds no sound");
}

TEST(WavBytes, TheHeaderStatesTheFeedsFormat) {
    const std::string bytes = WavBytes({1, -2});
    EXPECT_EQ(bytes, std::string("RIFF\x28\0\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\x40\x1F\0\0\x80\x3E\0\0\x02\0\x10\0"
                                 "data\x04\0\0\0\x01\0\xFE\xFF",
                                 48));
}

TEST(OpenSoundFile, WhatIsNoSoundIsRefusedWithAReason) {
    const OrvTest::TempFolder folder;
    const auto why = [&](const std::string& content) -> std::string {
        OrvTest::WriteFileText(folder / "f", content);
        Platform::SystemError error = 0;
        const auto file = Platform::OpenReadFile(folder / "f", error);
        try {
            OpenSoundFile(*file);
        } catch (const Refusal& refusal) {
            return refusal.what();
        }
        return "(none)";
    };
    EXPECT_EQ(why(""), "is empty");
    EXPECT_THAT(why("a letter to the editor, which nobody would play\n"),
                HasSubstr("is no sound file that can be read"));
    EXPECT_THAT(why(std::string(5000, '\0')), HasSubstr("is no sound file"));
    EXPECT_EQ(why(WavBytes({1, 2, 3})), "(none)");
}

}  // namespace
}  // namespace Orv
