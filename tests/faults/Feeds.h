// Many feeds of an exchange, each with music of its own, and who listens to them: for tests that break one thing and
// compare what all the others hear with the model.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/e2e/Exchange.h"
#include "tests/faults/Neighbour.h"

namespace OrvTest {

using Json = nlohmann::json;

// Draws from SeedOfRun().
class Chance {
public:
    Chance();
    int Below(int count) { return static_cast<int>(engine_() % static_cast<unsigned>(count)); }
    int Between(int least, int most) { return least + Below(most - least + 1); }
    void SleepUpTo(int milliseconds);

private:
    std::mt19937_64 engine_;
};

// The feeds "f0", "f1", ..., sorted, each on a folder with a headerless file of its own. Made before the service
// starts.
class Feeds {
public:
    Feeds(const Exchange& exchange, int count);

    int Count() const { return static_cast<int>(music_.size()); }
    static std::string Name(int feed) { return "f" + std::to_string(feed); }
    // A listener to each of them, which connects at once.
    std::vector<std::unique_ptr<Client>> Listen() const;
    // ExpectExact() of a client that was there from the content's first block on. How many blocks it has heard.
    std::size_t ExpectExact(int feed, const Client& listener, const SleepWitness& machine) const;
    // The same for each listener, by Listen(); `least` blocks are asked of each. Says how many were silent.
    void ExpectAllExact(const std::vector<std::unique_ptr<Client>>& listeners, std::size_t least,
                        const SleepWitness& machine) const;
    // ExpectInTime() of each listener from feed `first` on. The worst of their lateness, in milliseconds.
    double ExpectInTime(const std::vector<std::unique_ptr<Client>>& listeners, const SleepWitness& machine,
                        int first = 0) const;

private:
    // How many blocks were silent since a read was late.
    std::size_t ExpectExact(int feed, const Client& listener, const std::vector<Model::Block>& heard,
                            const std::vector<LogEntry>& log, const SleepWitness& machine) const;

    const Exchange& exchange_;
    std::vector<Model::Bytes> music_;
};

// Whether each of them gets so many blocks.
bool WaitForAll(const std::vector<std::unique_ptr<Client>>& listeners, std::size_t blocks, int milliseconds = 60000);

// A client in a process of its own, which writes all it gets into a file: to be stopped and killed.
class ReaderProcess {
public:
    // Connects to a pipe that is there, or throws.
    ReaderProcess(const Exchange& exchange, const std::string& pipe, const std::string& file);
    ~ReaderProcess() { Kill(); }
    ReaderProcess(const ReaderProcess&) = delete;
    ReaderProcess& operator=(const ReaderProcess&) = delete;

    void Signal(int number) const;
    void Kill();
    std::size_t Size() const;
    bool WaitForBlocks(std::size_t count, int milliseconds = 30000) const;
    std::vector<Model::Block> Blocks() const;

private:
    std::string file_;
    pid_t pid_ = -1;
};

// The service's state, for settings with StatusPath=StateSocket(): an object, or something else when nobody answers.
std::string StateSocket(const Exchange& exchange);
Json AskState(const Exchange& exchange);
bool WaitForState(const Exchange& exchange, const std::function<bool(const Json&)>& condition,
                  int milliseconds = 30000);

// What a process takes of the system.
struct Footprint {
    long threads = 0;  // without the readers of the disk, which come and go with what the disk is asked
    // The names of those that are the service's own and stay: gRPC's pools and the readers of the disk grow and shrink.
    std::multiset<std::string> ownThreads;
    long descriptors = 0;
    long privateDirtyKilobytes = 0;
};
Footprint FootprintOf(pid_t process);
// The same when its descriptors have not changed for a while: a file may just be closed and opened anew.
Footprint SteadyFootprintOf(pid_t process);
// The same once there are so many of them, or as it is after a minute.
Footprint SteadyFootprintOf(pid_t process, long descriptors);

// Connected to a pipe without waiting; -1 and errno when that fails.
int TryConnect(const std::string& path);

std::vector<Model::Block> ToBlocks(const std::string& bytes);

// The command lines of the processes that name `text`, but for this one.
std::vector<std::string> ProcessesNaming(const std::string& text);

}  // namespace OrvTest
