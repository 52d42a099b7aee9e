// Chunks, subscriptions and a listener's queue, without a box's thread: the test hands out the chunks.
#include "Projects/Common/VoIPFileEngine/MusicBoxConsumer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Projects/Common/VoIPFileEngine/StreamMusicBox.h"
#include "tests/Projects/Common/VoIPFileEngine/EngineLog.h"
#include "tests/Projects/Common/VoIPFileEngine/ReaderFakes.h"

namespace Orv {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using ChunkHolder = MTObjects::THolder<IMusicBoxSoundChunk>;

std::string Line(const std::string& word, const std::string& text) {
    return word + " VoIPFileEngine/MusicBox: " + text;
}

// Sample k of the box's whole life.
i16 Wave(u64 k) {
    return static_cast<i16>(k % 30011 + 1);
}

class TestChunk : public IMusicBoxSoundChunk {
public:
    TestChunk(u64 first, bool valid) : valid_(valid) {
        for (u64 i = 0; i < Size; ++i) samples_[i] = Wave(first + i);
        ++alive;
    }
    ~TestChunk() override { --alive; }
    u64 GetSamples(const i16** samples, u64 position, u64 count) override {
        *samples = position < Size ? samples_ + position : nullptr;
        return position < Size ? std::min(Size - position, count) : 0;
    }
    static inline int alive = 0;

protected:
    bool TestValid() const override { return valid_; }

private:
    const bool valid_;
    i16 samples_[Size];
};

class TestBox : public IMusicBoxImpl {
public:
    using IMusicBoxImpl::HasConsumers;
    using IMusicBoxImpl::Provide;

    // One more second of the wave to all consumers.
    void Play() {
        Provide(new TestChunk(played_, true));
        played_ += IMusicBoxSoundChunk::Size;
    }

private:
    u64 played_ = 0;
};

// A consumer that does not hold its box.
class BareConsumer : public IMusicBoxConsumer {
public:
    explicit BareConsumer(std::string consumerName = "") : name(std::move(consumerName)) {}
    void AddChunk(MTObjects::THolder<IMusicBox>, ChunkHolder chunk) override {
        calls.push_back(name + " chunk");
        chunks.push_back(chunk);
    }
    void OnSubscriptionRemoved(MTObjects::THolder<IMusicBox> box) override {
        calls.push_back(name + (box ? " removed" : " removed by the end of the box"));
    }
    void Connect(MTObjects::THolder<IMusicBox>) override {}
    void Disconnect() override {}
    bool ReadFrame(const u8**) override { return false; }
    ChunkHolder FrameChunk() override { return nullptr; }

    const std::string name;
    std::vector<ChunkHolder> chunks;
    bool valid = true;
    static inline std::vector<std::string> calls;

protected:
    bool TestValid() const override { return valid; }
};

TEST(MusicBoxChunk, GivesWhatIsThereFromAPositionInPlace) {
    MTObjects::THolder<RealChunk> chunk(new RealChunk(0));
    std::vector<i16> second(8000);
    for (u64 i = 0; i < second.size(); ++i) second[i] = Wave(i);
    EXPECT_EQ(chunk->Append(reinterpret_cast<const u8*>(second.data()), 8000), 8000u);
    EXPECT_TRUE(chunk->Full());
    const i16* samples = nullptr;
    EXPECT_EQ(chunk->GetSamples(&samples, 0, 1000), 1000u);
    const i16* const start = samples;
    EXPECT_EQ(samples[999], Wave(999));
    EXPECT_EQ(chunk->GetSamples(&samples, 7999, 1000), 1u);
    EXPECT_EQ(samples, start + 7999);
    EXPECT_EQ(chunk->GetSamples(&samples, 7000, 1000), 1000u);
    EXPECT_EQ(chunk->GetSamples(&samples, 8000, 1000), 0u);
    EXPECT_EQ(samples, nullptr);
    samples = start;
    EXPECT_EQ(chunk->GetSamples(&samples, ~u64{0}, 1), 0u);
    EXPECT_EQ(samples, nullptr);
}

TEST(MusicBoxChunk, TakesNoMoreThanItHasRoomForAndStartsAgainWhenCleared) {
    MTObjects::THolder<RealChunk> chunk(new RealChunk(0));
    const std::vector<u8> frame(160, 7);
    for (int i = 0; i < 100; ++i) {
        EXPECT_FALSE(chunk->Full());
        EXPECT_EQ(chunk->Append(frame.data(), 80), 80u);
    }
    EXPECT_TRUE(chunk->Full());
    EXPECT_EQ(chunk->Append(frame.data(), 80), 0u);
    chunk->Clear();
    EXPECT_FALSE(chunk->Full());
    EXPECT_EQ(chunk->Append(frame.data(), 80), 80u);
}

std::vector<i16> Shifted(i32 shift, std::vector<i16> samples) {
    MTObjects::THolder<RealChunk> chunk(new RealChunk(shift));
    chunk->Append(reinterpret_cast<const u8*>(samples.data()), samples.size());
    const i16* stored = nullptr;
    chunk->GetSamples(&stored, 0, samples.size());
    return {stored, stored + samples.size()};
}

TEST(MusicBoxChunk, ShiftsSamplesOnTheirWayIn) {
    EXPECT_THAT(Shifted(0, {1, -1, 32767, -32768}), ElementsAre(1, -1, 32767, -32768));
    EXPECT_THAT(Shifted(1, {1, -1, 20000, -32768}), ElementsAre(2, -2, -25536, 0));
    EXPECT_THAT(Shifted(-3, {16, -9, 7, -32768}), ElementsAre(2, -2, 0, -4096));
    EXPECT_THAT(Shifted(100, {1, -1}), ElementsAre(0, 0));
    EXPECT_THAT(Shifted(-100, {32767, -1}), ElementsAre(0, -1));
}

TEST(MusicBoxSubscriptions, AreServedInTheirOrderAndCountOnce) {
    BareConsumer::calls.clear();
    TestData::EngineLog log;
    MTObjects::THolder<TestBox> box(new TestBox);
    MTObjects::THolder<BareConsumer> first(new BareConsumer("first"));
    MTObjects::THolder<BareConsumer> second(new BareConsumer("second"));
    box->Subscribe(first);
    box->Subscribe(second);
    box->Subscribe(first);
    box->Play();
    EXPECT_THAT(BareConsumer::calls, ElementsAre("first chunk", "second chunk"));
    EXPECT_TRUE(first->chunks[0] == second->chunks[0]);
    box->Unsubscribe(first);
    box->Unsubscribe(first);
    EXPECT_THAT(BareConsumer::calls, ElementsAre("first chunk", "second chunk", "first removed"));
    box->Shutdown();
    EXPECT_FALSE(box->HasConsumers());
    EXPECT_EQ(BareConsumer::calls.back(), "second removed");
}

TEST(MusicBoxSubscriptions, OfNothingAndOfAnInvalidConsumerAreIgnored) {
    MTObjects::THolder<TestBox> box(new TestBox);
    box->Subscribe(nullptr);
    MTObjects::THolder<BareConsumer> invalid(new BareConsumer);
    invalid->valid = false;
    box->Subscribe(invalid);
    EXPECT_FALSE(box->HasConsumers());
    box->Unsubscribe(nullptr);
}

TEST(MusicBoxSubscriptions, EndWithTheBox) {
    BareConsumer::calls.clear();
    MTObjects::THolder<TestBox> box(new TestBox);
    box->Subscribe(new BareConsumer("a"));
    box->Subscribe(new BareConsumer("b"));
    box = nullptr;
    EXPECT_THAT(BareConsumer::calls, ElementsAre("a removed by the end of the box", "b removed by the end of the box"));
}

TEST(MusicBoxSubscriptions, TheLastChunkGoesWithTheLastConsumer) {
    MTObjects::THolder<TestBox> box(new TestBox);
    MTObjects::THolder<BareConsumer> consumer(new BareConsumer);
    box->Subscribe(consumer);
    box->Play();
    consumer->chunks.clear();
    EXPECT_EQ(TestChunk::alive, 1);
    box->Unsubscribe(consumer);
    EXPECT_EQ(TestChunk::alive, 0);
}

TEST(MusicBoxSubscriptions, ALateConsumerIsNotHandedTheLastChunk) {
    MTObjects::THolder<TestBox> box(new TestBox);
    box->Subscribe(new BareConsumer);
    box->Play();
    MTObjects::THolder<BareConsumer> late(new BareConsumer);
    box->Subscribe(late);
    EXPECT_THAT(late->chunks, IsEmpty());
    box->Shutdown();
}

TEST(MusicBoxSubscriptions, TheBoxesOfTheProcessAreCounted) {
    const u32 before = IMusicBox::Living();
    MTObjects::THolder<TestBox> box(new TestBox);
    EXPECT_EQ(IMusicBox::Living(), before + 1);
    box = nullptr;
    EXPECT_EQ(IMusicBox::Living(), before);
}

class MusicBoxConsumer : public testing::Test {
protected:
    ~MusicBoxConsumer() override {
        consumer_->Disconnect();
        consumer_ = nullptr;
        box_ = nullptr;
        EXPECT_EQ(TestChunk::alive, 0);
    }

    void Make(i32 frameBytes) {
        buffer_.assign(static_cast<u64>(frameBytes), 0x55);
        consumer_ = new IMusicBoxConsumerImpl(buffer_.data(), frameBytes);
    }
    void MakeConnected(i32 frameBytes) {
        Make(frameBytes);
        consumer_->Connect(box_);
        log_.Take();
    }
    // The next frame; whether it lies in the reader's buffer.
    const u8* Read() {
        const u8 elsewhere = 0;
        const u8* frame = &elsewhere;
        EXPECT_TRUE(consumer_->ReadFrame(&frame));
        return frame;
    }
    static std::vector<i16> Expected(u64 first, u64 count) {
        std::vector<i16> samples(count);
        for (u64 i = 0; i < count; ++i) samples[i] = Wave(first + i);
        return samples;
    }
    static std::vector<i16> Samples(const u8* frame, u64 count) {
        std::vector<i16> samples(count);
        std::memcpy(samples.data(), frame, count * 2);
        return samples;
    }

    TestData::EngineLog log_;
    MTObjects::THolder<TestBox> box_{new TestBox};
    std::vector<u8> buffer_;
    MTObjects::THolder<IMusicBoxConsumer> consumer_;
};

TEST_F(MusicBoxConsumer, ThatIsNotConnectedHasNothing) {
    Make(2000);
    const u8* frame = buffer_.data();
    EXPECT_FALSE(consumer_->ReadFrame(&frame));
    EXPECT_EQ(frame, nullptr);
    consumer_->Connect(nullptr);
    EXPECT_FALSE(consumer_->ReadFrame(&frame));
    EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(MusicBoxConsumer, TellsThatItIsConnectedAndDisconnectedAtWarn) {
    Make(2000);
    consumer_->Connect(box_);
    EXPECT_THAT(log_.Take(), ElementsAre(Line("Warn", "Connected")));
    consumer_->Connect(box_);
    EXPECT_THAT(log_.Take(), ElementsAre(Line("Warn", "Disconnected"), Line("Warn", "subscription removed"),
                                         Line("Warn", "Connected")));
    EXPECT_TRUE(box_->HasConsumers());
    consumer_->Disconnect();
    EXPECT_THAT(log_.Take(), ElementsAre(Line("Warn", "Disconnected"), Line("Warn", "subscription removed")));
    EXPECT_FALSE(box_->HasConsumers());
    consumer_->Disconnect();
    EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(MusicBoxConsumer, ReadsSilenceWithOneWarningAFrameUntilAChunkComes) {
    MakeConnected(2000);
    for (int i = 0; i < 3; ++i) {
        const u8* frame = Read();
        EXPECT_EQ(frame, buffer_.data());
        EXPECT_TRUE(TestData::AllZero(frame, 2000));
        EXPECT_THAT(log_.Take(), ElementsAre(Line("Warn", "Not enough data:1000(0)")));
    }
    box_->Play();
    log_.Take();
    EXPECT_EQ(Samples(Read(), 1000), Expected(0, 1000));
    EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(MusicBoxConsumer, TellsEachChunkAtTrace) {
    MakeConnected(2000);
    box_->Play();
    const std::vector<std::string> lines = log_.Take();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_THAT(lines[0], testing::MatchesRegex("Trace VoIPFileEngine/MusicBox: Provided \\(1\\) at [0-9]+"));
    EXPECT_EQ(lines[1], Line("Trace", "Added chunk, total=1"));
    box_->Play();
    EXPECT_EQ(log_.Take().back(), Line("Trace", "Added chunk, total=2"));
}

TEST_F(MusicBoxConsumer, EightFramesFillAChunkAndTheNinthDropsItAndGoesOn) {
    MakeConnected(2000);
    box_->Play();
    box_->Play();
    log_.Take();
    for (u64 i = 0; i < 16; ++i) {
        const u8* frame = Read();
        EXPECT_NE(frame, buffer_.data());
        EXPECT_EQ(Samples(frame, 1000), Expected(i * 1000, 1000));
        // Through the eighth frame the queue, through all of them the box, keeps a chunk.
        EXPECT_EQ(TestChunk::alive, i < 8 ? 2 : 1) << i;
    }
    EXPECT_THAT(log_.Take(), IsEmpty());
    EXPECT_EQ(Read(), buffer_.data());
    EXPECT_THAT(log_.Take(), ElementsAre(Line("Warn", "Not enough data:1000(0)")));
}

TEST_F(MusicBoxConsumer, AFrameSizeThatDoesNotDivideAChunkIsCopiedAtEachBoundary) {
    MakeConnected(1500);
    for (int i = 0; i < 6; ++i) box_->Play();
    u64 copies = 0;
    for (u64 i = 0; i < 64; ++i) {  // 48000 samples
        const u8* frame = Read();
        EXPECT_EQ(Samples(frame, 750), Expected(i * 750, 750)) << i;
        if (frame == buffer_.data()) ++copies;
    }
    EXPECT_EQ(copies, 4u);  // of the five boundaries inside, the one at 24000 lies between two frames
}

TEST_F(MusicBoxConsumer, AFrameThatRunsDryHalfWayIsFilledUpWithZeros) {
    MakeConnected(1500);
    box_->Play();
    for (int i = 0; i < 10; ++i) Read();
    log_.Take();
    const u8* frame = Read();
    EXPECT_EQ(frame, buffer_.data());
    EXPECT_EQ(Samples(frame, 500), Expected(7500, 500));
    EXPECT_TRUE(TestData::AllZero(frame + 1000, 500));
    EXPECT_THAT(log_.Take(), ElementsAre(Line("Warn", "Not enough data:750(500)")));
}

TEST_F(MusicBoxConsumer, AFrameLongerThanAChunkTakesSeveral) {
    MakeConnected(20000);
    box_->Play();
    box_->Play();
    EXPECT_EQ(Samples(Read(), 10000), Expected(0, 10000));
}

TEST_F(MusicBoxConsumer, ASeventhChunkMakesTheTwoOldestGoAndReadingFallsToTheOldestKept) {
    MakeConnected(2000);
    for (int i = 0; i < 3; ++i) box_->Play();
    for (int i = 0; i < 3; ++i) Read();  // inside the first chunk
    for (int i = 0; i < 3; ++i) box_->Play();
    log_.Take();
    box_->Play();
    EXPECT_THAT(log_.Take(), testing::Contains(Line("Warn", "Remove obsolete data: listsize=7")));
    for (u64 i = 0; i < 40; ++i) EXPECT_EQ(Samples(Read(), 1000), Expected(16000 + i * 1000, 1000));
    EXPECT_EQ(Read(), buffer_.data());
}

TEST_F(MusicBoxConsumer, AFrameStaysReadableWhenItsChunkIsDropped) {
    MakeConnected(2000);
    for (int i = 0; i < 6; ++i) box_->Play();
    const u8* frame = Read();
    EXPECT_TRUE(consumer_->FrameChunk());
    box_->Play();
    EXPECT_EQ(TestChunk::alive, 6);  // five queued, and the frame's
    EXPECT_EQ(Samples(frame, 1000), Expected(0, 1000));
    Read();
    EXPECT_EQ(TestChunk::alive, 5);
}

TEST_F(MusicBoxConsumer, NullAndInvalidChunksAreIgnored) {
    MakeConnected(2000);
    consumer_->AddChunk(box_, nullptr);
    consumer_->AddChunk(box_, new TestChunk(0, false));
    EXPECT_THAT(log_.Take(), IsEmpty());
    EXPECT_EQ(Read(), buffer_.data());
}

TEST_F(MusicBoxConsumer, AFrameSizeOfZeroIsTheBufferItself) {
    MakeConnected(0);
    EXPECT_EQ(Read(), buffer_.data());
    EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(MusicBoxConsumer, ThatIsDroppedByItsBoxHasNothingLeft) {
    MakeConnected(2000);
    box_->Play();
    Read();
    log_.Take();
    box_->Shutdown();
    EXPECT_THAT(log_.Take(), ElementsAre(Line("Warn", "subscription removed")));
    const u8* frame = buffer_.data();
    EXPECT_FALSE(consumer_->ReadFrame(&frame));
    EXPECT_EQ(frame, nullptr);
    consumer_->Disconnect();
    EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(MusicBoxConsumer, HoldsItsBoxWhileItIsConnected) {
    const u32 before = IMusicBox::Living();
    MakeConnected(2000);
    box_ = nullptr;
    EXPECT_EQ(IMusicBox::Living(), before);
    consumer_->Disconnect();
    EXPECT_EQ(IMusicBox::Living(), before - 1);
}

TEST_F(MusicBoxConsumer, StartsAtTheFirstSampleOfANewBox) {
    MakeConnected(2000);
    box_->Play();
    Read();
    MTObjects::THolder<TestBox> other(new TestBox);
    consumer_->Connect(other);
    other->Play();
    EXPECT_EQ(Samples(Read(), 1000), Expected(0, 1000));
}

// A box that is shut down between the subscription and its answer.
class ShuttingBox : public IMusicBoxImpl {
public:
    void Subscribe(MTObjects::THolder<IMusicBoxConsumer> consumer) override {
        IMusicBoxImpl::Subscribe(consumer);
        Shutdown();
    }
};

TEST_F(MusicBoxConsumer, AShutdownWhileItConnectsIsNotCoveredUp) {
    Make(2000);
    consumer_->Connect(new ShuttingBox);
    const u8* frame = nullptr;
    EXPECT_FALSE(consumer_->ReadFrame(&frame));
}

}  // namespace
}  // namespace Orv
