#include "AudioFeeder/ChannelConnection.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <stdexcept>
#include <vector>

#include "AudioFeeder/PipeListener.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace {

using FeederTest::Constant;
using FeederTest::Noise;
using FeederTest::RawBytes;
using FeederTest::Samples;
using Orv::BufferTransportImpl;
using Orv::ChannelConnection;

// What was written, shared with the test, since the connection owns its pipe.
struct Wire {
    std::string bytes;
    std::vector<u64> sizes;  // of each write
    std::vector<u64> deadlines;
    std::deque<i64> answers;  // scripted results; when they are used up, all is taken
    bool closed = false;
};

class FakePipe : public Platform::IPipeInstance {
public:
    explicit FakePipe(Wire& wire) : wire_(wire) {}
    ~FakePipe() override { wire_.closed = true; }
    Platform::PipeId Id() const override { return 0x1A2B; }
    Platform::ConnectState PollConnect(Platform::SystemError&) override { return Platform::ConnectState::Connected; }
    i64 Write(const void* data, u64 size, u64 deadline) override {
        wire_.deadlines.push_back(deadline);
        wire_.sizes.push_back(size);
        i64 answer = static_cast<i64>(size);
        if (!wire_.answers.empty()) {
            answer = wire_.answers.front();
            wire_.answers.pop_front();
        }
        if (answer > 0) wire_.bytes.append(static_cast<const char*>(data), static_cast<std::size_t>(answer));
        return answer;
    }
    // A channel waits for its clients.
    i64 TryWrite(const void*, u64) override { throw std::logic_error("a channel writes whole blocks"); }

private:
    Wire& wire_;
};

class ChannelConnectionTest : public testing::Test {
protected:
    ChannelConnection Connect() {
        return ChannelConnection(new BufferTransportImpl(std::make_unique<FakePipe>(wire_)));
    }
    static bool Send(ChannelConnection& connection, const Samples& samples) {
        return connection.Send(reinterpret_cast<const u8*>(samples.data()), samples.size());
    }

    Wire wire_;
};

TEST_F(ChannelConnectionTest, ABlockOf1000SamplesGoesOutWholeInOneWriteOf2000Bytes) {
    ChannelConnection connection = Connect();
    const Samples first = Noise(1000, 1);
    const Samples second = Noise(1000, 2);
    EXPECT_TRUE(Send(connection, first));
    EXPECT_TRUE(Send(connection, second));
    EXPECT_EQ(wire_.sizes, (std::vector<u64>{2000, 2000}));
    EXPECT_EQ(wire_.bytes, RawBytes(first) + RawBytes(second));
    EXPECT_EQ(wire_.deadlines, std::vector<u64>(2, Platform::IPipeInstance::NoDeadline));
}

TEST_F(ChannelConnectionTest, BlocksOfOtherSizesAreStagedUntilABlockIsFull) {
    ChannelConnection connection = Connect();
    const Samples sound = Noise(3900, 3);
    EXPECT_TRUE(Send(connection, FeederTest::Part(sound, 0, 999)));
    EXPECT_TRUE(wire_.sizes.empty());
    EXPECT_TRUE(Send(connection, FeederTest::Part(sound, 999, 1)));
    EXPECT_EQ(wire_.sizes, (std::vector<u64>{2000}));
    EXPECT_TRUE(Send(connection, FeederTest::Part(sound, 1000, 2900)));
    EXPECT_EQ(wire_.sizes, (std::vector<u64>{2000, 2000, 2000}));
    EXPECT_EQ(wire_.bytes, RawBytes(FeederTest::Part(sound, 0, 3000)));
}

TEST_F(ChannelConnectionTest, AWriteThatTakesLessIsFollowedAtOnceByTheRest) {
    wire_.answers = {1, 700, 1298};
    ChannelConnection connection = Connect();
    const Samples block = Noise(1000, 4);
    EXPECT_TRUE(Send(connection, block));
    EXPECT_EQ(wire_.sizes, (std::vector<u64>{2000, 1999, 1299, 1}));
    EXPECT_EQ(wire_.bytes, RawBytes(block));
}

TEST_F(ChannelConnectionTest, AWriteOf0BytesIsNotAnError) {
    wire_.answers = {0, 0, 1000, 0};
    ChannelConnection connection = Connect();
    const Samples block = Noise(1000, 5);
    EXPECT_TRUE(Send(connection, block));
    EXPECT_EQ(wire_.sizes, (std::vector<u64>{2000, 2000, 2000, 1000, 1000}));
    EXPECT_EQ(wire_.bytes, RawBytes(block));
}

TEST_F(ChannelConnectionTest, AFailedWriteEndsTheConnectionAlsoInTheMiddleOfABlock) {
    wire_.answers = {500, -1};
    ChannelConnection connection = Connect();
    EXPECT_FALSE(Send(connection, Constant(1000, 1)));
}

TEST_F(ChannelConnectionTest, AnInvalidTransportHasTheId0AndTakesNothing) {
    ChannelConnection connection(new BufferTransportImpl(nullptr));
    EXPECT_EQ(connection.Id(), 0U);
    EXPECT_FALSE(Send(connection, Constant(1000, 1)));
}

TEST_F(ChannelConnectionTest, LettingTheConnectionGoClosesItsPipe) {
    {
        ChannelConnection connection = Connect();
        EXPECT_EQ(connection.Id(), 0x1A2BU);
        EXPECT_FALSE(wire_.closed);
    }
    EXPECT_TRUE(wire_.closed);
}

TEST(PipeIds, APipeIdIsPrintedInTheStreamsPointerFormat) {
    std::ostringstream stream;
    stream << Orv::PipeIdAsPointer(0x1A2B);
    EXPECT_EQ(stream.str(), "0x1a2b");
}

}  // namespace
