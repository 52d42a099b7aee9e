// A live source on real sockets and real threads, for the thread sanitizer.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/NamedPipe.h"
#include "Platform/Thread.h"
#include "Platform/linux/PipeAddress.h"
#include "Projects/Common/VoIPFileEngine/PipeStream.h"
#include "Projects/Common/VoIPFileEngine/PipeTransport.h"
#include "tests/Projects/Common/VoIPFileEngine/ReaderFakes.h"
#include "tests/support/Process.h"

namespace Orv {
namespace {

constexpr char kRadio[] = "\\\\.\\pipe\\radio";
constexpr u32 kFrameBytes = 2000;

class PipeStreamLinuxTest : public testing::Test {
protected:
    PipeStreamLinuxTest() { Platform::SetPipeFolder(folder_.Path()); }

    OrvTest::TempFolder folder_;
};

// Sample n of the stream is n + 1, so that a reader can tell a place from any other one and from silence.
class Server {
public:
    Server() : endpoint_(Platform::CreatePipeEndpoint("radio")) {
        Platform::SystemError error = 0;
        instance_ = endpoint_->CreateInstance(error);
        EXPECT_NE(instance_, nullptr);
        const auto connected = [&] { return instance_->PollConnect(error) == Platform::ConnectState::Connected; };
        EXPECT_TRUE(OrvTest::Eventually(connected));
    }
    void Send(u32 samples) {
        std::vector<u16> block(samples);
        for (u16& sample : block) sample = ++last_;
        const u8* bytes = reinterpret_cast<const u8*>(block.data());
        for (u64 done = 0; done < block.size() * 2;) {
            const i64 taken = instance_->Write(bytes + done, block.size() * 2 - done);
            ASSERT_GT(taken, 0);
            done += static_cast<u64>(taken);
        }
    }

private:
    std::unique_ptr<Platform::IPipeEndpoint> endpoint_;
    std::unique_ptr<Platform::IPipeInstance> instance_;
    u16 last_ = 0;
};

// Pulls frames until it is told to leave; each must be silence or one unbroken run of the stream.
class Puller {
public:
    // Returns once the stream is open: two that open at once may connect twice for a moment, and this server has one
    // instance.
    Puller() : thread_("puller", [this] { Pull(); }) {
        EXPECT_TRUE(OrvTest::Eventually([this] { return open_.load(); }));
    }
    ~Puller() { Leave(); }
    void Leave() {
        stop_.store(true);
        if (thread_.Joinable()) thread_.Join();
    }
    u64 Heard() const { return heard_.load(); }

private:
    void Pull() {
        u8 block[kFrameBytes];
        MTObjects::THolder<IPipeStream> stream(new IPipeStream(1));
        EXPECT_TRUE(stream->Open(kRadio, block, kFrameBytes));
        open_.store(true);
        while (!stop_.load()) {
            const TestData::Pulled pulled = TestData::Pull(*stream);
            ASSERT_NE(pulled.frame, nullptr);
            if (TestData::AllZero(pulled.frame, kFrameBytes)) {
                Platform::SleepMilliseconds(1);
                continue;
            }
            for (u64 i = 1; i < kFrameBytes / 2; ++i) {
                ASSERT_EQ(static_cast<u16>(pulled.Sample(i)), static_cast<u16>(pulled.Sample(i - 1) + 1));
            }
            ++heard_;
        }
    }

    std::atomic<bool> stop_{false};
    std::atomic<bool> open_{false};
    std::atomic<u64> heard_{0};
    Platform::Thread thread_;
};

// Goal: what runs when all is well is free of data races, the way of a frame out of the ring by a pointer included.
// Method: three turns of the ring; the source waits for its readers, as in life they keep its pace, so that none is
// ever further behind than the ring allows.
TEST_F(PipeStreamLinuxTest, TwoReadersPlayWhatComesWhileTheRingTurns) {
    Puller first;
    Puller second;
    {
        Server server;
        for (u64 block = 1; block <= 100; ++block) {
            server.Send(kFrameBytes / 2);
            ASSERT_TRUE(OrvTest::Eventually([&] { return first.Heard() >= block && second.Heard() >= block; }));
        }
        // The readers leave while the source is still there: a loss is not fenced off from who is inside a frame.
        first.Leave();
        second.Leave();
    }
    EXPECT_EQ(first.Heard(), 100u);
    EXPECT_EQ(second.Heard(), 100u);
}

// Opens and ends of readers on two threads while the box of their name comes and goes.
TEST_F(PipeStreamLinuxTest, ReadersOfOneNameComeAndGoOnTwoThreads) {
    std::atomic<int> open{0};
    const auto use = [&] {
        u8 block[kFrameBytes];
        for (int round = 0; round < 10; ++round) {
            IPipeStream stream(1);
            if (stream.Open(kRadio, block, kFrameBytes)) ++open;
            EXPECT_TRUE(TestData::AllZero(TestData::Pull(stream).frame, kFrameBytes));
        }
    };
    Platform::Thread first("first", use);
    Platform::Thread second("second", use);
    first.Join();
    second.Join();
    EXPECT_EQ(open.load(), 20);
}

TEST_F(PipeStreamLinuxTest, OnlyAConnectionForWritingWrites) {
    Platform::PipeAddress address;
    Platform::SystemError error = 0;
    ASSERT_TRUE(Platform::PipeAddress::Make("radio", address, error));
    const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(server, address.Get(), sizeof address.address), 0);
    ASSERT_EQ(::listen(server, 4), 0);
    PipeTransport transport(kRadio);
    EXPECT_EQ(transport.Write("hello", 5), 0u) << "not open";
    ASSERT_TRUE(transport.Connect(false));
    EXPECT_EQ(transport.Write("hello", 5), 0u) << "open for reading only";
    ::close(::accept4(server, nullptr, nullptr, SOCK_CLOEXEC));
    transport.Close();
    ASSERT_TRUE(transport.Connect(true));
    EXPECT_EQ(transport.Write("hello", 5), 5u);
    const int accepted = ::accept4(server, nullptr, nullptr, SOCK_CLOEXEC);
    char read[9] = {};
    EXPECT_EQ(::recv(accepted, read, sizeof read, 0), 5);
    EXPECT_STREQ(read, "hello");
    ::close(accepted);
    ::close(server);
}

}  // namespace
}  // namespace Orv
