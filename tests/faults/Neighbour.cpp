#include "tests/faults/Neighbour.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

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

double SleepWitness::WorstAround(TimePoint from, TimePoint to) const {
    const std::lock_guard guard(mutex_);
    double worst = 0.0;
    for (const Waking& waking : late_) {
        const auto woke = waking.due + std::chrono::duration_cast<TimePoint::duration>(Milliseconds(waking.late));
        // Compared so that the ends of time may be given.
        const bool before = woke < from && from - woke > kAround;
        const bool behind = waking.due > to && waking.due - to > kAround;
        if (!before && !behind) worst = std::max(worst, waking.late);
    }
    return worst;
}

Neighbour::Neighbour(const Exchange& exchange, const std::string& name, double startSecond)
    : exchange_(exchange),
      name_(name),
      file_(exchange.AddPiece("Playlist/" + name + "/piece.raw", startSecond, PieceSeconds)),
      audio_(Model::AudioOf(file_)) {
    exchange.Must({"feed", "add", name, "--type", "sorted", "--folder", name});
}

Client& Neighbour::Listen() {
    client_.emplace(exchange_, name_);
    witness_.emplace();
    EXPECT_TRUE(client_->WaitForBlocks(HeadStart + 1));
    return *client_;
}

void Neighbour::ExpectUntouched(bool inMemory) const {
    EXPECT_FALSE(client_->Ended());
    Model::Feed model([sound = Model::Sound(audio_, inMemory)] { return sound; });
    EXPECT_EQ(CompareWithModel(client_->Blocks(), model, exchange_.Log(), name_), "") << name_;
    ExpectInTime(*client_, *witness_, name_);
}

}  // namespace OrvTest
