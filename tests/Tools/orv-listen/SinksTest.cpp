#include "Tools/orv-listen/Sinks.h"

#include <gtest/gtest.h>

#include "tests/support/Process.h"

namespace Orv {
namespace {

using OrvTest::ReadFileText;
using OrvTest::TempFolder;

std::string Length(const std::string& bytes, std::size_t at) {
    std::size_t value = 0;
    for (int i = 3; i >= 0; --i)
        value = value << 8 | static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(i)]);
    return std::to_string(value);
}

TEST(WavSink, AFinishedFileStatesItsLengthsAndHoldsTheSound) {
    const TempFolder folder;
    std::string reason;
    auto sink = MakeWavSink(folder / "a.wav", reason);
    ASSERT_NE(sink, nullptr) << reason;
    const u8 sound[] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(sink->Write(sound, 6), SinkState::Open);
    EXPECT_EQ(sink->Finish(), SinkState::Open);
    const std::string bytes = ReadFileText(folder / "a.wav");
    ASSERT_EQ(bytes.size(), 50u);
    EXPECT_EQ(bytes.substr(0, 4), "RIFF");
    EXPECT_EQ(Length(bytes, 4), "42");
    EXPECT_EQ(bytes.substr(8, 8), "WAVEfmt ");
    EXPECT_EQ(Length(bytes, 24), "8000");
    EXPECT_EQ(Length(bytes, 40), "6");
    EXPECT_EQ(bytes.substr(44), std::string("\x01\x02\x03\x04\x05\x06"));
}

TEST(WavSink, AfterEachSecondTheLengthsStandInTheFileSoThatACutOffRecordingPlays) {
    const TempFolder folder;
    std::string reason;
    auto sink = MakeWavSink(folder / "a.wav", reason);
    ASSERT_NE(sink, nullptr) << reason;
    const std::string second(16000, 'x');
    EXPECT_EQ(sink->Write(reinterpret_cast<const u8*>(second.data()), second.size()), SinkState::Open);
    const std::string bytes = ReadFileText(folder / "a.wav");
    ASSERT_GE(bytes.size(), 44u);
    EXPECT_EQ(Length(bytes, 40), "16000");
}

TEST(WavSink, AFileThatCannotBeMadeHasAReason) {
    std::string reason;
    EXPECT_EQ(MakeWavSink("/nowhere/at/all.wav", reason), nullptr);
    EXPECT_EQ(reason, "No such file or directory");
}

}  // namespace
}  // namespace Orv
