// The stream set over readers from a script: this program has a CreateStreamReader() of its own, which takes names like
// "tone 1000 4", a reader of 4 frames whose samples are all 1000, "gap 3", 3 null frames, and fails on anything else.
#include "Projects/Common/VoIPFileEngine/MMStreamSetReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "Projects/Common/VoIPFileEngine/FakeStream.h"
#include "tests/Projects/Common/VoIPFileEngine/AllocationCounter.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"
#include "tests/Projects/Common/VoIPFileEngine/ReaderFakes.h"

namespace Orv {
namespace {

using TestData::Events;
using TestData::Finished;
using TestData::Pull;
using TestData::Pulled;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr u32 kForEver = 1000000;

class ScriptedReader : public IMMFileStreamReader {
public:
    ScriptedReader(u32 id, const std::string& kind, i16 sample, u32 frames)
        : IMMFileStreamReader(id), silent_(kind == "gap"), frames_(frames), name_(kind + std::to_string(sample)) {
        ++alive;
        for (u64 i = 0; i < MaxFrameBytes / 2; ++i) std::memcpy(data_ + 1 + i * 2, &sample, 2);
    }
    ~ScriptedReader() override {
        --alive;
        std::memset(data_, 0xEE, sizeof data_);
    }

    bool Open(const char*, void* buffer, i32 frameBytes) override {
        lastBuffer = buffer;
        lastFrameBytes = frameBytes;
        return true;
    }
    bool GetNextFrame(const u8** frame, ContentEventList& events) override {
        *frame = nullptr;
        if (position_ == frames_) {
            AppendFinished(events);
            return false;
        }
        ++position_;
        if (!silent_) *frame = data_ + 1;  // an odd address
        return true;
    }
    void Rewind() override {
        ++rewinds;
        position_ = 0;
    }
    std::string GetName() override { return name_; }
    bool IsOpen() override { return true; }
    void Close() override { ++closes; }

    static inline int alive = 0;
    static inline int rewinds = 0;
    static inline int closes = 0;
    static inline void* lastBuffer = nullptr;
    static inline i32 lastFrameBytes = -1;

private:
    const bool silent_;
    const u32 frames_;
    const std::string name_;
    u32 position_ = 0;
    u8 data_[MaxFrameBytes + 1];
};

StreamItem Tone(u32 id, i16 sample, u32 frames) {
    return {id, "tone " + std::to_string(sample) + " " + std::to_string(frames), false};
}
StreamItem Gap(u32 id, u32 frames) {
    return {id, "gap 0 " + std::to_string(frames), false};
}
StreamItem Bad(u32 id) {
    return {id, "bad", false};
}

class StreamSet : public testing::Test {
protected:
    StreamSet() {
        ScriptedReader::rewinds = 0;
        ScriptedReader::closes = 0;
        manager_->Prepare(buffer_, 2000);
        log_.Take();
    }
    ~StreamSet() override {
        manager_ = nullptr;
        reader_ = nullptr;
        EXPECT_EQ(ScriptedReader::alive, 0);
        EXPECT_EQ(ScriptedReader::closes, 0);
    }

    Pulled Next() { return Pull(*reader_); }
    // Pulls past the fade-in of a main list: 10 frames of 1000 samples.
    void FadeIn() {
        for (int i = 0; i < 10; ++i) Next();
    }
    bool InBuffer(const Pulled& pulled) const { return pulled.frame == buffer_; }

    TestData::EngineLog log_;
    u8 buffer_[2000] = {};
    MTObjects::THolder<IMMStreamManager> manager_ = CreateStreamSet();
    MTObjects::THolder<IMMFileStreamReader> reader_ = manager_->GetReader();
};

const char* const kRestartLine =
    "Trace VoIPFileEngine/MMStreamSetReader: Content is finished. Reset to first file in list";

TEST_F(StreamSet, WithoutAMaskGivesANullFrameAndTrue) {
    manager_->SetMainContent(2, {Tone(1, 1000, 5)}, false);
    manager_->SetOverlayContent(3, {Tone(1, 1000, 5)}, false);
    for (int i = 0; i < 20; ++i) {
        const Pulled pulled = Next();
        EXPECT_EQ(pulled.frame, nullptr);
        EXPECT_TRUE(pulled.result);
        EXPECT_THAT(pulled.events, IsEmpty());
    }
}

TEST_F(StreamSet, WithEmptyListsGivesNullFramesAndTrueForEver) {
    manager_->SetMixMask(3);
    for (int i = 0; i < 20; ++i) {
        const Pulled pulled = Next();
        EXPECT_EQ(pulled.frame, nullptr);
        EXPECT_TRUE(pulled.result);
        EXPECT_THAT(pulled.events, IsEmpty());
    }
    EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(StreamSet, AMainListOfOneFileTellsTheItemThenTheListAndIsSilentFromThenOn) {
    manager_->SetMainContent(2, {Tone(7, 1000, 3)}, false);
    manager_->SetMixMask(1);
    for (int i = 0; i < 3; ++i) {
        const Pulled pulled = Next();
        EXPECT_NE(pulled.frame, nullptr);
        EXPECT_THAT(pulled.events, IsEmpty());
    }
    const Pulled end = Next();
    EXPECT_EQ(end.frame, nullptr);
    EXPECT_TRUE(end.result);
    EXPECT_EQ(end.events, Finished({7, 2}));
    for (int i = 0; i < 5; ++i) {
        const Pulled after = Next();
        EXPECT_EQ(after.frame, nullptr);
        EXPECT_TRUE(after.result);
        EXPECT_THAT(after.events, IsEmpty());
    }
    EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(StreamSet, ALoopingListOfOneFileRestartsInTheTickOfItsEndWithoutAGap) {
    manager_->SetMainContent(2, {Tone(7, 1000, 12)}, true);
    manager_->SetMixMask(1);
    for (int i = 0; i < 12; ++i) Next();
    EXPECT_THAT(log_.Take(), IsEmpty());
    const Pulled again = Next();
    ASSERT_NE(again.frame, nullptr);
    EXPECT_TRUE(again.result);
    EXPECT_EQ(again.events, Finished({7, 2}));
    EXPECT_EQ(again.Sample(0), 1000);
    EXPECT_EQ(ScriptedReader::rewinds, 1);
    EXPECT_THAT(log_.Take(), ElementsAre(kRestartLine));
    EXPECT_THAT(Next().events, IsEmpty());
}

TEST_F(StreamSet, TheNextItemPlaysInTheTickInWhichTheOneBeforeEnded) {
    manager_->SetMainContent(2, {Tone(7, 1000, 11), Bad(8), {9, "some text", true}, Tone(10, 2000, 1)}, false);
    manager_->SetMixMask(1);
    FadeIn();
    EXPECT_EQ(Next().Sample(0), 1000);
    const Pulled change = Next();
    ASSERT_NE(change.frame, nullptr);
    EXPECT_EQ(change.Sample(999), 2000);
    EXPECT_EQ(change.events, Finished({7, 8, 9}));
    EXPECT_EQ(Next().events, Finished({10, 2}));
}

TEST_F(StreamSet, ALoopingListOfThreeFailingItemsTellsSixItemAndTwoListEventsInOneCallAndIsSilentThen) {
    manager_->SetMainContent(2, {Bad(11), Bad(12), Bad(13)}, true);
    manager_->SetMixMask(1);
    const Pulled pulled = Next();
    EXPECT_EQ(pulled.frame, nullptr);
    EXPECT_TRUE(pulled.result);
    EXPECT_EQ(pulled.events, Finished({11, 12, 13, 2, 11, 12, 13, 2}));
    EXPECT_THAT(log_.Take(), ElementsAre(kRestartLine));
    for (int i = 0; i < 5; ++i) {
        const Pulled after = Next();
        EXPECT_EQ(after.frame, nullptr);
        EXPECT_TRUE(after.result);
        EXPECT_THAT(after.events, IsEmpty());
    }
}

TEST_F(StreamSet, ALoopingListOfFailingItemsTellsEachTwiceWhateverTheirNumber) {
    for (u32 items : {1u, 2u, 5u, 20u}) {
        std::list<StreamItem> list;
        for (u32 i = 0; i < items; ++i) list.push_back(Bad(100 + i));
        manager_->SetMainContent(2, list, true);
        manager_->SetMixMask(1);
        const Events events = Next().events;
        EXPECT_EQ(events.size(), items * 2 + 2);
        EXPECT_EQ(std::count(events.begin(), events.end(), std::make_pair(1u, 2u)), 2);
        EXPECT_THAT(Next().events, IsEmpty());
    }
}

TEST_F(StreamSet, AListAtItsEndPlaysAgainAfterRewind) {
    manager_->SetMainContent(2, {Tone(7, 1000, 1)}, false);
    manager_->SetMixMask(1);
    Next();
    Next();
    EXPECT_EQ(Next().frame, nullptr);
    reader_->Rewind();
    EXPECT_NE(Next().frame, nullptr);
    EXPECT_EQ(Next().events, Finished({7, 2}));
}

TEST_F(StreamSet, RewindTakesBothListsToTheirFirstItemAndLeavesTheRamp) {
    manager_->SetMainContent(2, {Tone(7, 1000, 1), Tone(8, 2000, kForEver)}, false);
    manager_->SetOverlayContent(3, {Tone(9, 10, 1), Tone(10, 20, kForEver)}, false);
    manager_->SetMixMask(1);
    for (int i = 0; i < 11; ++i) Next();
    manager_->SetMixMask(2);  // the overlay goes to its second item
    Next();
    Next();
    manager_->SetMixMask(1);
    for (int i = 0; i < 11; ++i) Next();
    ScriptedReader::rewinds = 0;
    reader_->Rewind();
    EXPECT_EQ(ScriptedReader::rewinds, 2);
    const Pulled main = Next();
    EXPECT_EQ(main.Sample(0), 1000);
    EXPECT_FALSE(InBuffer(main));  // still at full level
    EXPECT_EQ(reader_->GetContentId(), 9u);
}

TEST_F(StreamSet, ANewSetFadesInOver10000SamplesAndThenPassesFramesByPointer) {
    manager_->SetMainContent(2, {Tone(7, 20000, kForEver)}, false);
    manager_->SetMixMask(1);
    float gain = 0.0F;
    for (int i = 0; i < 10; ++i) {
        const Pulled pulled = Next();
        ASSERT_TRUE(InBuffer(pulled));
        for (int k = 0; k < 1000; ++k) {
            gain = i == 9 && k == 999 ? 1.0F : gain + 0.0001F;
            ASSERT_EQ(pulled.Sample(k), static_cast<i16>(static_cast<i32>(20000.0F * gain))) << i << ' ' << k;
        }
    }
    const Pulled first = Next();
    EXPECT_FALSE(InBuffer(first));
    EXPECT_EQ(first.Sample(0), 20000);
    EXPECT_EQ(Next().frame, first.frame);
}

TEST_F(StreamSet, AnOverlayDucksTheMainListToOneEighthAndTheShiftTakesOver) {
    manager_->SetMainContent(2, {Tone(7, -9, kForEver)}, false);
    manager_->SetMixMask(1);
    FadeIn();
    manager_->SetOverlayContent(3, {Tone(8, 100, kForEver)}, false);
    manager_->SetMixMask(3);
    float gain = 1.0F;
    for (int i = 0; i < 10; ++i) {
        const Pulled pulled = Next();
        ASSERT_TRUE(InBuffer(pulled));
        for (int k = 0; k < 1000; ++k) {
            const int step = i * 1000 + k + 1;
            gain = step == 8750 ? 0.125F : gain - 0.0001F;
            const i32 expected = step <= 8750 ? static_cast<i32>(-9.0F * gain) : -2;  // -9 >> 3
            ASSERT_EQ(pulled.Sample(k), expected + 100) << step;
        }
    }
}

TEST_F(StreamSet, TheMainListRecoversIn8750SamplesWhenTheOverlayStops) {
    manager_->SetMainContent(2, {Tone(7, 8000, kForEver)}, false);
    manager_->SetOverlayContent(3, {Tone(8, 0, 20)}, false);
    manager_->SetMixMask(3);
    for (int i = 0; i < 20; ++i) Next();  // at rest at one eighth
    Pulled pulled = Next();
    EXPECT_EQ(pulled.events, Finished({8, 3}));
    EXPECT_EQ(pulled.Sample(0), static_cast<i16>(8000.0F * (0.125F + 0.0001F)));
    for (int i = 1; i < 8; ++i) pulled = Next();
    EXPECT_LT(pulled.Sample(999), 8000);
    pulled = Next();
    ASSERT_TRUE(InBuffer(pulled));
    EXPECT_LT(pulled.Sample(748), 8000);
    EXPECT_EQ(pulled.Sample(749), 8000);
    EXPECT_EQ(pulled.Sample(999), 8000);
    EXPECT_FALSE(InBuffer(Next()));
}

TEST_F(StreamSet, FullScaleSamplesAddWithWraparound) {
    manager_->SetMainContent(2, {Tone(7, 32767, kForEver)}, false);
    manager_->SetOverlayContent(3, {Tone(8, 32767, kForEver)}, false);
    manager_->SetMixMask(3);
    for (int i = 0; i < 2; ++i) Next();
    EXPECT_EQ(Next().Sample(0), static_cast<i16>(4095 + 32767 - 65536));
}

TEST_F(StreamSet, TheOverlayAlonePassesByPointerAndTheRampStandsStill) {
    manager_->SetMainContent(2, {Tone(7, 20000, 5), Gap(8, 4), Tone(9, 20000, kForEver)}, false);
    manager_->SetOverlayContent(3, {Gap(10, 5), Tone(11, 300, 3), Tone(12, 0, 1), Gap(13, kForEver)}, false);
    manager_->SetMixMask(3);
    Pulled pulled{};
    for (int i = 0; i < 5; ++i) pulled = Next();
    const i16 last = pulled.Sample(999);
    EXPECT_NEAR(last, 10000, 20);
    for (int i = 0; i < 3; ++i) {
        pulled = Next();  // the main list delivers nothing
        EXPECT_FALSE(InBuffer(pulled));
        EXPECT_EQ(pulled.Sample(0), 300);
    }
    Next();
    EXPECT_NEAR(Next().Sample(0), last + 2, 1);
}

TEST_F(StreamSet, AMaskWithoutTheMainListMakesItFadeInFromSilenceWhenItComesBack) {
    manager_->SetMainContent(2, {Tone(7, 20000, 12)}, false);
    manager_->SetOverlayContent(3, {Gap(8, kForEver)}, false);
    manager_->SetMixMask(1);
    FadeIn();
    manager_->SetMixMask(2);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Next().frame, nullptr);
    manager_->SetMixMask(1);
    const Pulled back = Next();
    EXPECT_TRUE(InBuffer(back));
    EXPECT_EQ(back.Sample(0), 2);  // 20000 * 0.0001, rounded to a float
    EXPECT_NEAR(back.Sample(999), 2000, 2);
    // Its place was held: 11 frames are gone, one is left.
    EXPECT_THAT(Next().events, IsEmpty());
    EXPECT_EQ(Next().events, Finished({7, 2}));
}

TEST_F(StreamSet, AMaskOfNoListLeavesTheRampAlone) {
    manager_->SetMainContent(2, {Tone(7, 20000, kForEver)}, false);
    manager_->SetMixMask(1);
    FadeIn();
    manager_->SetMixMask(0);
    EXPECT_EQ(Next().frame, nullptr);
    manager_->SetMixMask(1);
    EXPECT_FALSE(InBuffer(Next()));
}

TEST_F(StreamSet, TellsTheMainListsEventsBeforeTheOverlays) {
    manager_->SetMainContent(2, {Tone(7, 1, 1)}, false);
    manager_->SetOverlayContent(4, {Tone(8, 1, 1)}, false);
    manager_->SetMixMask(3);
    Next();
    const Pulled pulled = Next();
    EXPECT_EQ(pulled.events, Finished({7, 2, 8, 4}));
    EXPECT_EQ(pulled.frame, nullptr);
}

TEST_F(StreamSet, AnswersFalseOnlyWhenTheOverlayHasJustEnded) {
    manager_->SetMainContent(2, {Tone(7, 1, 1)}, false);
    manager_->SetOverlayContent(4, {Tone(8, 1, 2)}, false);
    manager_->SetMixMask(3);
    EXPECT_TRUE(Next().result);
    EXPECT_TRUE(Next().result);   // the main list ends here
    EXPECT_FALSE(Next().result);  // and the overlay here
    EXPECT_TRUE(Next().result);

    manager_->SetMainContent(2, {Tone(7, 1, kForEver)}, false);
    manager_->SetOverlayContent(4, {Tone(8, 1, 1)}, false);
    Next();
    const Pulled covered = Next();  // the main list's frame and answer count
    EXPECT_EQ(covered.events, Finished({8, 4}));
    EXPECT_TRUE(covered.result);
}

TEST_F(StreamSet, SwitchContentTakesLayerOneForTheMainListAndAnyOtherForTheOverlay) {
    manager_->SwitchContent(2, false, {Tone(7, 1, 1)}, 1, 2, 3);
    Next();
    EXPECT_EQ(Next().events, Finished({7, 2}));
    for (u8 layer : {u8{2}, u8{0}, u8{3}, u8{255}}) {
        manager_->SwitchContent(3, false, {Tone(8, 1, 1)}, layer, 1, 3);
        Next();
        EXPECT_EQ(Next().events, Finished({8, 3}));
    }
    manager_->SwitchContent(2, false, {Tone(7, 1, 1)}, 1, 2, 0);
    EXPECT_THAT(Next().events, IsEmpty());
    manager_->SwitchContent(2, true, {Tone(7, 1, 11)}, 1, 2, 1);
    for (int i = 0; i < 11; ++i) Next();
    EXPECT_NE(Next().frame, nullptr);
}

TEST_F(StreamSet, AllReadersOfAListGetItsFrameBlockAndTheFrameSize) {
    manager_->SetMainContent(2, {Tone(7, 1, 1)}, false);
    void* const mainBlock = ScriptedReader::lastBuffer;
    EXPECT_EQ(ScriptedReader::lastFrameBytes, 2000);
    manager_->SetMainContent(2, {Tone(7, 1, 1), Tone(8, 1, 1)}, false);
    EXPECT_EQ(ScriptedReader::lastBuffer, mainBlock);
    manager_->SetOverlayContent(2, {Tone(7, 1, 1)}, false);
    EXPECT_NE(ScriptedReader::lastBuffer, mainBlock);
    EXPECT_NE(ScriptedReader::lastBuffer, static_cast<void*>(buffer_));
}

TEST_F(StreamSet, AListThatIsSetBeforePrepareIsBuiltWithFrameSizeZero) {
    const auto other = CreateStreamSet();
    other->SetMainContent(2, {Tone(7, 1, 1)}, false);
    EXPECT_EQ(ScriptedReader::lastFrameBytes, 0);
}

TEST_F(StreamSet, OpenWithTheSameFrameSizeKeepsTheLists) {
    manager_->SetMainContent(2, {Tone(7, 5, kForEver)}, false);
    manager_->SetMixMask(1);
    EXPECT_TRUE(reader_->Open("music", buffer_, 2000));
    EXPECT_NE(Next().frame, nullptr);
}

TEST_F(StreamSet, OpenWithAnotherFrameSizeEmptiesTheListsAndClearsTheMask) {
    manager_->SetMainContent(2, {Tone(7, 5, kForEver)}, true);
    manager_->SetOverlayContent(3, {Tone(8, 5, kForEver)}, true);
    manager_->SetMixMask(3);
    EXPECT_TRUE(manager_->Prepare(buffer_, 160));
    EXPECT_EQ(ScriptedReader::alive, 0);
    EXPECT_EQ(Next().frame, nullptr);
    manager_->SetMainContent(2, {Tone(7, 5, kForEver)}, true);
    EXPECT_EQ(ScriptedReader::lastFrameBytes, 160);
    EXPECT_EQ(Next().frame, nullptr);  // the mask is 0
    manager_->SetMixMask(1);
    EXPECT_NE(Next().frame, nullptr);
}

TEST_F(StreamSet, AFrameSizeThatItsBlocksCannotHoldIsRefused) {
    manager_->SetMainContent(2, {Tone(7, 5, kForEver)}, false);
    manager_->SetMixMask(1);
    EXPECT_FALSE(manager_->Prepare(buffer_, 2049));
    EXPECT_FALSE(manager_->Prepare(buffer_, -1));
    EXPECT_NE(Next().frame, nullptr);
    EXPECT_TRUE(manager_->Prepare(buffer_, 2000));
    u8 largest[2048];
    EXPECT_TRUE(manager_->Prepare(largest, 2048));
    manager_ = nullptr;
    reader_ = nullptr;
}

TEST_F(StreamSet, CloseEmptiesBothListsAndTheMaskAndLeavesTheRamp) {
    manager_->SetMainContent(2, {Tone(7, 5, kForEver)}, true);
    manager_->SetOverlayContent(3, {Gap(8, kForEver)}, true);
    manager_->SetMixMask(3);
    FadeIn();
    reader_->Close();
    EXPECT_EQ(ScriptedReader::alive, 0);
    EXPECT_EQ(Next().frame, nullptr);
    manager_->SetMainContent(2, {Tone(7, 5, kForEver)}, false);
    manager_->SetMixMask(1);
    EXPECT_FALSE(InBuffer(Next()));
    EXPECT_TRUE(reader_->IsOpen());
    EXPECT_FALSE(reader_->IsFile());
}

TEST_F(StreamSet, NameAndIdAreThoseOfTheOverlaysCurrentReaderAlone) {
    EXPECT_EQ(reader_->GetName(), "");
    EXPECT_EQ(reader_->GetContentId(), 0u);
    manager_->SetMainContent(2, {Tone(7, 5, kForEver)}, false);
    manager_->SetMixMask(3);
    Next();
    EXPECT_EQ(reader_->GetName(), "");
    EXPECT_EQ(reader_->GetContentId(), 0u);
    manager_->SetOverlayContent(3, {Tone(8, 5, 1), Gap(9, 1)}, false);
    EXPECT_EQ(reader_->GetName(), "tone5");
    EXPECT_EQ(reader_->GetContentId(), 8u);
    Next();
    Next();
    EXPECT_EQ(reader_->GetName(), "gap0");
    EXPECT_EQ(reader_->GetContentId(), 9u);
    Next();
    EXPECT_EQ(reader_->GetName(), "");
    EXPECT_EQ(reader_->GetContentId(), 0u);
}

TEST_F(StreamSet, AnOverlayReaderThatIsText) {
    manager_->SetOverlayContent(3, {{8, "words", true}}, false);
    EXPECT_EQ(reader_->GetName(), "text");
    EXPECT_EQ(reader_->GetContentId(), 8u);
}

// The owner of the content may replace it on another thread while the puller still works on its last frame.
TEST_F(StreamSet, AFrameHandedOutByPointerOutlivesItsListUntilTheNextPull) {
    manager_->SetMainContent(2, {Tone(7, 1234, kForEver)}, false);
    manager_->SetMixMask(1);
    FadeIn();
    const Pulled pulled = Next();
    ASSERT_FALSE(InBuffer(pulled));
    manager_->SetMainContent(2, {Tone(8, 4321, kForEver)}, false);
    EXPECT_EQ(ScriptedReader::alive, 2);
    EXPECT_EQ(pulled.Sample(0), 1234);
    EXPECT_EQ(pulled.Sample(999), 1234);
    EXPECT_EQ(Next().Sample(0), 4321);
    EXPECT_EQ(ScriptedReader::alive, 1);
}

TEST_F(StreamSet, AReaderWhoseFrameWasMixedGoesWithItsList) {
    manager_->SetMainContent(2, {Tone(7, 1234, kForEver)}, false);
    manager_->SetMixMask(1);
    ASSERT_TRUE(InBuffer(Next()));
    manager_->SetMainContent(2, {}, false);
    EXPECT_EQ(ScriptedReader::alive, 0);
}

TEST_F(StreamSet, ASetIsOneObjectAlongBothItsBases) {
    EXPECT_TRUE(reader_.IsValid());
    EXPECT_TRUE(manager_.IsValid());
    manager_ = nullptr;
    EXPECT_EQ(Next().frame, nullptr);  // still held as a reader
}

TEST_F(StreamSet, NothingIsAllocatedBetweenTwoEndsOfContent) {
    manager_->SetMainContent(2, {Tone(7, 1000, kForEver)}, false);
    manager_->SetOverlayContent(3, {Gap(8, 100), Tone(9, 5, 100), Gap(10, kForEver)}, false);
    manager_->SetMixMask(3);
    ContentEventList events;
    const u8* frame = nullptr;
    u64 ends = 0;
    u64 inPull = 0;
    for (int i = 0; i < 1000; ++i) {
        const TestData::AllocationCounter counter;
        reader_->GetNextFrame(&frame, events);
        inPull += counter.Count();
        ends += events.size();
        events.clear();
    }
    EXPECT_EQ(ends, 2u);
    EXPECT_EQ(inPull, ends);  // the records of the ends alone
}

}  // namespace

MTObjects::THolder<IMMFileStreamReader> CreateStreamReader(u32 id, const char* name, void* buffer, u32 frameBytes) {
    std::istringstream words(name);
    std::string kind;
    i16 sample = 0;
    u32 frames = 0;
    words >> kind >> sample >> frames;
    if (kind != "tone" && kind != "gap") return new FakeStream(id);
    MTObjects::THolder<IMMFileStreamReader> reader(new ScriptedReader(id, kind, sample, frames));
    reader->Open(name, buffer, static_cast<i32>(frameBytes));
    return reader;
}

}  // namespace Orv
