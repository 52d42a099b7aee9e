// Music boxes with their threads, their registry and their readers, on simulated time: each test says at which
// millisecond it looks.
#include "Projects/Common/VoIPFileEngine/StreamMusicBox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <system_error>

#include "Platform/Clock.h"
#include "Platform/sim/Simulation.h"
#include "Projects/Common/VoIPFileEngine/MMFileStreamReaderMusicBox.h"
#include "tests/Projects/Common/VoIPFileEngine/AllocationCounter.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"
#include "tests/Projects/Common/VoIPFileEngine/ReaderFakes.h"

namespace Orv {
namespace {

using Platform::SleepMilliseconds;
using TestData::Finished;
using TestData::Pull;
using TestData::Pulled;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using BoxHolder = MTObjects::THolder<IMusicBox>;
using ReaderHolder = MTObjects::THolder<IMMFileStreamReader>;

std::string Line(const std::string& word, const std::string& text) {
    return word + " VoIPFileEngine/MusicBox: " + text;
}

i16 Wave(u64 k) {
    return static_cast<i16>(k % 30011 + 1);
}

// A source that counts its pulls and gives a wave in which every sample tells its place.
class WaveSource : public IMMFileStreamReader, public IMMStreamManager {
public:
    bool Open(const char*, void*, i32) override { return true; }
    bool GetNextFrame(const u8** frame, ContentEventList& events) override {
        ++pulls;
        pullTimes.push_back(Platform::SteadyMilliseconds());
        for (u32 id : std::exchange(nextEvents, {})) events.push_back({ContentEvent::ContentFinished, id});
        if (delayNext != 0) SleepMilliseconds(std::exchange(delayNext, 0));
        if (silentPulls != 0) {
            --silentPulls;
            *frame = nullptr;
            return false;  // the answer is of no interest
        }
        for (i16& sample : frame_) sample = Wave(position++);
        *frame = reinterpret_cast<const u8*>(frame_);
        return true;
    }
    void Rewind() override {}
    std::string GetName() override { return {}; }
    bool IsOpen() override { return true; }
    void Close() override {}

    bool SetMainContent(u32, const std::list<StreamItem>&, bool) override { return false; }
    bool SetOverlayContent(u32, const std::list<StreamItem>&, bool) override { return false; }
    bool SetMixMask(u8) override { return false; }
    bool Prepare(void* buffer, i32 frameBytes) override {
        preparedBuffer = buffer;
        preparedBytes = frameBytes;
        return true;
    }
    MTObjects::THolder<IMMFileStreamReader> GetReader() override { return this; }
    void SwitchContent(u32, bool, const std::list<StreamItem>&, u8, u8, u8) override {}

    u64 pulls = 0;
    u64 position = 0;
    u32 silentPulls = 0;
    u32 delayNext = 0;
    std::vector<u32> nextEvents;
    std::vector<u64> pullTimes;
    void* preparedBuffer = nullptr;
    i32 preparedBytes = 0;

protected:
    bool TestValid() const override { return true; }

private:
    i16 frame_[80];
};

class Listener : public IContentPlayListener {
public:
    void OnContentEvent(const ContentEvent& event) override { heard.push_back(event.id); }
    std::vector<u32> heard;
    bool valid = true;

protected:
    bool TestValid() const override { return valid; }
};

class MusicBox : public testing::Test {
protected:
    // Runs `body` with a box "radio:" over `source_`, from a tick's start on.
    template <typename Body>
    void WithBox(Body body) {
        sim_.Run([&] {
            BoxHolder box = RegisterMusicBox("radio:", source_, nullptr, 0);
            ASSERT_TRUE(box.IsValid());
            SleepMilliseconds(5);  // between two ticks from here on
            log_.Take();
            body(box);
            UnregisterMusicBox("radio:", true);
        });
        EXPECT_EQ(IMusicBox::Living(), 0u);
    }

    ReaderHolder Open(u32 id, void* buffer, i32 frameBytes) {
        ReaderHolder reader(new MMFileStreamReaderMusicBox(id));
        EXPECT_TRUE(reader->Open("radio:", buffer, frameBytes));
        return reader;
    }
    ReaderHolder Open() { return Open(8, buffer_, 2000); }

    static std::vector<i16> Expected(u64 first, u64 count) {
        std::vector<i16> samples(count);
        for (u64 i = 0; i < count; ++i) samples[i] = Wave(first + i);
        return samples;
    }

    TestData::EngineLog log_;
    Platform::Sim::Simulation sim_;
    MTObjects::THolder<WaveSource> source_{new WaveSource};
    u8 buffer_[2000] = {};
};

TEST_F(MusicBox, PreparesItsSourceForFramesOf160Bytes) {
    WithBox([&](BoxHolder&) {
        EXPECT_NE(source_->preparedBuffer, nullptr);
        EXPECT_EQ(source_->preparedBytes, 160);
        EXPECT_THAT(sim_.ThreadNames(), ElementsAre("main", "music box"));
    });
}

TEST_F(MusicBox, ATakenNameYieldsANullHolderAndLeavesTheFirstBoxRunning) {
    WithBox([&](BoxHolder& box) {
        EXPECT_FALSE(RegisterMusicBox("radio:", new WaveSource, nullptr, 0));
        EXPECT_THAT(log_.Take(), ElementsAre(Line("Warn", "MusicBox 'radio:' already registered")));
        EXPECT_TRUE(FindMusicBox("radio:") == box);
        EXPECT_FALSE(FindMusicBox("Radio:"));
        ReaderHolder reader = Open();
        SleepMilliseconds(1000);
        EXPECT_EQ(source_->pulls, 100u);
    });
}

TEST_F(MusicBox, RemovalOfAnUnknownNameIsWarnedOf) {
    EXPECT_FALSE(UnregisterMusicBox("nobody:", true));
    EXPECT_THAT(log_.Take(), ElementsAre(Line("Warn", "MusicBox 'nobody:' is not registered entity")));
}

TEST_F(MusicBox, AReaderOfANameThatIsNotRegisteredIsNotOpenAndTellsItsEndEachTime) {
    MMFileStreamReaderMusicBox reader(8);
    EXPECT_FALSE(reader.Open("nobody:", buffer_, 2000));
    EXPECT_FALSE(reader.IsOpen());
    for (int i = 0; i < 2; ++i) {
        const Pulled pulled = Pull(reader);
        EXPECT_EQ(pulled.frame, nullptr);
        EXPECT_TRUE(pulled.result);
        EXPECT_EQ(pulled.events, Finished({8}));
    }
}

TEST_F(MusicBox, ANewReaderOnAnIdleBoxHearsSilenceForAHundredTicksAndThenFramesByPointer) {
    WithBox([&](BoxHolder&) {
        ReaderHolder reader = Open();
        EXPECT_TRUE(reader->IsOpen());
        EXPECT_FALSE(reader->IsFile());
        EXPECT_EQ(reader->GetName(), "");
        EXPECT_EQ(reader->GetContentId(), 8u);
        log_.Take();
        for (int i = 0; i < 7; ++i) {
            const Pulled pulled = Pull(*reader);
            EXPECT_EQ(pulled.frame, buffer_);
            EXPECT_TRUE(TestData::AllZero(pulled.frame, 2000));
            EXPECT_TRUE(pulled.result);
            EXPECT_THAT(log_.Take(), ElementsAre(Line("Warn", "Not enough data:1000(0)")));
            SleepMilliseconds(125);
        }
        SleepMilliseconds(120);  // 995 ms since the reader came: the 100th tick is the next one
        EXPECT_EQ(source_->pulls, 99u);
        EXPECT_EQ(Pull(*reader).frame, buffer_);
        SleepMilliseconds(10);
        EXPECT_EQ(source_->pulls, 100u);
        for (u64 i = 0; i < 8; ++i) {
            const Pulled pulled = Pull(*reader);
            EXPECT_NE(pulled.frame, buffer_);
            EXPECT_TRUE(pulled.events.empty());
            EXPECT_EQ(pulled.Samples(1000), Expected(i * 1000, 1000));
        }
    });
}

TEST_F(MusicBox, AllReadersHearTheSameMemoryAndALateOneStartsAtAChunksStart) {
    WithBox([&](BoxHolder&) {
        ReaderHolder first = Open();
        SleepMilliseconds(2300);
        u8 otherBuffer[2000];
        ReaderHolder late = Open(9, otherBuffer, 2000);
        EXPECT_EQ(Pull(*late).frame, otherBuffer);
        SleepMilliseconds(700);
        for (int i = 0; i < 16; ++i) Pull(*first);
        const Pulled a = Pull(*first);
        const Pulled b = Pull(*late);
        EXPECT_EQ(a.frame, b.frame);
        EXPECT_EQ(a.Samples(1000), Expected(16000, 1000));
    });
}

TEST_F(MusicBox, TellsEachFinishedChunkWithItsConsumersAndTheClock) {
    WithBox([&](BoxHolder&) {
        ReaderHolder first = Open();
        ReaderHolder second = Open();
        log_.Take();
        SleepMilliseconds(1000);
        EXPECT_THAT(log_.Take(),
                    ElementsAre(Line("Trace", "Provided (2) at " + std::to_string(Platform::SteadyMilliseconds() - 5)),
                                Line("Trace", "Added chunk, total=1"), Line("Trace", "Added chunk, total=1")));
    });
}

TEST_F(MusicBox, WithoutConsumersTheSourceStandsStillAndGoesOnWhereItStopped) {
    WithBox([&](BoxHolder&) {
        SleepMilliseconds(3600'000);
        EXPECT_EQ(source_->pulls, 0u);
        ReaderHolder reader = Open();
        SleepMilliseconds(1500);
        EXPECT_EQ(source_->pulls, 150u);
        reader = nullptr;  // the half chunk is thrown away
        SleepMilliseconds(3600'000);
        EXPECT_EQ(source_->pulls, 150u);
        reader = Open();
        SleepMilliseconds(990);
        EXPECT_EQ(Pull(*reader).frame, buffer_);
        SleepMilliseconds(10);
        EXPECT_EQ(Pull(*reader).Samples(1000), Expected(12000, 1000));
        EXPECT_THAT(sim_.ThreadNames(), Contains("music box"));
    });
}

TEST_F(MusicBox, AReaderThatStopsForSevenSecondsFallsBackToFive) {
    WithBox([&](BoxHolder&) {
        ReaderHolder reader = Open();
        SleepMilliseconds(2000);
        Pull(*reader);
        SleepMilliseconds(4000);
        EXPECT_THAT(log_.Take(), Not(Contains(Line("Warn", "Remove obsolete data: listsize=7"))));
        SleepMilliseconds(1000);
        EXPECT_THAT(log_.Take(), Contains(Line("Warn", "Remove obsolete data: listsize=7")));
        for (u64 i = 0; i < 40; ++i) EXPECT_EQ(Pull(*reader).Samples(1000), Expected(16000 + i * 1000, 1000));
        EXPECT_EQ(Pull(*reader).frame, buffer_);
    });
}

TEST_F(MusicBox, AShutDownBoxFinishesEachReaderAtItsNextFrame) {
    WithBox([&](BoxHolder& box) {
        ReaderHolder first = Open();
        u8 otherBuffer[2000];
        ReaderHolder second = Open(9, otherBuffer, 2000);
        SleepMilliseconds(1000);
        EXPECT_TRUE(Pull(*first).result);
        box = nullptr;
        EXPECT_TRUE(UnregisterMusicBox("radio:", true));
        EXPECT_FALSE(FindMusicBox("radio:"));
        for (const auto& [reader, id] : {std::pair(first, 8u), std::pair(second, 9u)}) {
            const Pulled pulled = Pull(*reader);
            EXPECT_EQ(pulled.frame, nullptr);
            EXPECT_FALSE(pulled.result);
            EXPECT_EQ(pulled.events, Finished({id}));
        }
        EXPECT_THAT(sim_.ThreadNames(), Contains("music box"));  // the readers hold it still
        first->Close();
        EXPECT_FALSE(first->IsOpen());
        second = nullptr;
        EXPECT_THAT(sim_.ThreadNames(), ElementsAre("main"));
    });
}

TEST_F(MusicBox, WithoutAShutdownItsReadersGoOnForAsLongAsTheyHoldIt) {
    WithBox([&](BoxHolder& box) {
        ReaderHolder reader = Open();
        box = nullptr;
        EXPECT_TRUE(UnregisterMusicBox("radio:", false));
        SleepMilliseconds(3000);
        for (u64 i = 0; i < 24; ++i) EXPECT_EQ(Pull(*reader).Samples(1000), Expected(i * 1000, 1000));
        BoxHolder next = RegisterMusicBox("radio:", new WaveSource, nullptr, 0);
        EXPECT_TRUE(next.IsValid());
        reader = nullptr;
        EXPECT_THAT(sim_.ThreadNames(), ElementsAre("main", "music box"));
    });
}

TEST_F(MusicBox, AReaderThatIsOpenedAgainListensOnce) {
    WithBox([&](BoxHolder&) {
        ReaderHolder reader = Open();
        EXPECT_TRUE(reader->Open("radio:", buffer_, 2000));
        log_.Take();
        SleepMilliseconds(1000);
        EXPECT_THAT(log_.Take(), Contains(MatchesRegex(".*Provided \\(1\\) at.*")));
        EXPECT_FALSE(reader->Open("nobody:", buffer_, 2000));
        EXPECT_FALSE(reader->IsOpen());
        reader->Rewind();
    });
}

TEST_F(MusicBox, NullFramesDelayTheChunk) {
    WithBox([&](BoxHolder&) {
        source_->silentPulls = 30;
        ReaderHolder reader = Open();
        SleepMilliseconds(1290);
        EXPECT_EQ(Pull(*reader).frame, buffer_);
        SleepMilliseconds(10);
        EXPECT_EQ(Pull(*reader).Samples(1000), Expected(0, 1000));
    });
}

TEST_F(MusicBox, AThreadThatWasHeldUpCatchesUpAndTheGridDoesNotDrift) {
    WithBox([&](BoxHolder&) {
        ReaderHolder reader = Open();
        SleepMilliseconds(100);
        source_->delayNext = 73;
        SleepMilliseconds(200);
        EXPECT_EQ(source_->pulls, 30u);
        source_->pullTimes.clear();
        SleepMilliseconds(30);
        const u64 now = Platform::SteadyMilliseconds() - 5;
        EXPECT_THAT(source_->pullTimes, ElementsAre(now - 20, now - 10, now));
    });
}

TEST_F(MusicBox, PassesTheSourcesEventsToItsListenerInOrder) {
    sim_.Run([&] {
        MTObjects::THolder<Listener> listener(new Listener);
        BoxHolder box = RegisterMusicBox("radio:", source_, listener, 0);
        ReaderHolder reader = Open();
        source_->nextEvents = {3, 1, 2};
        SleepMilliseconds(15);
        EXPECT_THAT(listener->heard, ElementsAre(3, 1, 2));
        listener->valid = false;
        source_->nextEvents = {4};
        SleepMilliseconds(20);
        EXPECT_THAT(listener->heard, ElementsAre(3, 1, 2));
        UnregisterMusicBox("radio:", true);
    });
}

TEST_F(MusicBox, ShiftsItsSamples) {
    sim_.Run([&] {
        BoxHolder box = RegisterMusicBox("radio:", source_, nullptr, 1);
        ReaderHolder reader = Open();
        SleepMilliseconds(1005);
        const Pulled pulled = Pull(*reader);
        EXPECT_EQ(pulled.Sample(0), 2);
        EXPECT_EQ(pulled.Sample(999), 2000);
        UnregisterMusicBox("radio:", true);
    });
}

TEST_F(MusicBox, PlaysAStreamSetAndFadesItIn) {
    sim_.Run([&] {
        MTObjects::THolder<IMMStreamManager> set = CreateStreamSet();
        BoxHolder box = RegisterMusicBox("radio:", set, nullptr, 0);
        sim_.Files().AddFile("/hold.raw", std::string(32000, '\x20'));
        set->SetMainContent(0, {{1, "/hold.raw", false}}, true);
        set->SetMixMask(1);
        ReaderHolder reader = Open();
        SleepMilliseconds(2005);
        Pulled pulled = Pull(*reader);
        EXPECT_EQ(pulled.Sample(0), 0);  // 0x2020 * 0.0001
        EXPECT_EQ(pulled.Sample(999), 822);
        for (int i = 1; i < 12; ++i) pulled = Pull(*reader);
        EXPECT_EQ(pulled.Sample(0), 0x2020);
        reader = nullptr;
        UnregisterMusicBox("radio:", true);
    });
}

TEST_F(MusicBox, WithoutAThreadToStartIsNotRegistered) {
    sim_.Run([&] {
        sim_.FailThreadStarts(1);
        EXPECT_THROW(RegisterMusicBox("radio:", source_, nullptr, 0), std::system_error);
        EXPECT_FALSE(FindMusicBox("radio:"));
        EXPECT_EQ(IMusicBox::Living(), 0u);
    });
}

// Chunks come a second apart, and each is one allocation for its samples and one for its place in each queue. What the
// simulation itself might allocate would be seen, too.
TEST_F(MusicBox, NothingIsAllocatedWithinAChunk) {
    WithBox([&](BoxHolder&) {
        source_->pullTimes.reserve(1000);
        ReaderHolder reader = Open();
        SleepMilliseconds(1100);
        ContentEventList events;
        const u8* frame = nullptr;
        const TestData::AllocationCounter counter;
        for (int i = 0; i < 6; ++i) {
            reader->GetNextFrame(&frame, events);
            SleepMilliseconds(125);
        }
        EXPECT_EQ(counter.Count(), 0u);
        EXPECT_EQ(source_->pulls, 185u);
        EXPECT_NE(frame, buffer_);
    });
}

TEST_F(MusicBox, AFrameOutlivesItsReaderUntilItIsUsed) {
    WithBox([&](BoxHolder&) {
        ReaderHolder reader = Open();
        SleepMilliseconds(1000);
        const Pulled pulled = Pull(*reader);
        const auto owner = reader->FrameOwner();
        reader = nullptr;
        UnregisterMusicBox("radio:", true);
        EXPECT_EQ(pulled.Samples(1000), Expected(0, 1000));
    });
}

}  // namespace
}  // namespace Orv
