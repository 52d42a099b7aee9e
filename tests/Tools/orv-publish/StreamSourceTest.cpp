#include "Tools/orv-publish/StreamSource.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/Tools/orv-publish/Fakes.h"

namespace Orv {
namespace {

using PublishTest::Messages;
using PublishTest::Same;
using PublishTest::ScriptedStream;
using PublishTest::Sound;

// Reads to the end, `size` bytes at a time.
std::string ReadAll(ISource& source, u64 size) {
    std::string all;
    std::string bytes(size, '?');
    for (;;) {
        u64 taken = 99;
        const auto outcome = source.Read(reinterpret_cast<u8*>(bytes.data()), size, taken);
        EXPECT_EQ(taken % 2, 0u);
        all.append(bytes, 0, taken);
        if (outcome == ISource::Outcome::End) return all;
    }
}

class StreamSourceTest : public testing::Test {
protected:
    StreamSource Source(std::deque<std::string> pieces, Platform::SystemError error = 0) {
        return StreamSource(std::make_unique<ScriptedStream>(std::move(pieces), true, error),
                            [this](const std::string& text) { told_.push_back(text); });
    }
    Messages told_;
};

TEST_F(StreamSourceTest, SoundComesThroughInWholeSamplesHoweverItWasCut) {
    const std::string sound = Sound(1000);
    for (const u64 size : {2u, 4u, 6u, 250u, 4096u}) {
        std::deque<std::string> pieces;
        for (std::size_t at = 0, length = 1; at < sound.size(); at += length, length = length * 3 % 17 + 1) {
            pieces.push_back(sound.substr(at, length));
            pieces.push_back("");
        }
        StreamSource source = Source(pieces);
        EXPECT_TRUE(Same(ReadAll(source, size), sound)) << size;
        EXPECT_EQ(source.Result(), 0);
    }
}

TEST_F(StreamSourceTest, AByteWithoutItsPartnerIsDroppedAtTheEnd) {
    StreamSource source = Source({"abcde"});
    EXPECT_EQ(ReadAll(source, 100), "abcd");
    EXPECT_EQ(told_, (Messages{"standard input has ended after 0.000 s of sound."}));
}

TEST_F(StreamSourceTest, ItsEndIsTold) {
    StreamSource source = Source({Sound(24000)});
    ReadAll(source, 4096);
    EXPECT_EQ(told_, (Messages{"standard input has ended after 1.500 s of sound."}));
    EXPECT_EQ(source.Result(), 0);
}

TEST_F(StreamSourceTest, AReadThatFailsIsToldAndIsAFailure) {
    StreamSource source = Source({Sound(16000)}, EISDIR);
    ReadAll(source, 4096);
    EXPECT_EQ(told_, (Messages{"standard input cannot be read: Is a directory, after 1.000 s of sound."}));
    EXPECT_EQ(source.Result(), 1);
}

TEST_F(StreamSourceTest, AWavFilesHeaderIsSeenAndToldButPlayed) {
    StreamSource source = Source({"RIFF1234WAVE"});
    EXPECT_EQ(ReadAll(source, 100), "RIFF1234WAVE");
    ASSERT_EQ(told_.size(), 2u);
    EXPECT_NE(told_[0].find("use --wav FILE"), std::string::npos) << told_[0];
}

TEST_F(StreamSourceTest, TheSameLettersLaterOnAreSound) {
    StreamSource source = Source({"abcd", "RIFF"});
    ReadAll(source, 4);
    EXPECT_EQ(told_.size(), 1u);
}

}  // namespace
}  // namespace Orv
