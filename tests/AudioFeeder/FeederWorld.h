// A simulated world for the feeder's tests: its files, its clients and the log that a channel writes.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "AudioFeeder/RandomDraw.h"
#include "Platform/NamedPipe.h"
#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"
#include "tests/AudioFeeder/FeederData.h"

namespace FeederTest {

// --- the world ------------------------------------------------------------------------------------------------------

struct LogLine {
    u64 milliseconds;  // of the day
    u64 thread;
    std::string word;
    std::string source;
    std::string text;
};

// The lines of the open log files in a folder of the running world.
std::vector<LogLine> ReadLog(const std::string& folder);

// Draws from a script: each Next() gives the value under which the next uniform(a, b) comes out as told.
class ScriptedDraws : public Orv::IRandomSource {
public:
    ScriptedDraws() { Orv::SetRandomSource(this); }
    ~ScriptedDraws() override { Orv::SetRandomSource(nullptr); }
    // The next draw is the outcome `index` of `outcomes`, counted from 0.
    void Then(u32 index, u32 outcomes);
    u32 Next() override;
    u32 Taken() const { return taken_; }

private:
    std::vector<u32> values_;
    u32 taken_ = 0;
};

class FeederWorld {
public:
    explicit FeederWorld(u64 seed = 1, Platform::Sim::Options options = {});
    ~FeederWorld();

    Platform::Sim::Simulation& Sim() { return sim_; }
    Platform::Sim::SimFiles& Files() { return sim_.Files(); }
    Platform::Sim::SimPipes& Pipes() { return sim_.Pipes(); }
    // Runs `body` on the main simulated thread, with the log open at level 3, and ends every channel after it.
    void Run(const std::function<void()>& body);

    // The log so far, or of the whole run once Run() has returned.
    std::vector<LogLine> Log();
    // The texts of the lines that contain `part`, "<word>|<text>".
    std::vector<std::string> LogOf(const std::string& part);
    u64 CountLog(const std::string& part) { return LogOf(part).size(); }

private:
    Platform::Sim::Simulation sim_;
    std::vector<LogLine> finished_;
    bool running_ = false;
};

// Steady milliseconds of the simulated clock.
u64 Now();
void Sleep(u32 milliseconds);

// --- clients --------------------------------------------------------------------------------------------------------

// A client that reads when it is told to, on the calling thread.
class Client {
public:
    // Connects; tries for a second, since a channel serves its pipe a moment after it was built.
    explicit Client(const std::string& pipe);
    bool Connected() const { return client_ != nullptr; }
    // Reads so many blocks of 1000 samples, each within `timeout`; fewer when the time or the pipe ends.
    Samples ReadBlocks(u32 count, u32 timeout = 1000);
    // The first block, and the time that it took to come.
    Samples ReadBlock(u64& waited);
    // Reads so many bytes into memory of the caller's, and allocates nothing. The bytes read.
    u64 ReadInto(char* bytes, u64 size);
    // Everything that the pipe holds now.
    Samples Drain();
    // Whether the server has ended the connection and all has been read.
    bool SeesEnd(u32 timeout = 1000);
    void Leave() { client_.reset(); }
    Platform::PipeId Id() const { return client_->Id(); }

private:
    std::unique_ptr<Platform::IPipeClient> client_;
};

// A client on a thread of its own that always reads at once, until it is stopped or the pipe ends.
class Listener {
public:
    explicit Listener(const std::string& pipe);
    ~Listener() { Stop(); }
    void Stop();
    const Samples& Heard() const { return heard_; }
    // The time at which each whole block was there.
    const std::vector<u64>& Arrivals() const { return arrivals_; }

private:
    void Read();

    Client client_;
    Samples heard_;
    std::vector<u64> arrivals_;
    bool stop_ = false;  // all simulated threads are fibers of one
    Platform::Thread thread_;
};

}  // namespace FeederTest
