// The connection to a live source, step by step.
#include "Projects/Common/VoIPFileEngine/PipeTransport.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "tests/Projects/Common/VoIPFileEngine/LiveSource.h"

namespace Orv {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Platform::SystemError kUntouched = 99;

class PipeTransportTest : public TestData::LiveTest {
protected:
    // One read, and what it left.
    struct Result {
        i32 count;
        Platform::SystemError sysError;
        std::string bytes;
    };
    Result Read(u64 size, u32 timeout) {
        std::string bytes(size, '?');
        Result result{0, kUntouched, {}};
        result.count = transport_->Read(&stop_, bytes.data(), size, timeout, &result.sysError);
        if (result.count > 0) result.bytes = bytes.substr(0, static_cast<u64>(result.count));
        return result;
    }
    void Connect(TestData::LiveSource& source) {
        ASSERT_TRUE(transport_->Connect(false));
        source.Accept();
        log_.Take();
    }
    static std::string Closing() { return Line("Info", std::string("closing '") + TestData::kRadio + "'"); }

    std::atomic<bool> stop_{false};
    MTObjects::THolder<IPipeTransport> transport_{new PipeTransport(TestData::kRadio)};
};

TEST_F(PipeTransportTest, AConnectFailsAtOnceWhenNobodyServesThePipeAndWhenAllInstancesAreBusy) {
    Run([&] {
        EXPECT_FALSE(transport_->Connect(false));
        EXPECT_FALSE(transport_->IsOpen());
        sim_.Pipes().SetQueueLength(0);
        TestData::LiveSource source;
        EXPECT_FALSE(transport_->Connect(false));
        EXPECT_EQ(Milliseconds(), 0u);
        sim_.Pipes().SetQueueLength(1);
        EXPECT_TRUE(transport_->Connect(false));
        EXPECT_TRUE(transport_->IsOpen());
        EXPECT_TRUE(transport_->Connect(false)) << "it stays as it is";
        EXPECT_EQ(Pipes().connects, 1u);
    });
    EXPECT_THAT(log_.Take(), IsEmpty());
    EXPECT_STREQ(transport_->GetName(), TestData::kRadio);
}

TEST_F(PipeTransportTest, OnlyThisMachinesPipesAreFound) {
    Run([&] {
        TestData::LiveSource source;
        for (const char* path : {"\\\\host\\pipe\\radio", "\\\\.\\pip\\radio!", "\\\\.\\pipe\\", "radio"}) {
            PipeTransport other(path);
            EXPECT_FALSE(other.Connect(false)) << path;
            const u64 start = Milliseconds();
            EXPECT_FALSE(other.WaitInstance(100)) << path;
            EXPECT_EQ(Milliseconds() - start, 100u) << path;
        }
        PipeTransport local("\\\\.\\PIPE\\Radio");
        EXPECT_TRUE(local.Connect(false)) << "pipe names ignore case";
    });
}

TEST_F(PipeTransportTest, AWaitForAnInstanceThatFailsTakesItsWholeTimeForWhateverReason) {
    Run([&] {
        EXPECT_FALSE(transport_->WaitInstance(100));
        EXPECT_EQ(Milliseconds(), 100u) << "nobody serves the pipe";
        sim_.Pipes().SetQueueLength(0);
        TestData::LiveSource source;
        EXPECT_FALSE(transport_->WaitInstance(100));
        EXPECT_EQ(Milliseconds(), 200u) << "all instances are busy";
    });
}

TEST_F(PipeTransportTest, AWaitForAnInstanceEndsWhenOneIsFreeAndTheNextConnectHasIt) {
    Run([&] {
        sim_.Pipes().SetQueueLength(1);
        TestData::LiveSource source;
        Platform::SystemError error = 0;
        const auto first = Platform::ConnectPipe("radio", error);
        Platform::Thread server("server", [&] {
            Platform::SleepMilliseconds(40);
            source.Accept();
        });
        EXPECT_TRUE(transport_->WaitInstance(100));
        EXPECT_EQ(Milliseconds(), 40u);
        EXPECT_FALSE(transport_->IsOpen());
        EXPECT_TRUE(transport_->WaitInstance(100)) << "it is still there";
        EXPECT_TRUE(transport_->Connect(false));
        EXPECT_EQ(Pipes().connects, 2u);
        EXPECT_EQ(Milliseconds(), 40u);
        server.Join();
    });
}

TEST_F(PipeTransportTest, AReadWithoutAConnectionIsALossWithoutAnError) {
    Run([&] {
        const Result result = Read(2000, 1000);
        EXPECT_EQ(result.count, -1);
        EXPECT_EQ(result.sysError, 0u);
        EXPECT_EQ(Milliseconds(), 0u);
    });
    EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(PipeTransportTest, WithATimeoutOf0AReadOfAnIdlePipeAnswers0AndStartsNoRead) {
    Run([&] {
        TestData::LiveSource source;
        Connect(source);
        sim_.Pipes().FailClientReads("radio", EIO);  // a read would be a loss
        const Result result = Read(2000, 0);
        EXPECT_EQ(result.count, 0);
        EXPECT_EQ(result.sysError, 0u);
        EXPECT_TRUE(transport_->IsOpen());
        EXPECT_EQ(Milliseconds(), 0u);
    });
}

TEST_F(PipeTransportTest, WithATimeoutOf0AReadTakesWholeSamplesOfWhatIsThere) {
    Run([&] {
        TestData::LiveSource source;
        Connect(source);
        source.Send("abcde");
        EXPECT_EQ(Read(2, 0).bytes, "ab");
        EXPECT_EQ(Read(2000, 0).bytes, "cd");
        EXPECT_EQ(Read(2000, 0).count, 0) << "half a sample waits";
        source.Send("f");
        EXPECT_EQ(Read(2000, 0).bytes, "ef");
    });
}

TEST_F(PipeTransportTest, WithATimeoutOf0AReadOfABrokenPipeAnswers0) {
    Run([&] {
        TestData::LiveSource source;
        Connect(source);
        source.Leave();
        EXPECT_EQ(Read(2000, 0).count, 0);
        EXPECT_TRUE(transport_->IsOpen());
    });
}

TEST_F(PipeTransportTest, AReadTakesWhatIsThereAtOnceAndDoesNotRoundIt) {
    Run([&] {
        TestData::LiveSource source;
        Connect(source);
        source.Send("abcde");
        stop_ = true;  // is not looked at
        const Result result = Read(2000, 1000);
        EXPECT_EQ(result.count, 5);
        EXPECT_EQ(result.bytes, "abcde");
        EXPECT_EQ(result.sysError, 0u);
        EXPECT_EQ(Milliseconds(), 0u);
    });
}

TEST_F(PipeTransportTest, AReadBegunOnABrokenPipeIsALossWithoutAnErrorAndWithoutAMessageOfItsOwn) {
    Run([&] {
        TestData::LiveSource source;
        Connect(source);
        source.Leave();
        const Result result = Read(2000, 1000);
        EXPECT_EQ(result.count, -1);
        EXPECT_EQ(result.sysError, 0u);
        EXPECT_FALSE(transport_->IsOpen());
        EXPECT_EQ(Milliseconds(), 0u);
    });
    EXPECT_THAT(log_.Take(), ElementsAre(Closing()));
}

TEST_F(PipeTransportTest, AReadWaitsForBytes) {
    Run([&] {
        TestData::LiveSource source;
        Connect(source);
        Platform::Thread server("server", [&] {
            Platform::SleepMilliseconds(300);
            source.Send("late");
        });
        EXPECT_EQ(Read(2000, 1000).bytes, "late");
        EXPECT_EQ(Milliseconds(), 300u);
        server.Join();
    });
    EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(PipeTransportTest, ATimedOutWaitWithoutAStopSimplyWaitsAgain) {
    Run([&] {
        TestData::LiveSource source;
        Connect(source);
        Platform::Thread server("server", [&] {
            Platform::SleepMilliseconds(3'600'000);
            source.Send("after an hour");
        });
        EXPECT_EQ(Read(2000, 1000).bytes, "after an hour");
        EXPECT_EQ(Milliseconds(), 3'600'000u);
        server.Join();
    });
    EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(PipeTransportTest, TheServersEndDuringAWaitIsAFailedReadWithTheNumberOfABrokenPipe) {
    Run([&] {
        TestData::LiveSource source;
        Connect(source);
        Platform::Thread server("server", [&] {
            Platform::SleepMilliseconds(1'500);
            source.Leave();
        });
        const Result result = Read(2000, 1000);
        EXPECT_EQ(result.count, -1);
        EXPECT_EQ(result.sysError, static_cast<u32>(EPIPE));
        EXPECT_EQ(Milliseconds(), 1'500u);
        EXPECT_FALSE(transport_->IsOpen());
        server.Join();
    });
    // The server's instance was connection 1, ours is 2.
    EXPECT_THAT(log_.Take(),
                ElementsAre(Line("Error", std::string("read failed:") + TestData::kRadio + " - 0x2:ready=0, error=32"),
                            Closing()));
}

TEST_F(PipeTransportTest, AFailureDuringAWaitIsToldWithItsOwnNumber) {
    Run([&] {
        TestData::LiveSource source;
        Connect(source);
        Platform::Thread fault("fault", [&] {
            Platform::SleepMilliseconds(500);
            sim_.Pipes().FailClientReads("radio", EIO);
        });
        const Result result = Read(2000, 1000);
        EXPECT_EQ(result.count, -1);
        EXPECT_EQ(result.sysError, static_cast<u32>(EIO));
        fault.Join();
    });
    EXPECT_THAT(log_.Take(),
                ElementsAre(Line("Error", std::string("read failed:") + TestData::kRadio + " - 0x2:ready=0, error=5"),
                            Closing()));
}

TEST_F(PipeTransportTest, AStopEndsAWaitAtItsNextTimeout) {
    Run([&] {
        TestData::LiveSource source;
        Connect(source);
        Platform::Thread stopper("stopper", [&] {
            Platform::SleepMilliseconds(1'500);
            stop_ = true;
        });
        const Result result = Read(2000, 1000);
        EXPECT_EQ(result.count, -1);
        EXPECT_EQ(result.sysError, 0u);
        EXPECT_EQ(Milliseconds(), 2'000u);
        EXPECT_FALSE(transport_->IsOpen());
        stopper.Join();
    });
    EXPECT_THAT(log_.Take(),
                ElementsAre(Line("Error", std::string("wait timeout:") + TestData::kRadio + " - 0x2"), Closing()));
}

TEST_F(PipeTransportTest, BytesThatComeBeforeTheTimeoutAreTakenThoughAStopIsSet) {
    Run([&] {
        TestData::LiveSource source;
        Connect(source);
        stop_ = true;
        Platform::Thread server("server", [&] {
            Platform::SleepMilliseconds(999);
            source.Send("x");
        });
        EXPECT_EQ(Read(2000, 1000).bytes, "x");
        server.Join();
    });
}

TEST_F(PipeTransportTest, TheEndOfATransportClosesAndTellsItOnce) {
    Run([&] {
        TestData::LiveSource source;
        Connect(source);
        transport_ = nullptr;
        EXPECT_EQ(Pipes().clientsAlive, 0u);
        EXPECT_THAT(log_.Take(), ElementsAre(Closing()));
        transport_ = new PipeTransport(TestData::kRadio);
        transport_->Close();
        transport_ = nullptr;
    });
    EXPECT_THAT(log_.Take(), IsEmpty()) << "one that never was open";
}

}  // namespace
}  // namespace Orv
