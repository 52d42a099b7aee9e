// The stream set's lists: what follows what, what is told, and when readers come and go.
#include "Projects/Common/VoIPFileEngine/MMStreamSetReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "Projects/Common/VoIPFileEngine/FakeStream.h"
#include "tests/Projects/Common/VoIPFileEngine/ScriptedStreamSet.h"

namespace Orv {
namespace {

using TestData::Events;
using TestData::Finished;
using TestData::Pulled;
using testing::ElementsAre;
using testing::IsEmpty;

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

TEST_F(StreamSet, ASetIsOneObjectAlongBothItsBases) {
    EXPECT_TRUE(reader_.IsValid());
    EXPECT_TRUE(manager_.IsValid());
    manager_ = nullptr;
    EXPECT_EQ(Next().frame, nullptr);  // still held as a reader
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
