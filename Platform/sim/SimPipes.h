// The named pipes of a simulated world. Tests are clients by ConnectPipe() and servers by CreatePipeEndpoint(), from
// simulated threads; what a client does (read slowly, stall, leave) is what such a thread does.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Platform/NamedPipe.h"
#include "Platform/SystemError.h"
#include "Platform/Types.h"

namespace Platform::Sim {

// Is told what is done at pipes, on the threads that do it, right after it has happened if nothing else is said. May
// sleep, which makes the operation slow, but where an endpoint is made or goes. Must not use pipes.
class PipeObserver {
public:
    virtual ~PipeObserver() = default;
    // The server's side of a name has been made; it is about to go, and the name with it.
    virtual void OnEndpoint(const std::string& /*name*/) {}
    virtual void OnEndpointGone(const std::string& /*name*/) {}
    // A try to open an instance; id 0 when it failed.
    virtual void OnInstance(const std::string& name, PipeId id) = 0;
    // A look for a client, with the client's id if there is one, otherwise 0.
    virtual void OnPoll(const std::string& name, PipeId id, ConnectState state, PipeId client) = 0;
    // A write that begins.
    virtual void OnWriting(const std::string& /*name*/, PipeId /*id*/) {}
    // A client's try to connect, with its id, or 0 and the error.
    virtual void OnConnect(const std::string& /*name*/, PipeId /*client*/, SystemError /*error*/) {}
    // A write that has come back: the bytes taken, 0 when its time was over, or -1.
    virtual void OnWrite(const std::string& name, PipeId id, const u8* data, i64 taken) = 0;
};

struct PipeCounters {
    u64 endpointsAlive = 0;
    u64 instancesAlive = 0;
    u64 clientsAlive = 0;
    u64 clientsQueued = 0;  // connected and not yet taken by an instance
    u64 connects = 0;       // successful ConnectPipe() calls
    u64 writes = 0;         // Write() calls
    u64 bytesWritten = 0;
    u64 writersBlocked = 0;  // threads that are inside a blocked Write() now
};

class SimPipes {
public:
    // Bytes on their way to a client: two blocks of 2000 bytes and no more. A write that does not fit as a whole waits
    // until it does; of one larger than this, this much is taken.
    static constexpr u64 Capacity = 4096;
    static constexpr u32 Always = 0xFFFFFFFF;

    SimPipes();
    ~SimPipes();
    SimPipes(const SimPipes&) = delete;
    SimPipes& operator=(const SimPipes&) = delete;

    // Clients that one name lets wait for an instance; ConnectPipe() fails with PipeBusyError() beyond. 4096 at first.
    void SetQueueLength(u32 clients);
    // At most so many bytes are taken by one Write(). 0: no limit (at first).
    void SetWriteLimit(u64 bytes);

    // Faults by name (case ignored). The next `times` operations fail with `error`; 0 takes it back.
    void FailInstances(const std::string& name, SystemError error, u32 times = Always);
    void FailPolls(const std::string& name, SystemError error, u32 times = Always);
    void FailConnects(const std::string& name, SystemError error, u32 times = Always);
    // The client's Read() gives Closed with this error.
    void FailClientReads(const std::string& name, SystemError error, u32 times = Always);
    void ClearFaults();

    // One at most; null for none. Must live until it is replaced or this world has gone.
    void SetObserver(PipeObserver* observer);

    // Whether a client would find a server; the names served, in the order in which they appeared.
    bool IsServed(const std::string& name) const;
    std::vector<std::string> ServedNames() const;
    PipeCounters Counters() const;

    struct Impl;
    Impl& Internals() noexcept { return *impl_; }

private:
    std::shared_ptr<Impl> impl_;
};

}  // namespace Platform::Sim
