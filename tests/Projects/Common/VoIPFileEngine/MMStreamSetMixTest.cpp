// What the stream set makes of its two lists: ramps, ducking, sums, and frames that are handed on as they are.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/Projects/Common/VoIPFileEngine/AllocationCounter.h"
#include "tests/Projects/Common/VoIPFileEngine/ScriptedStreamSet.h"

namespace Orv {
namespace {

using TestData::Finished;
using TestData::Pulled;
using testing::IsEmpty;

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
}  // namespace Orv
