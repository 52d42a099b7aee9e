#include "Platform/linux/ReaderGroup.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/sysmacros.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Clock.h"
#include "tests/support/Process.h"

namespace Platform {
namespace {

using OrvTest::Eventually;

// A read that is over when it is let go.
class GatedRead final : public WaitingRead {
public:
    explicit GatedRead(ReaderGroup& group) : group_(group) {}
    ~GatedRead() override { group_.Withdraw(*this); }

    void CarryOut() noexcept override {
        ::pthread_getname_np(::pthread_self(), threadName_, sizeof threadName_);
        begun_.store(true, std::memory_order_release);
        gate_.WaitFor(60000);
        over_.store(true, std::memory_order_release);
    }
    void LetGo() { gate_.Set(); }
    bool Begun() const { return begun_.load(std::memory_order_acquire); }
    bool Over() const { return over_.load(std::memory_order_acquire); }
    std::string ThreadName() const { return threadName_; }

private:
    ReaderGroup& group_;
    Event gate_;
    char threadName_[16] = {};
    std::atomic<bool> begun_{false};
    std::atomic<bool> over_{false};
};

class ReaderGroupTest : public testing::Test {
protected:
    // Groups live as long as the process; this one is the test's alone.
    ReaderGroupTest() : group_(ReaderGroup::ForDevice(NextDevice())) {}
    ~ReaderGroupTest() override {
        for (const auto& read : reads_) read->LetGo();
        EXPECT_TRUE(Eventually([this] { return group_.BusyCount() == 0; }));
        group_.Stop();
    }

    static u64 NextDevice() {
        static u32 minor = 0;
        return gnu_dev_makedev(4000, ++minor);
    }
    GatedRead& Submit(bool open) {
        reads_.push_back(std::make_shared<GatedRead>(group_));
        if (open) reads_.back()->LetGo();
        group_.Submit(*reads_.back());
        return *reads_.back();
    }

    ReaderGroup& group_;
    std::vector<std::shared_ptr<GatedRead>> reads_;
};

TEST_F(ReaderGroupTest, ThreadsComeOnlyWhenAllOthersAreBusy) {
    for (int i = 0; i < 10; ++i) {
        const GatedRead& read = Submit(true);
        EXPECT_TRUE(Eventually([&] { return read.Over() && group_.BusyCount() == 0; }));
    }
    EXPECT_EQ(group_.ThreadCount(), 1u);
    for (int i = 0; i < 4; ++i) Submit(false);
    EXPECT_TRUE(Eventually([&] { return group_.BusyCount() == 4; }));
    EXPECT_EQ(group_.ThreadCount(), 4u);
}

TEST_F(ReaderGroupTest, AThreadIsNamedAfterItsDevice) {
    const GatedRead& read = Submit(true);
    EXPECT_TRUE(Eventually([&] { return read.Over(); }));
    EXPECT_EQ(read.ThreadName().substr(0, 10), "read 4000:");
}

TEST_F(ReaderGroupTest, ADeviceHasOneGroup) {
    EXPECT_EQ(&ReaderGroup::ForDevice(1), &ReaderGroup::ForDevice(1));
    EXPECT_NE(&ReaderGroup::ForDevice(1), &ReaderGroup::ForDevice(2));
}

TEST_F(ReaderGroupTest, ReadsThatHangOnOneDeviceHoldUpNoOther) {
    for (u32 i = 0; i < ReaderGroup::kMostThreads + 5; ++i) Submit(false);
    EXPECT_TRUE(Eventually([&] { return group_.BusyCount() == ReaderGroup::kMostThreads; }));
    EXPECT_EQ(group_.QueueLength(), 5u);
    EXPECT_EQ(group_.ThreadCount(), ReaderGroup::kMostThreads);

    ReaderGroup& other = ReaderGroup::ForDevice(NextDevice());
    const auto read = std::make_shared<GatedRead>(other);
    read->LetGo();
    other.Submit(*read);
    EXPECT_TRUE(Eventually([&] { return read->Over(); }));
}

TEST_F(ReaderGroupTest, ReadsAreBegunInTheOrderInWhichTheyCame) {
    for (u32 i = 0; i < ReaderGroup::kMostThreads; ++i) Submit(false);
    EXPECT_TRUE(Eventually([&] { return group_.BusyCount() == ReaderGroup::kMostThreads; }));
    const GatedRead& first = Submit(false);
    const GatedRead& second = Submit(false);
    reads_[0]->LetGo();
    EXPECT_TRUE(Eventually([&] { return first.Begun(); }));
    EXPECT_FALSE(second.Begun());
    reads_[1]->LetGo();
    EXPECT_TRUE(Eventually([&] { return second.Begun(); }));
}

TEST_F(ReaderGroupTest, StopEndsWhatIsIdleAndWaitsForNothingThatHangs) {
    const GatedRead& hung = Submit(false);
    const GatedRead& over = Submit(true);
    EXPECT_TRUE(Eventually([&] { return hung.Begun() && over.Over() && group_.BusyCount() == 1; }));
    const u64 before = SteadyMilliseconds();
    group_.Stop();
    EXPECT_LT(SteadyMilliseconds() - before, 900u);
    EXPECT_EQ(group_.ThreadCount(), 1u);
    reads_[0]->LetGo();
    EXPECT_TRUE(Eventually([&] { return group_.ThreadCount() == 0; }));
}

TEST_F(ReaderGroupTest, AfterTheStopReadsStayQueuedAndCanBeGivenUp) {
    group_.Stop();
    const GatedRead& read = Submit(true);
    EXPECT_EQ(group_.QueueLength(), 1u);
    EXPECT_EQ(group_.ThreadCount(), 0u);
    EXPECT_FALSE(read.Begun());
    reads_.clear();
    EXPECT_EQ(group_.QueueLength(), 0u);
}

}  // namespace
}  // namespace Platform
