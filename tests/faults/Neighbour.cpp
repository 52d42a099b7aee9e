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

}  // namespace

double WorstLateness(const Client& client) {
    const auto times = client.Times();
    double earliest = 1e12;
    double latest = 0.0;
    for (std::size_t block = HeadStart; block < times.size(); ++block) {
        const double behind = Milliseconds(times[block] - times[HeadStart]).count() -
                              BlockMilliseconds * static_cast<double>(block - HeadStart);
        earliest = std::min(earliest, behind);
        latest = std::max(latest, behind);
    }
    return latest - earliest;
}

double ExpectInTime(const Client& client, const SleepWitness& machine, const std::string& name) {
    const double worst = WorstLateness(client);
    const double late = machine.WorstMilliseconds();
    EXPECT_LE(worst, NapMilliseconds + BlockMilliseconds + 2 * late)
        << name << "; the machine itself was late by " << late << " ms";
    return worst;
}

SleepWitness::SleepWitness()
    : thread_([this] {
          while (!stop_.load()) {
              const auto before = std::chrono::steady_clock::now();
              std::this_thread::sleep_for(std::chrono::milliseconds(20));
              const double slept = Milliseconds(std::chrono::steady_clock::now() - before).count();
              worst_.store(std::max(worst_.load(), slept - 20.0));
          }
      }) {}

SleepWitness::~SleepWitness() {
    stop_.store(true);
    thread_.join();
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
