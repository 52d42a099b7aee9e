// The live sources in use, their threads and their messages.
#include "Projects/Common/VoIPFileEngine/PipeStorage.h"

#include <gmock/gmock.h>

#include <system_error>

#include "tests/Projects/Common/VoIPFileEngine/LiveSource.h"

namespace Orv {
namespace {

using TestData::kRadio;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using Box = MTObjects::THolder<IPipeMusicBox>;

class PipeStorageTest : public TestData::LiveTest {
protected:
    static std::string Trace(const std::string& text) { return Line("Trace", kRadio + text); }
    static std::string Started() { return Line("Info", std::string("Start thread for pipe '") + kRadio + "'"); }
    static std::string Connecting() { return Line("Info", std::string("Connecting media source '") + kRadio + "'..."); }
    static std::string FirstFailure() { return Radio("Error", "Initial connection failed. Continue Waiting..."); }
};

TEST_F(PipeStorageTest, OnlyANameOf9CharactersThatBeginsWithTwoBackslashesIsAPipe) {
    Run([&] {
        EXPECT_FALSE(AcquirePipeBox(nullptr));
        EXPECT_FALSE(AcquirePipeBox(""));
        EXPECT_FALSE(AcquirePipeBox("\\\\.\\pipe"));
        EXPECT_FALSE(AcquirePipeBox("\\.\\pipe\\radio"));
        EXPECT_THAT(log_.Take(), ElementsAre(Line("Warn", " is not a pipe"), Line("Warn", " is not a pipe"),
                                             Line("Warn", "\\\\.\\pipe is not a pipe"),
                                             Line("Warn", "\\.\\pipe\\radio is not a pipe")));
        EXPECT_EQ(sim_.ThreadsStarted(), 1u);
        EXPECT_TRUE(AcquirePipeBox("\\\\.\\pipe\\").IsValid());
        ReleasePipeBox("\\\\.\\pipe\\");
    });
}

TEST_F(PipeStorageTest, TheFirstUserBuildsTheBoxAndTheNextOneFindsIt) {
    Run([&] {
        Box first = AcquirePipeBox(kRadio);
        ASSERT_TRUE(first.IsValid());
        EXPECT_THAT(log_.Take(), Contains(Trace(" put to shared storage")));
        Box second = AcquirePipeBox(kRadio);
        EXPECT_TRUE(second == first);
        EXPECT_THAT(log_.Take(), Contains(Trace(" taken from shared pipe storage")));
        EXPECT_EQ(sim_.ThreadsStarted(), 2u) << "main and one pipe thread";

        ReleasePipeBox(kRadio);
        EXPECT_THAT(log_.Take(), Contains(Trace(" file is used by other entity(ies)")));
        ReleasePipeBox(kRadio);
        EXPECT_THAT(log_.Take(), Contains(Trace(" removed from shared storage")));
        ReleasePipeBox(kRadio);
        EXPECT_THAT(log_.Take(), ElementsAre(Trace(" removed from shared storage"))) << "also of what is not there";
    });
}

TEST_F(PipeStorageTest, ABoxThatIsStillHeldIsNotFoundOnceItsNameWasGivenBack) {
    Run([&] {
        Box old = AcquirePipeBox(kRadio);
        ReleasePipeBox(kRadio);
        Box next = AcquirePipeBox(kRadio);
        EXPECT_FALSE(next == old);
        EXPECT_TRUE(old.IsValid());
        ReleasePipeBox(kRadio);
    });
}

// The start of a thread lets others run, so that both look and find nothing before either has stored its box.
TEST_F(PipeStorageTest, OfTwoThatBuildAtTheSameTimeTheSecondTakesTheFirstOnesBoxAndItsOwnGoes) {
    Run([&] {
        Box other;
        Platform::Thread rival("rival", [&] { other = AcquirePipeBox(kRadio); });
        Box mine = AcquirePipeBox(kRadio);
        rival.Join();
        EXPECT_TRUE(mine == other);
        EXPECT_EQ(sim_.ThreadsStarted(), 4u) << "main, rival and two pipe threads";
        EXPECT_EQ(sim_.ThreadNames().size(), 2u) << "main and the one that stays";
        const auto lines = log_.Take();
        EXPECT_THAT(lines, Contains(Trace(" put to shared storage")).Times(1));
        EXPECT_THAT(lines, Contains(Trace(" was shared by other entity")).Times(1));
        ReleasePipeBox(kRadio);
        ReleasePipeBox(kRadio);
    });
}

TEST_F(PipeStorageTest, ABoxWithoutAThreadIsNotCreated) {
    Run([&] {
        sim_.FailThreadStarts(1);
        EXPECT_FALSE(AcquirePipeBox(kRadio));
        EXPECT_THAT(log_.Take(), ElementsAre(Line("Warn", std::string(kRadio) + " not created")));
        EXPECT_TRUE(AcquirePipeBox(kRadio).IsValid()) << "the next one may have one";
        ReleasePipeBox(kRadio);
    });
}

TEST_F(PipeStorageTest, AThreadThatCannotStartIsAnExceptionOutOfTheBoxesConstructor) {
    Run([&] {
        sim_.FailThreadStarts(1);
        EXPECT_THROW(IPipeMusicBox box(kRadio), std::system_error);
    });
}

TEST_F(PipeStorageTest, ABoxWithoutANameIsNotValidAndHasNoThread) {
    Run([&] {
        Box box(new IPipeMusicBox(""));
        EXPECT_FALSE(box.IsValid());
        EXPECT_TRUE(box->Buffer().IsValid());
        EXPECT_EQ(sim_.ThreadsStarted(), 1u);
    });
    EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(PipeStorageTest, TheThreadBeginsAtOnceAndIsNamedAfterItsPipe) {
    Run([&] {
        Box box(new IPipeMusicBox(kRadio));
        Platform::SleepMilliseconds(1);
        EXPECT_THAT(sim_.ThreadNames(), ElementsAre("main", "pipe:radio"));
        EXPECT_THAT(log_.Take(), ElementsAre(Started(), Connecting(), FirstFailure()));
    });
}

TEST_F(PipeStorageTest, AServerIsFoundAtTheNextOfTheTriesThatComeEach100Milliseconds) {
    Run([&] {
        Box box(new IPipeMusicBox(kRadio));
        Platform::SleepMilliseconds(250);
        log_.Take();
        TestData::LiveSource source;
        Platform::SleepMilliseconds(49);
        EXPECT_EQ(Pipes().connects, 0u);
        Platform::SleepMilliseconds(2);
        EXPECT_EQ(Pipes().connects, 1u);
        EXPECT_THAT(log_.Take(), ElementsAre(Radio("Info", "Media connected")));
    });
}

TEST_F(PipeStorageTest, ABusyServerIsWaitedForAndTheFreeInstanceIsToldAtTrace) {
    Run([&] {
        sim_.Pipes().SetQueueLength(0);
        TestData::LiveSource source;
        Box box(new IPipeMusicBox(kRadio));
        Platform::SleepMilliseconds(950);
        EXPECT_THAT(log_.Take(), ElementsAre(Started(), Connecting(), FirstFailure()));
        sim_.Pipes().SetQueueLength(1);
        Platform::SleepMilliseconds(100);
        EXPECT_THAT(log_.Take(),
                    ElementsAre(Radio("Trace", "pipe instance available."), Radio("Info", "Media connected")));

        Box second(new IPipeMusicBox("\\\\.\\pipe\\RADIO"));
        Platform::SleepMilliseconds(20);
        log_.Take();
        source.Accept();  // makes room in the queue
        Platform::SleepMilliseconds(1);
        EXPECT_THAT(log_.Take(), ElementsAre(Line("Trace", "'\\\\.\\pipe\\RADIO'. pipe instance available."),
                                             Line("Info", "'\\\\.\\pipe\\RADIO'. Media connected")));
    });
}

TEST_F(PipeStorageTest, ABoxThatWaitsForItsSourceGoesWithin100Milliseconds) {
    Run([&] {
        Box box(new IPipeMusicBox(kRadio));
        Platform::SleepMilliseconds(10);
        log_.Take();
        box = nullptr;
        EXPECT_EQ(Milliseconds(), 100u);
        EXPECT_THAT(log_.Take(), IsEmpty());
    });
}

TEST_F(PipeStorageTest, ABoxOnASilentSourceGoesWithin1000MillisecondsAndLeavesItsTwoLines) {
    Run([&] {
        TestData::LiveSource source;
        Box box(new IPipeMusicBox(kRadio));
        source.Accept();
        source.SendAndSettle("ab");
        const u64 start = Milliseconds();
        log_.Take();
        box = nullptr;
        EXPECT_LE(Milliseconds() - start, 1'000u);
        EXPECT_GE(Milliseconds() - start, 900u);
        EXPECT_THAT(log_.Take(), ElementsAre(Line("Error", std::string("wait timeout:") + kRadio + " - 0x2"),
                                             Line("Info", std::string("closing '") + kRadio + "'"),
                                             Radio("Error", "Connection lost. Waiting for media...")));
        EXPECT_EQ(Pipes().clientsAlive, 0u);
    });
}

TEST_F(PipeStorageTest, ABoxOnARunningSourceGoesWithTheNextBytesAndLosesNothing) {
    Run([&] {
        TestData::LiveSource source;
        Box box(new IPipeMusicBox(kRadio));
        source.Accept();
        Platform::Thread server("server", [&] {
            Platform::SleepMilliseconds(125);
            source.Send("ab");
        });
        Platform::SleepMilliseconds(1);
        log_.Take();
        box = nullptr;
        EXPECT_EQ(Milliseconds(), 125u);
        EXPECT_THAT(log_.Take(), ElementsAre(Line("Info", std::string("closing '") + kRadio + "'")));
        server.Join();
    });
}

TEST_F(PipeStorageTest, ALossThatEndsAPendingReadIsToldWithItsErrorAndZeroesTheRing) {
    Run([&] {
        TestData::LiveSource source;
        Box box(new IPipeMusicBox(kRadio));
        source.Accept();
        source.SendAndSettle(TestData::LiveBytes(0, 5'000));
        EXPECT_EQ(box->Buffer()->written.load(), 5'000u);
        EXPECT_EQ(TestData::FrameBytes(box->Buffer()->data, 5'000), TestData::LiveBytes(0, 5'000));
        log_.Take();
        source.Leave();
        Platform::SleepMilliseconds(1);
        EXPECT_EQ(box->Buffer()->written.load(), 0u);
        EXPECT_TRUE(TestData::AllZero(box->Buffer()->data, 65'536));
        EXPECT_THAT(log_.Take(),
                    ElementsAre(Line("Error", std::string("read failed:") + kRadio + " - 0x2:ready=0, error=32"),
                                Line("Info", std::string("closing '") + kRadio + "'"),
                                Radio("Error", "Connection lost. syserror=32. Waiting for media..."), FirstFailure()));
        source.Serve();
        source.Accept();
        Platform::SleepMilliseconds(1);
        EXPECT_THAT(log_.Take(), Contains(Radio("Info", "Media connection restored")));
    });
}

TEST_F(PipeStorageTest, ALossThatTheNextReadFindsIsToldWithoutAnError) {
    Run([&] {
        TestData::LiveSource source;
        Box box(new IPipeMusicBox(kRadio));
        source.Accept();
        Platform::SleepMilliseconds(1);
        log_.Take();
        source.Send("abcd");
        source.Leave();  // before the thread has come to read
        Platform::SleepMilliseconds(1);
        EXPECT_THAT(log_.Take(), ElementsAre(Line("Info", std::string("closing '") + kRadio + "'"),
                                             Radio("Error", "Connection lost. Waiting for media..."), FirstFailure()));
        EXPECT_EQ(box->Buffer()->written.load(), 0u);
    });
}

TEST_F(PipeStorageTest, AFirstFailureAfterAnEarlierSuccessIsToldAllTheSameAndOnce) {
    Run([&] {
        TestData::LiveSource source;
        Box box(new IPipeMusicBox(kRadio));
        source.Accept();
        Platform::SleepMilliseconds(1);
        EXPECT_THAT(log_.Take(), ElementsAre(Started(), Connecting(), Radio("Info", "Media connected")));
        for (int round = 0; round < 3; ++round) {
            source.Leave();
            Platform::SleepMilliseconds(500);
            EXPECT_THAT(log_.Take(), round == 0 ? testing::Matcher<std::vector<std::string>>(Contains(FirstFailure()))
                                                : Not(Contains(FirstFailure())));
            source.Serve();
            source.Accept();
            Platform::SleepMilliseconds(1);
            EXPECT_THAT(log_.Take(), ElementsAre(Radio("Info", "Media connection restored")));
        }
    });
}

}  // namespace
}  // namespace Orv
