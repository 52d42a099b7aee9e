// The engine's shared objects under real threads, for the thread sanitizer: what one thread replaces, connects or takes
// away, another reads at the same time. Bounded by rounds, not by time.
#include <gtest/gtest.h>

#include <atomic>

#include "Platform/Thread.h"
#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"
#include "Projects/Common/VoIPFileEngine/MusicBox.h"
#include "Projects/Common/VoIPFileEngine/ReferenceStorage.h"
#include "tests/Projects/Common/VoIPFileEngine/ReaderFakes.h"

namespace Orv {
namespace {

using ReaderHolder = MTObjects::THolder<IMMFileStreamReader>;

constexpr u32 kRounds = 2000;

TEST(EngineThreads, ContentIsReplacedWhileAnotherThreadPullsAndReadsItsFrames) {
    u8 buffer[2000];
    const MTObjects::THolder<IMMStreamManager> set = CreateStreamSet();
    set->Prepare(buffer, 2000);
    std::atomic<bool> done{false};
    std::atomic<u64> pulls{0};
    u64 sum = 0;
    Platform::Thread puller("puller", [&] {
        const ReaderHolder reader = set->GetReader();
        while (!done.load()) {
            const TestData::Pulled pulled = TestData::Pull(*reader);
            ++pulls;
            if (pulled.frame != nullptr) {
                for (u64 i = 0; i < 1000; ++i) sum += static_cast<u16>(pulled.Sample(i));
            }
        }
    });
    // Until the puller has had its share as well.
    for (u32 i = 0; i < kRounds || pulls.load() < kRounds; ++i) {
        set->SwitchContent(2, true, {{1, "##1#", false}, {2, "#0#", false}}, 1, 2, 3);
        set->SwitchContent(3, i % 2 == 0, {{4, "words", true}, {5, "##1#", false}}, 2, 1, 3);
        const ReaderHolder reader = set->GetReader();
        reader->GetName();
        reader->GetContentId();
        reader->Rewind();
        if (i % 7 == 0) reader->Close();
    }
    done.store(true);
    puller.Join();
    EXPECT_EQ(sum, 0u);
}

TEST(EngineThreads, ReadersComeAndGoWhileTheirBoxIsTakenAwayAndMadeAgain) {
    std::atomic<int> open{0};
    std::atomic<int> finished{0};
    auto listen = [&] {
        u8 buffer[2000];
        for (u32 i = 0; i < kRounds; ++i) {
            const ReaderHolder reader = CreateStreamReader(7, "threads:", buffer, 2000);
            if (reader->IsOpen()) ++open;
            for (int k = 0; k < 3; ++k) {
                const TestData::Pulled pulled = TestData::Pull(*reader);
                if (!pulled.result) ++finished;
                EXPECT_TRUE(pulled.frame == nullptr || TestData::AllZero(pulled.frame, 2000));
            }
        }
    };
    MTObjects::THolder<IMusicBox> box = RegisterMusicBox("threads:", CreateStreamSet(), nullptr, 0);
    ASSERT_TRUE(box.IsValid());
    Platform::Thread first("first", listen);
    Platform::Thread second("second", listen);
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(UnregisterMusicBox("threads:", i % 2 == 0));
        box = RegisterMusicBox("threads:", CreateStreamSet(), nullptr, 0);
        EXPECT_TRUE(box.IsValid());
    }
    first.Join();
    second.Join();
    EXPECT_TRUE(UnregisterMusicBox("threads:", true));
    box = nullptr;
    EXPECT_EQ(IMusicBox::Living(), 0u);
    EXPECT_GT(open.load(), 0);
}

struct Shared : MTObjects::MTReferencedTypeBase {
    Shared() { ++alive; }
    ~Shared() override { --alive; }
    static inline std::atomic<int> alive{0};

protected:
    bool TestValid() const override { return true; }
};

TEST(EngineThreads, UsersOfOneNameShareOneObjectAndItGoesWithTheLast) {
    using Holder = MTObjects::THolder<Shared>;
    ReferenceStorage<std::string, Holder> storage;
    auto use = [&] {
        for (u32 i = 0; i < kRounds; ++i) {
            Holder object;
            if (!storage.Acquire("name", object)) {
                object = new Shared;
                storage.Acquire("name", object);
            }
            EXPECT_TRUE(object.IsValid());
            storage.Release("name");
        }
    };
    Platform::Thread first("first", use);
    Platform::Thread second("second", use);
    first.Join();
    second.Join();
    Holder object;
    EXPECT_FALSE(storage.Acquire("name", object));
    EXPECT_EQ(Shared::alive.load(), 0);
}

}  // namespace
}  // namespace Orv
