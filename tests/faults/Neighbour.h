// A feed that has nothing to do with what breaks: it must be heard as if nothing had.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/e2e/Exchange.h"

namespace OrvTest {

// By how much a thread that only sleeps woke too late at worst: what this machine takes from everybody.
class SleepWitness {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    SleepWitness();
    ~SleepWitness();
    double WorstMilliseconds() const { return WorstAround(TimePoint::min(), TimePoint::max()); }
    // The same in that time and a few seconds before and behind it: what is late a minute later has no excuse in it.
    double WorstAround(TimePoint from, TimePoint to) const;
    // How many blocks of a feed may have found their file's next bytes not yet there about that time, since the machine
    // kept the thread that reads them from running. What lies in the system's cache, as each file that a test has just
    // written does, is read by the pump itself without any wait; only where that fails a thread is asked, so that a
    // waking late by a block at most explains nothing. One that was later explains the blocks that came due in twice
    // its lateness: the reading thread may have waited as long behind it as this one.
    std::size_t LateReadsExplained(TimePoint from, TimePoint to) const;

private:
    struct Waking {
        TimePoint due;
        double late;  // milliseconds
    };

    // Those in that time and kAround before and behind it.
    std::vector<Waking> Around(TimePoint from, TimePoint to) const;

    std::atomic<bool> stop_{false};
    mutable std::mutex mutex_;
    std::vector<Waking> late_;
    std::thread thread_;
};

// How far the worst block that a client got was behind the grid of 125 ms, in milliseconds; up to 100 are the pump's
// nap.
double WorstLateness(const Client& client);

// Fails the test when a block came later than one block, the pump's nap and twice what the machine itself was late at
// about that time, of a feed that what breaks has nothing to do with. `machine` has slept for as long as the client has
// listened. WorstLateness().
double ExpectInTime(const Client& client, const SleepWitness& machine, const std::string& name);

// Fails the test unless `heard`, the first blocks of that client, from the content's first one on, are what the model
// says, and no more of them silent since a read was late than `machine` explains at the time they came. `machine` has
// slept for as long as the client has listened, and the log was read after the blocks. How many were silent.
std::size_t ExpectExact(const Client& client, const std::vector<Model::Block>& heard, Model::Feed model,
                        const std::vector<LogEntry>& log, const SleepWitness& machine, const std::string& name);

// A feed of one piece of music, longer than any test, that is held in memory if the settings say so.
class Neighbour {
public:
    // Makes the file and the feed. Before the service starts.
    Neighbour(const Exchange& exchange, const std::string& name, double startSecond = 0.0);

    const std::string& File() const { return file_; }
    Client& Listen();
    Client& Heard() { return *client_; }
    double WorstLateness() const { return OrvTest::WorstLateness(*client_); }
    // ExpectExact() and ExpectInTime(); says how many blocks were silent. `inMemory`: the file is preloaded, so that no
    // read can be late.
    void ExpectUntouched(bool inMemory = false) const;

private:
    const Exchange& exchange_;
    const std::string name_;
    std::string file_;
    Model::Bytes audio_;
    std::optional<Client> client_;
    std::optional<SleepWitness> witness_;
};

}  // namespace OrvTest
