// Goal: the reader gets writes of one size, silence in front, and the right code; a reader that leaves is told from an
// output that fails. Method: a stream that keeps each write, and a real FIFO.
#include "Tools/orv-listen/StreamSinks.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/Process.h"

namespace Orv {
namespace {

using Platform::IOutputStream;

struct Kept {
    std::vector<std::vector<u8>> writes;
    IOutputStream::Outcome answer = IOutputStream::Outcome::Taken;
};

class KeepingStream : public IOutputStream {
public:
    explicit KeepingStream(Kept& kept) : kept_(kept) {}
    Outcome Write(const void* data, u64 size, u32, u64& taken, Platform::SystemError& error) override {
        error = 0;
        taken = 0;
        if (kept_.answer != Outcome::Taken) return kept_.answer;
        const u8* bytes = static_cast<const u8*>(data);
        kept_.writes.emplace_back(bytes, bytes + size);
        taken = size;
        return Outcome::Taken;
    }
    bool ReaderGone() const override { return kept_.answer == Outcome::Closed; }

private:
    Kept& kept_;
};

class StreamSink : public ::testing::Test {
protected:
    std::unique_ptr<ISoundSink> Make(const StreamFormat& format) {
        return MakeStreamSink(std::make_unique<KeepingStream>(kept_), format, stop_);
    }
    static std::vector<u8> Sound(std::size_t bytes) {
        std::vector<u8> sound(bytes);
        for (std::size_t i = 0; i < bytes; ++i) sound[i] = static_cast<u8>(i * 7 + 1);
        return sound;
    }

    Kept kept_;
    std::atomic<bool> stop_{false};
};

TEST_F(StreamSink, AllWritesHaveOneSizeButTheVeryLast) {
    const auto sink = Make({false, 20, 0});
    const std::vector<u8> sound = Sound(2000);
    EXPECT_EQ(sink->Begin(), SinkState::Open);
    EXPECT_EQ(sink->Write(sound.data(), 1000), SinkState::Open);
    EXPECT_EQ(sink->Write(sound.data() + 1000, 1000), SinkState::Open);
    ASSERT_EQ(kept_.writes.size(), 6u);
    for (const auto& write : kept_.writes) EXPECT_EQ(write.size(), 320u);
    EXPECT_EQ(sink->Finish(), SinkState::Open);
    ASSERT_EQ(kept_.writes.size(), 7u);
    EXPECT_EQ(kept_.writes[6].size(), 80u);
    std::vector<u8> all;
    for (const auto& write : kept_.writes) all.insert(all.end(), write.begin(), write.end());
    EXPECT_EQ(all, sound);
}

TEST_F(StreamSink, TheSilenceInFrontIsSentBeforeAnySound) {
    const auto sink = Make({false, 20, 100});
    EXPECT_EQ(sink->Begin(), SinkState::Open);
    ASSERT_EQ(kept_.writes.size(), 5u);
    for (const auto& write : kept_.writes) EXPECT_EQ(write, std::vector<u8>(320, 0));
}

TEST_F(StreamSink, MuLawIsHalfTheBytesAndItsSilenceIsFF) {
    const auto sink = Make({true, 20, 20});
    const std::vector<u8> silence(320, 0);
    EXPECT_EQ(sink->Begin(), SinkState::Open);
    EXPECT_EQ(sink->Write(silence.data(), silence.size()), SinkState::Open);
    ASSERT_EQ(kept_.writes.size(), 2u);
    EXPECT_EQ(kept_.writes[0], std::vector<u8>(160, 0xFF));
    EXPECT_EQ(kept_.writes[1], std::vector<u8>(160, 0xFF));
}

TEST_F(StreamSink, AReaderThatLeftIsNoFailure) {
    const auto sink = Make({});
    const std::vector<u8> sound = Sound(640);
    kept_.answer = IOutputStream::Outcome::Closed;
    EXPECT_TRUE(sink->ReaderGone());
    EXPECT_EQ(sink->Write(sound.data(), sound.size()), SinkState::ReaderGone);
    kept_.answer = IOutputStream::Outcome::Failed;
    EXPECT_EQ(sink->Write(sound.data(), sound.size()), SinkState::Failed);
}

TEST_F(StreamSink, AStopEndsAWriteThatWaits) {
    const auto sink = Make({});
    const std::vector<u8> sound = Sound(640);
    kept_.answer = IOutputStream::Outcome::TimedOut;
    stop_.store(true);
    EXPECT_EQ(sink->Write(sound.data(), sound.size()), SinkState::Failed);
}

TEST_F(StreamSink, AFifoDropsSoundWithoutAReaderAndGivesEachReaderItsOwnSilenceInFront) {
    const OrvTest::TempFolder folder;
    std::string reason;
    const auto sink = MakeFifoSink(folder / "f", {false, 20, 20}, stop_, reason);
    ASSERT_NE(sink, nullptr) << reason;
    const std::vector<u8> sound = Sound(320);
    EXPECT_EQ(sink->Begin(), SinkState::Open);
    EXPECT_EQ(sink->Write(sound.data(), sound.size()), SinkState::Open);
    for (int reader = 0; reader < 2; ++reader) {
        const int fifo = ::open((folder / "f").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        ASSERT_GE(fifo, 0);
        EXPECT_EQ(sink->Write(sound.data(), sound.size()), SinkState::Open);
        std::vector<u8> read(2000);
        const ssize_t count = ::read(fifo, read.data(), read.size());
        ASSERT_EQ(count, 640) << reader;
        EXPECT_EQ(std::vector<u8>(read.begin(), read.begin() + 320), std::vector<u8>(320, 0));
        EXPECT_EQ(std::vector<u8>(read.begin() + 320, read.begin() + 640), sound);
        ::close(fifo);
        ::signal(SIGPIPE, SIG_IGN);
        EXPECT_EQ(sink->Write(sound.data(), sound.size()), SinkState::Open) << "the reader has left";
    }
}

TEST_F(StreamSink, WhatIsNoFifoIsNotOverwritten) {
    const OrvTest::TempFolder folder;
    OrvTest::WriteFileText(folder / "f", "mine");
    std::string reason;
    EXPECT_EQ(MakeFifoSink(folder / "f", {}, stop_, reason), nullptr);
    EXPECT_EQ(reason, "something that is no FIFO stands there");
    EXPECT_EQ(OrvTest::ReadFileText(folder / "f"), "mine");
}

}  // namespace
}  // namespace Orv
