// Goal: whatever single thing the system refuses, the feeds that it is not about play on bit by bit, the tables are the
// Configuration service's, and the end is orderly; or the process ends with a message. That the log tells it is judged
// where it must: of threads, of pipes and their clients, of the socket of the state, and of a lost connection.
// Method: the whole life of the service is lived once to learn which operations of the platform and of the link there
// are; then once more for each of them, in a process of its own, in which just that one fails. What must be heard of
// the feeds that it is not about is what was heard when nothing failed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "Platform/sim/SimFailures.h"
#include "tests/AudioFeeder/WholeLife.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Effort.h"

namespace {

using namespace FeederTest;
using OrvTest::ChildEnd;
using OrvTest::InChild;
using Platform::Sim::FallibleOperation;
using Platform::Sim::Operation;
using Platform::Sim::SimFailures;

constexpr char kSettings[] = "OrvPhoneSystem.ini";
constexpr std::size_t kLastBlocks = 4'000;
constexpr std::size_t kBlock = 1'000;
// The shell's form of -3.
constexpr int kFailedStart = 253;

const std::set<std::string>& TestThreads() {
    static const std::set<std::string> names(LifeTestThreads.begin(), LifeTestThreads.end());
    return names;
}

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string Describe(const FallibleOperation& operation) {
    constexpr const char* kKinds[] = {"path",          "entry",        "read",         "write",     "open instance",
                                      "poll instance", "write pipe",   "connect pipe", "read pipe", "start thread",
                                      "lock memory",   "serve socket", "other"};
    return std::string(kKinds[static_cast<int>(operation.kind)]) + " '" + operation.what + "' on thread '" +
           operation.thread + "'";
}

// Whether the operation is about that feed: by the names in it.
bool IsAbout(const FallibleOperation& operation, const std::string& feed) {
    const std::string names = operation.what + " " + operation.thread;
    if (feed == "default" && Has(names, "music box")) return true;
    if (feed == "talking" && Has(names, "held")) return true;  // announces what "held" plays
    return Has(names, feed);
}

bool IsThread(const FallibleOperation& operation, std::initializer_list<const char*> names) {
    if (operation.kind != Operation::StartThread) return false;
    return std::any_of(names.begin(), names.end(), [&](const char* name) { return operation.what == name; });
}

// Threads without which there is no service: those of the process itself.
bool MayEndTheProcess(const FallibleOperation& operation) {
    return IsThread(operation, {"service", "control", "watch", "watch locks"});
}

bool IsLink(const FallibleOperation& operation) {
    return operation.kind == Operation::Other;
}

// --- what a life must be ---------------------------------------------------------------------------------------------

void JudgeFeed(const std::string& feed, const FallibleOperation& failed, const LifeStory& calm,
               const LifeStory& story) {
    SCOPED_TRACE(feed);
    const auto heardOf = [&](const LifeStory& life) {
        const auto found = life.heard.find(feed);
        return found != life.heard.end() ? found->second : Samples();
    };
    const Samples heard = heardOf(story);
    const Samples wanted = heardOf(calm);
    const auto last = story.heardLast.find(feed);
    const std::size_t heardLast = last != story.heardLast.end() ? last->second : 0;
    if (!IsAbout(failed, feed)) {
        EXPECT_TRUE(heard == wanted) << "heard " << heard.size() << " samples that are not the " << wanted.size()
                                     << " that were to be heard";
        EXPECT_EQ(heardLast, kLastBlocks);
        return;
    }
    if (IsThread(failed, {("pump:" + feed).substr(0, 15).c_str(), ("pump:" + feed).c_str()})) {
        EXPECT_TRUE(heard.empty() || heardLast == 0) << "what has no thread serves no pipe, until it is built anew";
        return;
    }
    // Who was connected hears on, a pass of the pump late at worst, and so does the next client; but for the one whose
    // connection broke.
    const bool heardOn = heard.size() + kBlock >= wanted.size();
    const bool heardByTheNext = heardLast == kLastBlocks;
    if (failed.kind == Operation::WritePipe) {
        EXPECT_TRUE(heardOn || heardByTheNext);
    } else {
        EXPECT_TRUE(heardOn) << heard.size() << " samples of " << wanted.size();
        EXPECT_TRUE(heardByTheNext) << heardLast << " samples";
    }
}

void JudgeLog(const FallibleOperation& failed, const LifeStory& story) {
    switch (failed.kind) {
        case Operation::StartThread:
            EXPECT_EQ(story.CountLog("]:Cannot start thread"), failed.what.starts_with("pump:") ? 1U : 0U);
            break;
        case Operation::OpenInstance:
            EXPECT_EQ(story.CountLog("Cannot create new listener for connection. error="), 1U);
            break;
        case Operation::PollInstance:
            EXPECT_EQ(story.CountLog("ConnectNamedPipe failed (") + story.CountLog("Connection failed on ID="), 1U);
            break;
        case Operation::ServeSocket:
            EXPECT_EQ(story.CountLog("State cannot be told on /run/status: "), 1U);
            break;
        default:
            break;
    }
}

// A life that has come to its end by itself.
void Judge(const FallibleOperation& failed, const LifeStory& calm, const LifeStory& story) {
    EXPECT_EQ(story.exitCode, 0);
    EXPECT_EQ(story.leftOver, "");
    if (Has(failed.what, kSettings) && story.served.empty()) {
        // Without its settings, whole, the service has stopped before it began.
        EXPECT_TRUE(story.states.empty() || story.states == std::vector<u32>{1});
        EXPECT_TRUE(story.log.empty());
        return;
    }
    if (IsLink(failed) && story.CountLog("[EC000001]") != 0) {
        // The connection is lost for good: what plays plays on, and the log has told it.
        EXPECT_EQ(story.CountLog("[EC000001]: Connection with configuration server is lost"), 1U);
        for (const std::string& pipe : story.served) EXPECT_EQ(story.heardLast.at(pipe), kLastBlocks) << pipe;
        return;
    }
    EXPECT_TRUE(story.tableFaults.empty()) << story.tableFaults.front();
    for (const std::string& feed : LifeFeeds) JudgeFeed(feed, failed, calm, story);
    JudgeLog(failed, story);
    if (failed.kind != Operation::ServeSocket) {
        for (const std::string& feed : LifeFeeds) EXPECT_TRUE(Has(story.state, '"' + feed + '"')) << feed;
    }
}

class FailingOperation : public testing::TestWithParam<bool> {
protected:
    bool AsService() const { return GetParam(); }
    LifeStory LiveCalmly() {
        return Live(
            AsService(), [] { Platform::Sim::Failures().Begin(SimFailures::Never, TestThreads()); },
            [this](i32) {
                Platform::Sim::Failures().End();
                operations_ = Platform::Sim::Failures().Operations();
            });
    }
    // The first of each kind with each name, and of the others one in so many.
    std::vector<u64> Choose(u64 oneIn) const {
        std::set<std::string> seen;
        std::vector<u64> chosen;
        for (u64 number = 0; number < operations_.size(); ++number) {
            if (seen.insert(Describe(operations_[number])).second || number % oneIn == 0) chosen.push_back(number);
        }
        return chosen;
    }

    std::vector<FallibleOperation> operations_;
};

TEST_P(FailingOperation, WhenNothingFailsEveryFeedIsHeardTheTablesAreEqualAndNothingIsLeft) {
    const LifeStory story = LiveCalmly();
    EXPECT_EQ(story.exitCode, 0);
    EXPECT_EQ(story.leftOver, "");
    EXPECT_TRUE(story.tableFaults.empty());
    for (const std::string& feed : LifeFeeds) {
        ASSERT_EQ(story.heard.count(feed), 1U) << feed;
        EXPECT_GT(story.heard.at(feed).size(), 20'000U) << feed;
        EXPECT_EQ(story.heardLast.at(feed), kLastBlocks) << feed;
        EXPECT_TRUE(Has(story.state, '"' + feed + '"')) << feed;
    }
    EXPECT_EQ(story.heard.count("gone"), 1U) << "it was heard until the transaction took it away";
    EXPECT_EQ(story.CountLog("Files preloaded: 1"), 1U);
    EXPECT_GE(story.CountLog("Media connected"), 1U) << "the live announcement has its source";
    // What is heard depends on nothing but the world: a second life is the same.
    EXPECT_TRUE(LiveCalmly().heard == story.heard);
}

TEST_P(FailingOperation, WhateverFailsOnceConcernsOnlyItsOwnFeedOrEndsTheProcessWithAMessage) {
    const LifeStory calm = LiveCalmly();
    const std::vector<u64> chosen = Choose(static_cast<u64>(OrvTest::Effort(ORV_OPERATIONS_ONE_IN, 1)));
    u64 ended = 0;
    std::string wrong;  // told at the end: a child process must begin without a failure
    for (const u64 number : chosen) {
        const FallibleOperation& failed = operations_[number];
        const ChildEnd end = InChild([&] {
            const LifeStory story = Live(
                AsService(), [&] { Platform::Sim::Failures().Begin(number, TestThreads()); },
                [&](i32 code) {
                    SimFailures& failures = Platform::Sim::Failures();
                    failures.End();
                    EXPECT_TRUE(failures.HasFailed()) << "the life came to its end before it";
                    if (failures.HasFailed()) {
                        EXPECT_EQ(Describe(failures.Operations().at(number)), Describe(failed));
                    }
                    std::fflush(nullptr);
                    if (code != 0) std::_Exit(HasFailure() ? 1 : code & 0xFF);
                });
            Judge(failed, calm, story);
        });
        const bool withMessage = (end.exitCode == kFailedStart || end.signal == SIGABRT) &&
                                 Has(end.said, "Resource temporarily unavailable");
        if (withMessage && MayEndTheProcess(failed)) {
            ++ended;
            continue;
        }
        if (end.exitCode == 0) continue;
        wrong += "operation " + std::to_string(number) + ", " + Describe(failed) + ": " + end.Describe();
    }
    EXPECT_EQ(wrong, "");
    std::printf("%zu of %zu operations failed once; %llu of them ended the process with a message\n", chosen.size(),
                operations_.size(), static_cast<unsigned long long>(ended));
}

INSTANTIATE_TEST_SUITE_P(Lives, FailingOperation, testing::Bool(),
                         [](const auto& life) { return life.param ? "AsAService" : "InTheForeground"; });

}  // namespace
