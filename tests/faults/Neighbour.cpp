#include "tests/faults/Neighbour.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace OrvTest {
namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr double PieceSeconds = 120.0;
constexpr double BlockMilliseconds = 125.0;
constexpr double NapMilliseconds = 100.0;
constexpr std::size_t HeadStart = 3;  // blocks that come at once
constexpr std::chrono::seconds kAround(5);

struct LateBlock {
    std::size_t index;
    SleepWitness::TimePoint due;  // by the grid of the block that was the earliest
    SleepWitness::TimePoint came;
    double late;  // milliseconds
};

std::vector<LateBlock> LateBlocks(const Client& client) {
    const auto times = client.Times();
    const auto grid = [&](std::size_t block) {
        return times[HeadStart] + std::chrono::milliseconds(125) * static_cast<long>(block - HeadStart);
    };
    auto earliest = SleepWitness::TimePoint::duration::max();
    for (std::size_t block = HeadStart; block < times.size(); ++block) {
        earliest = std::min(earliest, times[block] - grid(block));
    }
    std::vector<LateBlock> blocks;
    for (std::size_t block = HeadStart; block < times.size(); ++block) {
        const auto due = grid(block) + earliest;
        blocks.push_back({block, due, times[block], Milliseconds(times[block] - due).count()});
    }
    return blocks;
}

}  // namespace

double WorstLateness(const Client& client) {
    double worst = 0.0;
    for (const LateBlock& block : LateBlocks(client)) worst = std::max(worst, block.late);
    return worst;
}

double ExpectInTime(const Client& client, const SleepWitness& machine, const std::string& name) {
    double worst = 0.0;
    for (const LateBlock& block : LateBlocks(client)) {
        worst = std::max(worst, block.late);
        if (block.late <= NapMilliseconds + BlockMilliseconds) continue;
        const double late = machine.WorstAround(block.due, block.came);
        EXPECT_LE(block.late, NapMilliseconds + BlockMilliseconds + 2 * late)
            << name << ", block " << block.index << "; the machine itself was late by " << late << " ms";
    }
    return worst;
}

std::size_t ExpectExact(const Client& client, const std::vector<Model::Block>& heard, Model::Feed model,
                        const std::vector<LogEntry>& log, const SleepWitness& machine, const std::string& name) {
    std::vector<std::size_t> late;
    EXPECT_EQ(CompareWithModel(heard, model, log, name, 0, {}, &late), "") << name;
    const auto times = client.Times();
    // Those that came within kAround of the one before have one cause.
    for (std::size_t first = 0, end = 0; first < late.size(); first = end) {
        for (end = first + 1; end < late.size() && times[late[end]] - times[late[end - 1]] <= kAround;) ++end;
        const auto from = times[late[first]];
        const auto to = times[late[end - 1]];
        EXPECT_LE(end - first, machine.LateReadsExplained(from, to))
            << name << " had no bytes of its file for so many blocks from block " << late[first]
            << " on; the machine itself was late by " << machine.WorstAround(from, to) << " ms";
    }
    return late.size();
}

SleepWitness::SleepWitness()
    : thread_([this] {
          constexpr std::chrono::milliseconds nap(20);
          while (!stop_.load()) {
              const auto due = std::chrono::steady_clock::now() + nap;
              std::this_thread::sleep_for(nap);
              const double late = Milliseconds(std::chrono::steady_clock::now() - due).count();
              const std::lock_guard guard(mutex_);
              late_.push_back({due, late});
          }
      }) {}

SleepWitness::~SleepWitness() {
    stop_.store(true);
    thread_.join();
}

std::vector<SleepWitness::Waking> SleepWitness::Around(TimePoint from, TimePoint to) const {
    const std::lock_guard guard(mutex_);
    std::vector<Waking> around;
    for (const Waking& waking : late_) {
        const auto woke = waking.due + std::chrono::duration_cast<TimePoint::duration>(Milliseconds(waking.late));
        // Compared so that the ends of time may be given.
        const bool before = woke < from && from - woke > kAround;
        const bool behind = waking.due > to && waking.due - to > kAround;
        if (!before && !behind) around.push_back(waking);
    }
    return around;
}

double SleepWitness::WorstAround(TimePoint from, TimePoint to) const {
    double worst = 0.0;
    for (const Waking& waking : Around(from, to)) worst = std::max(worst, waking.late);
    return worst;
}

std::size_t SleepWitness::LateReadsExplained(TimePoint from, TimePoint to) const {
    std::size_t blocks = 0;
    for (const Waking& waking : Around(from, to)) {
        if (waking.late <= BlockMilliseconds) continue;
        blocks += static_cast<std::size_t>(std::ceil(2 * waking.late / BlockMilliseconds));
    }
    return blocks;
}

Neighbour::Neighbour(const Exchange& exchange, const std::string& name, double startSecond)
    : exchange_(exchange),
      name_(name),
      file_(exchange.AddPiece("Playlist/" + name + "/piece.raw", startSecond, PieceSeconds)),
      audio_(Model::AudioOf(file_)) {
    exchange.Must({"feed", "add", name, "--type", "sorted", "--folder", name});
}

Client& Neighbour::Listen() {
    witness_.emplace();
    client_.emplace(exchange_, name_);
    EXPECT_TRUE(client_->WaitForBlocks(HeadStart + 1));
    return *client_;
}

void Neighbour::ExpectUntouched(bool inMemory) const {
    EXPECT_FALSE(client_->Ended());
    const auto heard = client_->Blocks();
    const Model::Feed model([sound = Model::Sound(audio_, inMemory)] { return sound; });
    const std::size_t late = ExpectExact(*client_, heard, model, exchange_.Log(), *witness_, name_);
    ExpectInTime(*client_, *witness_, name_);
    std::printf("%s: %zu blocks compared, %zu of them silent since a read was late\n", name_.c_str(), heard.size(),
                late);
}

}  // namespace OrvTest
