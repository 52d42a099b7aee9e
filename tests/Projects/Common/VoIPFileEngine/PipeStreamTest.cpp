// The reader of a live source: what it plays of what comes, and when it plays silence.
#include "Projects/Common/VoIPFileEngine/PipeStream.h"

#include <gmock/gmock.h>

#include "Projects/Common/VoIPFileEngine/PipeStorage.h"
#include "tests/Projects/Common/VoIPFileEngine/AllocationCounter.h"
#include "tests/Projects/Common/VoIPFileEngine/LiveSource.h"

namespace Orv {
namespace {

using TestData::kRadio;
using TestData::LiveBytes;
using TestData::LiveSource;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// A reader with its caller's block, which holds 0x55 before each frame.
class Listener {
public:
    explicit Listener(const char* name = kRadio, i32 frameBytes = 2000) : block_(2000, 0x55), frameBytes_(frameBytes) {
        EXPECT_TRUE(stream_->Open(name, block_.data(), frameBytes));
    }

    IPipeStream& Stream() { return *stream_; }
    void End() { stream_ = nullptr; }
    u8* Block() { return block_.data(); }
    const u8* Frame() const { return frame_; }

    // The next frame, which always comes, and never with an end.
    std::string Next() {
        std::fill(block_.begin(), block_.end(), 0x55);
        const TestData::Pulled pulled = TestData::Pull(*stream_);
        EXPECT_TRUE(pulled.result);
        EXPECT_TRUE(pulled.events.empty());
        EXPECT_NE(pulled.frame, nullptr);
        frame_ = pulled.frame;
        return TestData::FrameBytes(frame_, static_cast<u64>(frameBytes_));
    }
    // Whether the next frame is the silence of a source from which nothing has come.
    bool NextIsSilent() { return Next() == std::string(static_cast<u64>(frameBytes_), '\0') && frame_ == Block(); }

private:
    std::vector<u8> block_;
    i32 frameBytes_;
    MTObjects::THolder<IPipeStream> stream_{new IPipeStream(7)};
    const u8* frame_ = nullptr;
};

class PipeStreamTest : public TestData::LiveTest {
protected:
    // The ring of the name, which a reader must have opened.
    static const u8* Ring() {
        const u8* data = AcquirePipeBox(kRadio)->Buffer()->data;
        ReleasePipeBox(kRadio);
        return data;
    }
};

TEST_F(PipeStreamTest, OpenOnAPipeThatDoesNotExistSucceedsPlaysSilenceAndTellsTheFailureOnce) {
    Run([&] {
        Listener listener;
        EXPECT_TRUE(listener.Stream().IsOpen());
        EXPECT_EQ(listener.Stream().GetName(), kRadio);
        EXPECT_EQ(listener.Stream().GetContentId(), 7u);
        EXPECT_FALSE(listener.Stream().IsFile());
        for (int i = 0; i < 80; ++i) {
            Platform::SleepMilliseconds(125);
            EXPECT_TRUE(listener.NextIsSilent());
        }
        EXPECT_THAT(log_.Take(), testing::UnorderedElementsAre(
                                     Line("Trace", std::string(kRadio) + " put to shared storage"),
                                     Line("Info", std::string("Start thread for pipe '") + kRadio + "'"),
                                     Line("Info", std::string("Connecting media source '") + kRadio + "'..."),
                                     Radio("Error", "Initial connection failed. Continue Waiting...")));
    });
}

TEST_F(PipeStreamTest, APipeThatAppearsLaterIsConnectedAndPlayedFrom8192BytesBehindTheHead) {
    Run([&] {
        Listener listener;
        Platform::SleepMilliseconds(450);
        EXPECT_TRUE(listener.NextIsSilent());
        LiveSource source;
        source.Accept();
        for (int i = 0; i < 9; ++i) source.SendAndSettle(LiveBytes(static_cast<u64>(i) * 2000, 2000));
        EXPECT_THAT(log_.Take(), Contains(Radio("Info", "Media connected")));
        EXPECT_EQ(listener.Next(), LiveBytes(18'000 - 8'192, 2000));
        EXPECT_EQ(listener.Next(), LiveBytes(18'000 - 6'192, 2000));
    });
}

TEST_F(PipeStreamTest, AReaderLagsBy16384BytesAtMostBeforeItJumps) {
    Run([&] {
        Listener listener;
        LiveSource source;
        source.Accept();
        source.SendAndSettle(LiveBytes(0, 16'384));
        EXPECT_EQ(listener.Next(), LiveBytes(0, 2000)) << "exactly as much is no lag";
        source.SendAndSettle(LiveBytes(16'384, 2'001));
        EXPECT_EQ(listener.Next(), LiveBytes(2000, 2000)) << "the head is 18384, since the last byte has no partner";
        source.SendAndSettle(LiveBytes(18'385, 2'001));
        EXPECT_EQ(listener.Next(), LiveBytes(20'386 - 8'192, 2000)) << "16386 behind";
    });
}

TEST_F(PipeStreamTest, AFrameThatIsNotThereAsAWholeIsSilenceAndThePositionStays) {
    Run([&] {
        Listener listener;
        LiveSource source;
        source.Accept();
        source.SendAndSettle(LiveBytes(0, 1998));
        EXPECT_TRUE(listener.NextIsSilent());
        source.SendAndSettle(LiveBytes(1998, 2));
        EXPECT_EQ(listener.Next(), LiveBytes(0, 2000));
        EXPECT_TRUE(listener.NextIsSilent());
    });
}

TEST_F(PipeStreamTest, OfAnOddByteCountTheLastByteWaitsForItsPartner) {
    Run([&] {
        Listener listener(kRadio, 2);
        LiveSource source;
        source.Accept();
        source.SendAndSettle("abc");
        EXPECT_EQ(listener.Next(), "ab");
        EXPECT_TRUE(listener.NextIsSilent());
        source.SendAndSettle("d");
        EXPECT_EQ(listener.Next(), "cd");
        source.SendAndSettle("e");
        EXPECT_TRUE(listener.NextIsSilent());
    });
}

TEST_F(PipeStreamTest, AFrameLiesInTheRingAndIsCopiedOnlyWhereItWraps) {
    Run([&] {
        Listener listener;
        LiveSource source;
        source.Accept();
        source.SendAndSettle(LiveBytes(0, 72'728));
        const u8* ring = Ring();
        // 72728 - 8192 is 64536: two pieces of 1000 bytes each.
        EXPECT_EQ(listener.Next(), LiveBytes(64'536, 2000));
        EXPECT_EQ(listener.Frame(), listener.Block());
        EXPECT_EQ(listener.Next(), LiveBytes(66'536, 2000));
        EXPECT_EQ(listener.Frame(), ring + 1000);
    });
}

TEST_F(PipeStreamTest, AFrameThatEndsWithTheRingIsNotCopied) {
    Run([&] {
        Listener listener;
        LiveSource source;
        source.Accept();
        source.SendAndSettle(LiveBytes(0, 63'536 + 8'192));
        EXPECT_EQ(listener.Next(), LiveBytes(63'536, 2000));
        EXPECT_EQ(listener.Frame(), Ring() + 63'536);
        EXPECT_EQ(listener.Next(), LiveBytes(65'536, 2000));
        EXPECT_EQ(listener.Frame(), Ring());
    });
}

// 40 turns of the ring, in steps of every size, each frame as it was sent.
TEST_F(PipeStreamTest, EveryByteIsPlayedOnceAndInOrderWhileTheReaderKeepsUp) {
    Run([&] {
        Listener listener;
        LiveSource source;
        source.Accept();
        u64 sent = 0;
        u64 played = 0;
        u64 copies = 0;
        for (u64 step = 1; sent < 40 * 65'536; step = step * 7 % 2'999 + 1) {
            source.SendAndSettle(LiveBytes(sent, step));
            sent += step;
            while (sent / 2 * 2 - played >= 2000) {
                ASSERT_EQ(listener.Next(), LiveBytes(played, 2000));
                if (listener.Frame() == listener.Block()) ++copies;
                played += 2000;
            }
        }
        // 40 turns are 2621440 bytes; a frame boundary falls on the end of every 125th turn only.
        EXPECT_GE(played, 40u * 65'536 - 2000);
        EXPECT_EQ(copies, 40u);
    });
}

TEST_F(PipeStreamTest, AcrossALossDuringAReadItPlaysZerosAndThenTheNewStreamFromItsStart) {
    Run([&] {
        Listener listener;
        LiveSource source;
        source.Accept();
        source.SendAndSettle(LiveBytes(0, 6'000));
        EXPECT_EQ(listener.Next(), LiveBytes(0, 2000));
        EXPECT_EQ(listener.Next(), LiveBytes(2000, 2000));
        source.Leave();
        Platform::SleepMilliseconds(1);
        EXPECT_THAT(log_.Take(), Contains(Radio("Error", "Connection lost. syserror=32. Waiting for media...")));
        // 8192 bytes below 0 are four frames out of the zeroed ring, and 192 bytes.
        const std::string zeros(2000, '\0');
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(listener.Next(), zeros);
            EXPECT_EQ(listener.Frame(), Ring() + 65'536 - 8'192 + i * 2000);
        }
        EXPECT_TRUE(listener.NextIsSilent());
        EXPECT_TRUE(listener.NextIsSilent());

        source.Serve();
        source.Accept();
        source.SendAndSettle(LiveBytes(0, 4'000));
        EXPECT_THAT(log_.Take(), Contains(Radio("Info", "Media connection restored")));
        EXPECT_EQ(listener.Next(), std::string(192, '\0') + LiveBytes(0, 1'808));
        EXPECT_EQ(listener.Frame(), listener.Block()) << "it wraps";
        EXPECT_EQ(listener.Next(), LiveBytes(1'808, 2000));
        EXPECT_TRUE(listener.NextIsSilent());
    });
}

TEST_F(PipeStreamTest, AcrossALossThatTheNextReadFindsItPlaysOnAsWell) {
    Run([&] {
        Listener listener;
        LiveSource source;
        source.Accept();
        source.SendAndSettle(LiveBytes(0, 6'000));
        EXPECT_EQ(listener.Next(), LiveBytes(0, 2000));
        source.Send("abcd");
        source.Leave();
        Platform::SleepMilliseconds(1);
        EXPECT_THAT(log_.Take(), Contains(Radio("Error", "Connection lost. Waiting for media...")));
        EXPECT_EQ(listener.Next(), std::string(2000, '\0'));
        source.Serve();
        source.Accept();
        source.SendAndSettle(LiveBytes(0, 2'000));
        EXPECT_THAT(log_.Take(), Contains(Radio("Info", "Media connection restored")));
        for (int i = 0; i < 3; ++i) EXPECT_EQ(listener.Next(), std::string(2000, '\0'));
        EXPECT_EQ(listener.Next(), std::string(192, '\0') + LiveBytes(0, 1'808));
    });
}

TEST_F(PipeStreamTest, AfterARewindItJoinsTheLiveEdgeOrReadsFromTheStartWhileThatIsNear) {
    Run([&] {
        Listener listener;
        LiveSource source;
        source.Accept();
        source.SendAndSettle(LiveBytes(0, 16'384));
        for (u64 i = 0; i < 3; ++i) EXPECT_EQ(listener.Next(), LiveBytes(i * 2000, 2000));
        listener.Stream().Rewind();
        EXPECT_EQ(listener.Next(), LiveBytes(0, 2000));
        source.SendAndSettle(LiveBytes(16'384, 2));
        listener.Stream().Rewind();
        EXPECT_EQ(listener.Next(), LiveBytes(16'386 - 8'192, 2000));
    });
}

TEST_F(PipeStreamTest, TwoReadersShareOneConnectionOneThreadAndOneRingAndHaveTheirOwnPositions) {
    Run([&] {
        Listener first;
        LiveSource source;
        source.Accept();
        log_.Take();
        Listener second(kRadio, 160);
        EXPECT_THAT(log_.Take(), ElementsAre(Line("Trace", std::string(kRadio) + " taken from shared pipe storage")));
        source.SendAndSettle(LiveBytes(0, 6'000));
        EXPECT_EQ(first.Next(), LiveBytes(0, 2000));
        EXPECT_EQ(first.Next(), LiveBytes(2000, 2000));
        EXPECT_EQ(second.Next(), LiveBytes(0, 160));
        EXPECT_EQ(first.Next(), LiveBytes(4000, 2000));
        EXPECT_EQ(second.Next(), LiveBytes(160, 160));
        EXPECT_EQ(second.Frame(), Ring() + 160);
        EXPECT_EQ(Pipes().connects, 1u);
        EXPECT_THAT(sim_.ThreadNames(), ElementsAre("main", "pipe:radio"));

        log_.Take();
        first.End();
        EXPECT_THAT(log_.Take(),
                    ElementsAre(Line("Trace", std::string(kRadio) + " file is used by other entity(ies)")));
        EXPECT_EQ(second.Next(), LiveBytes(320, 160)) << "the one that stays plays on";
        second.End();
        EXPECT_EQ(log_.Take().front(), Line("Trace", std::string(kRadio) + " removed from shared storage"));
        EXPECT_THAT(sim_.ThreadNames(), ElementsAre("main"));
        EXPECT_EQ(Pipes().clientsAlive, 0u);
    });
}

TEST_F(PipeStreamTest, ANameThatDiffersOnlyInCaseHasItsOwnBoxAndItsOwnConnection) {
    Run([&] {
        Listener lower;
        Listener upper("\\\\.\\pipe\\RADIO");
        LiveSource source;
        source.Accept();
        Platform::SleepMilliseconds(101);
        EXPECT_EQ(Pipes().connects, 2u);
        EXPECT_EQ(sim_.ThreadNames().size(), 3u);
    });
}

TEST_F(PipeStreamTest, ANameThatIsNoPipeIsNotOpenedAndSoNeitherPlaysNorTellsAnEnd) {
    Run([&] {
        u8 block[2000];
        {
            IPipeStream stream(7);
            EXPECT_FALSE(stream.IsOpen());
            EXPECT_FALSE(stream.Open("radio", block, 2000));
            EXPECT_FALSE(stream.IsOpen());
            const TestData::Pulled pulled = TestData::Pull(stream);
            EXPECT_EQ(pulled.frame, nullptr);
            EXPECT_FALSE(pulled.result);
            EXPECT_TRUE(pulled.events.empty());
        }
        EXPECT_THAT(log_.Take(), ElementsAre(Line("Warn", "radio is not a pipe"),
                                             Line("Trace", "radio removed from shared storage")));
    });
}

TEST_F(PipeStreamTest, ASecondOpenGivesTheFirstNameBack) {
    Run([&] {
        Listener listener;
        LiveSource news("news");
        Platform::SleepMilliseconds(10);
        log_.Take();
        EXPECT_TRUE(listener.Stream().Open("\\\\.\\pipe\\news", listener.Block(), 160));
        const auto lines = log_.Take();
        EXPECT_EQ(lines[0], Line("Trace", std::string(kRadio) + " removed from shared storage"));
        EXPECT_EQ(listener.Stream().GetName(), "\\\\.\\pipe\\news");
        EXPECT_THAT(sim_.ThreadNames(), ElementsAre("main", "pipe:news"));
        news.Accept();
        news.SendAndSettle(LiveBytes(0, 160));
        EXPECT_EQ(TestData::FrameBytes(TestData::Pull(listener.Stream()).frame, 160), LiveBytes(0, 160));
    });
}

TEST_F(PipeStreamTest, CloseGivesTheNameBackAndTheReaderPlaysOn) {
    Run([&] {
        Listener listener;
        LiveSource source;
        source.Accept();
        log_.Take();
        listener.Stream().Close();
        EXPECT_THAT(log_.Take(), Contains(Line("Trace", std::string(kRadio) + " removed from shared storage")));
        EXPECT_TRUE(listener.Stream().IsOpen());
        EXPECT_EQ(listener.Stream().GetName(), kRadio);
        source.SendAndSettle(LiveBytes(0, 2000));
        EXPECT_EQ(listener.Next(), LiveBytes(0, 2000));
    });
}

// The frame of a reader that has been replaced is still played; its connection must not wait for that.
TEST_F(PipeStreamTest, WhoKeepsAFrameKeepsTheRingAndNotTheConnection) {
    Run([&] {
        Listener listener;
        LiveSource source;
        source.Accept();
        source.SendAndSettle(LiveBytes(0, 2000));
        listener.Next();
        const auto owner = listener.Stream().FrameOwner();
        listener.End();
        EXPECT_EQ(Pipes().clientsAlive, 0u);
        EXPECT_THAT(sim_.ThreadNames(), ElementsAre("main"));
        ASSERT_TRUE(owner.IsValid());
    });
}

TEST_F(PipeStreamTest, ReadSamplesGivesNothing) {
    Run([&] {
        Listener listener;
        const u8* frame = listener.Block();
        EXPECT_EQ(listener.Stream().ReadSamples(&frame), 0u);
        EXPECT_EQ(frame, nullptr);
    });
}

TEST_F(PipeStreamTest, NothingIsAllocatedForAFrameOfAnyKind) {
    Run([&] {
        Listener listener;
        LiveSource source;
        source.Accept();
        source.SendAndSettle(LiveBytes(0, 72'728));
        ContentEventList events;
        const u8* frame = nullptr;
        u64 inTheRing = 0;
        u64 inTheBlock = 0;
        u64 allocations = 99;
        {
            const TestData::AllocationCounter counter;
            for (int i = 0; i < 8; ++i) {  // a jump, a copy, three from the ring, silence
                listener.Stream().GetNextFrame(&frame, events);
                ++(frame == listener.Block() ? inTheBlock : inTheRing);
            }
            allocations = counter.Count();
        }
        EXPECT_EQ(allocations, 0u);
        EXPECT_EQ(inTheRing, 3u);
        EXPECT_EQ(inTheBlock, 5u);
    });
}

}  // namespace
}  // namespace Orv
