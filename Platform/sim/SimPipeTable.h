// The table behind SimPipes, and one connection. Inside Platform/sim only.
#pragma once

#include <array>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "Platform/NamedPipe.h"
#include "Platform/sim/Scheduler.h"
#include "Platform/sim/SimPipes.h"

namespace Platform::Sim {

// One client and what is on its way to it. Lives until both sides have left.
struct PipeConnection {
    explicit PipeConnection(std::string theKey) : key(std::move(theKey)) {}

    u64 Room() const noexcept { return bytes.size() - used; }
    void Put(const u8* data, u64 count) noexcept;
    void Take(u8* destination, u64 count) noexcept;

    const std::string key;
    PipeId client = 0;
    std::array<u8, SimPipes::Capacity> bytes;
    u64 first = 0;  // where the oldest byte stands; the rest follows in a ring
    u64 used = 0;
    bool serverGone = false;
    bool clientGone = false;
    SystemError endError = 0;  // what the client is told behind the last byte
    FiberQueue readers;
    FiberQueue writers;
};

// A name that is served.
struct PipeServer {
    std::string key;
    std::string name;
    bool closed = false;
    std::deque<std::shared_ptr<PipeConnection>> waiting;
    FiberQueue connectors;  // who waits for a place in `waiting`
};

// Failures that a name has ahead of it.
struct PipeFault {
    SystemError error = 0;
    u32 times = 0;

    void Set(SystemError theError, u32 theTimes) noexcept;
    SystemError TakeError() noexcept;
};

struct PipeFaults {
    PipeFault instances;
    PipeFault polls;
    PipeFault connects;
    PipeFault reads;
};

struct SimPipes::Impl : std::enable_shared_from_this<SimPipes::Impl> {
    std::vector<std::shared_ptr<PipeServer>> servers;
    std::unordered_map<std::string, PipeFaults> faults;
    std::string folder = "/run/Orv/pipe";
    u32 queueLength = 4096;
    u64 writeLimit = 0;
    PipeId lastId = 0;
    PipeCounters counters;
    PipeObserver* observer = nullptr;

    std::shared_ptr<PipeServer> FindServer(const std::string& key) const;
    // What stands for `name`; false when it cannot be a pipe's name.
    bool MakeKey(const std::string& name, std::string& key, SystemError& error) const;
    // Ends the name and everybody who still waits for it.
    void Close(PipeServer& server);
};

}  // namespace Platform::Sim
