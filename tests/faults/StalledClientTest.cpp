// Goal: a client that takes nothing holds up its own channel, and changes and the stop behind it, as told, and nobody
// else; with ClientStallSeconds it holds up these too for that long at most. Method: clients that are stopped or read a
// byte a second, and the model for what all the others hear.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

#include "tests/faults/Feeds.h"
#include "tests/support/Effort.h"

namespace OrvTest {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr int kStallSeconds = 3;
// What a busy machine may add to a time that the service keeps.
constexpr int kLoadSeconds = 10;

class Stalled : public testing::Test {
protected:
    void Start(int feeds, const std::string& settings = "") {
        exchange_.StartConfig();
        feeds_ = std::make_unique<Feeds>(exchange_, feeds);
        exchange_.WriteSettings("[General]\nStatusPath=" + StateSocket(exchange_) + "\n" + settings);
        exchange_.StartFeeder();
        machine_.emplace();
        listeners_ = feeds_->Listen();
        ASSERT_TRUE(WaitForAll(listeners_, 4));
    }
    std::unique_ptr<ReaderProcess> Reader(int feed) {
        const std::string file = exchange_.Folder() / ("reader" + std::to_string(++readers_));
        auto reader = std::make_unique<ReaderProcess>(exchange_, Feeds::Name(feed), file);
        EXPECT_TRUE(reader->WaitForBlocks(2));
        return reader;
    }
    std::size_t BlocksOf(int feed) const {
        return listeners_[static_cast<std::size_t>(feed)]->Size() / Model::BlockBytes;
    }
    // Until a write of the channel to its stopped client waits.
    void WaitUntilItWaits(int feed) const {
        ASSERT_TRUE(WaitForState(
            exchange_, [&](const Json& state) { return state["feeds"][feed]["write_milliseconds"].get<int>() > 500; }));
    }
    static long Seconds(steady_clock::time_point since) {
        return std::chrono::duration_cast<seconds>(steady_clock::now() - since).count();
    }

    Exchange exchange_;
    std::unique_ptr<Feeds> feeds_;
    std::optional<SleepWitness> machine_;
    std::vector<std::unique_ptr<Client>> listeners_;
    int readers_ = 0;
};

TEST_F(Stalled, AClientThatIsStoppedAndOneThatReadsAByteASecondHoldUpTheirOwnChannelsAndNoOther) {
    const int stall = Effort(20, 60);
    Start(6);
    const auto stopped = Reader(0);
    const int slow = TryConnect(exchange_.PipeFile(Feeds::Name(1)));
    ASSERT_GE(slow, 0);
    stopped->Signal(SIGSTOP);
    WaitUntilItWaits(0);
    WaitUntilItWaits(1);
    const auto begin = steady_clock::now();
    const std::size_t heldAt[] = {BlocksOf(0), BlocksOf(1)};
    const std::size_t othersAt = BlocksOf(2);
    int bytesRead = 0;
    while (Seconds(begin) < stall) {
        char byte = 0;
        if (::recv(slow, &byte, 1, MSG_DONTWAIT) == 1) ++bytesRead;
        std::this_thread::sleep_for(seconds(1));
    }
    EXPECT_GE(bytesRead, stall / 2) << "one a second, where the machine lets it";
    EXPECT_EQ(BlocksOf(0), heldAt[0]) << "the channel waits for its client";
    EXPECT_EQ(BlocksOf(1), heldAt[1]) << "a byte makes no room for a block";
    EXPECT_GT(BlocksOf(2), othersAt);

    // Both channels go on where they stood and make up for the time: no block was dropped, not even for the stopped
    // one.
    stopped->Signal(SIGCONT);
    ::close(slow);
    const auto due = static_cast<std::size_t>(stall) * 8;
    ASSERT_TRUE(WaitForAll(listeners_, due));
    ASSERT_TRUE(stopped->WaitForBlocks(due - 16));
    feeds_->ExpectAllExact(listeners_, due, *machine_);
    const auto theirs = listeners_[0]->Blocks();
    const auto heard = stopped->Blocks();
    ASSERT_GT(heard.size(), 2u);
    const auto joined = std::search(theirs.begin(), theirs.end(), heard.begin(), heard.begin() + 2);
    const auto common = std::min(theirs.end() - joined, static_cast<std::ptrdiff_t>(heard.size()));
    EXPECT_GT(common, static_cast<std::ptrdiff_t>(due) / 2);
    EXPECT_TRUE(std::equal(joined, joined + common, heard.begin()));
    EXPECT_EQ(exchange_.LogTexts("Connection closed. ID=").size(), 1u) << "that of the byte reader, which left";
    const double late = feeds_->ExpectInTime(listeners_, *machine_, 2);
    std::printf(
        "stalled for %d s, %d bytes read; worst lateness of %d untouched feeds %.0f ms, of the machine %.0f ms\n",
        stall, bytesRead, feeds_->Count() - 2, late, machine_->WorstMilliseconds());
}

TEST_F(Stalled, WithoutALimitChangesAndTheStopWaitBehindTheRebuildOfItsChannel) {
    Start(3);
    const auto stopped = Reader(0);
    stopped->Signal(SIGSTOP);
    WaitUntilItWaits(0);
    exchange_.Must({"feed", "rebuild", "f0"});
    exchange_.Must({"announcement", "add", "behind", "--file", "/x.wav", "--kind", "over"});
    ASSERT_TRUE(exchange_.WaitForLog("Channel f0 as f0[1]:Shutdown"));
    std::this_thread::sleep_for(seconds(kStallSeconds));
    EXPECT_EQ(exchange_.LogTexts("Channel f0 as f0[1]:closed").size(), 0u);
    EXPECT_EQ(exchange_.LogTexts("Announcement updated: behind").size(), 0u);
    stopped->Signal(SIGCONT);
    EXPECT_TRUE(exchange_.WaitForLog("Channel f0 as f0[4]:Started", kLoadSeconds * 1000));
    EXPECT_TRUE(exchange_.WaitForLog("Announcement updated: behind", kLoadSeconds * 1000));

    const auto again = Reader(1);
    again->Signal(SIGSTOP);
    WaitUntilItWaits(1);
    const std::size_t others = BlocksOf(2);
    exchange_.Feeder().Signal(SIGTERM);
    EXPECT_FALSE(exchange_.Feeder().WaitFor(kStallSeconds * 1000));
    again->Kill();
    ASSERT_TRUE(exchange_.Feeder().WaitFor(kLoadSeconds * 1000));
    EXPECT_EQ(exchange_.Feeder().ExitCode(), 0);
    EXPECT_GE(feeds_->ExpectExact(2, *listeners_[2], *machine_), others);
}

TEST_F(Stalled, WithALimitAClientThatTakesNothingIsEndedAndChangesAndTheStopAreBounded) {
    Start(3, "ClientStallSeconds=" + std::to_string(kStallSeconds) + "\n");
    // Ended by itself: the others of its channel have lost nothing.
    auto begin = steady_clock::now();
    const auto first = Reader(0);
    first->Signal(SIGSTOP);
    ASSERT_TRUE(exchange_.WaitForLog("Client has taken nothing for 3 s and is disconnected. ID=0x"));
    EXPECT_GE(steady_clock::now() - begin, seconds(kStallSeconds));
    EXPECT_TRUE(exchange_.WaitForLog("Connection closed. ID="));
    const long ended = Seconds(begin);

    // A rebuild, and the change behind it, wait for no longer than that.
    const auto second = Reader(1);
    second->Signal(SIGSTOP);
    WaitUntilItWaits(1);
    begin = steady_clock::now();
    exchange_.Must({"feed", "rebuild", "f1"});
    exchange_.Must({"announcement", "add", "behind", "--file", "/x.wav", "--kind", "over"});
    EXPECT_TRUE(exchange_.WaitForLog("Announcement updated: behind", (kStallSeconds + kLoadSeconds) * 1000));
    const auto change = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin).count();
    EXPECT_EQ(exchange_.LogTexts("Channel f1 as f1[4]:Started").size(), 1u);

    const auto due = BlocksOf(2) + 8;
    ASSERT_TRUE(listeners_[0]->WaitForBlocks(due));
    ASSERT_TRUE(listeners_[2]->WaitForBlocks(due));
    EXPECT_GE(feeds_->ExpectExact(0, *listeners_[0], *machine_), due);
    EXPECT_GE(feeds_->ExpectExact(2, *listeners_[2], *machine_), due);
    feeds_->ExpectInTime(listeners_, *machine_, 2);

    // Several that stall on one channel cost the stop no more than one.
    std::vector<std::unique_ptr<ReaderProcess>> many;
    for (int i = 0; i < 5; ++i) many.push_back(Reader(2));
    for (const auto& reader : many) reader->Signal(SIGSTOP);
    WaitUntilItWaits(2);
    begin = steady_clock::now();
    exchange_.Feeder().Signal(SIGTERM);
    ASSERT_TRUE(exchange_.Feeder().WaitFor((kStallSeconds + kLoadSeconds) * 1000));
    const auto stop = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin).count();
    EXPECT_EQ(exchange_.Feeder().ExitCode(), 0);
    std::printf(
        "with a limit of %d s: ended after %ld s, a change behind a rebuild after %ld ms, the stop after %ld ms\n",
        kStallSeconds, ended, static_cast<long>(change), static_cast<long>(stop));
}

}  // namespace
}  // namespace OrvTest
