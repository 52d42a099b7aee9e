// Named pipes: byte streams between processes of one machine, found by name. Names ignore the case of A to Z. A name
// is what stands behind "\\.\pipe\".
#pragma once

#include <memory>
#include <string>

#include "Platform/SystemError.h"

namespace Platform {

// The value by which a connection is told in the log; never 0, not used again within a process.
using PipeId = u64;

enum class ConnectState : u8 { Connected, Pending, Failed };

// One end for one client: waits for it, then sends to it. Belongs to one thread at a time. Destroying it disconnects
// the client, which still gets what was written before and then sees the end.
class IPipeInstance {
public:
    virtual ~IPipeInstance() = default;
    virtual PipeId Id() const = 0;
    // Whether a client has come. Never blocks. On Failed, `error` is set and the instance is of no further use.
    virtual ConnectState PollConnect(SystemError& error) = 0;
    // A deadline that never comes.
    static constexpr u64 NoDeadline = ~u64{0};
    // Sends up to `size` bytes to the connected client and blocks until at least one byte has been taken, the client is
    // gone, or the steady clock stands at `deadline` milliseconds (see Clock.h); one that has passed still tries. The
    // count taken, 0 when the deadline came first, or -1 when the client is gone. A client may lag by two blocks of
    // 2000 bytes.
    virtual i64 Write(const void* data, u64 size, u64 deadline) = 0;
    i64 Write(const void* data, u64 size) { return Write(data, size, NoDeadline); }
    // The same without waiting: sends what the client can take now. The count taken, 0 when that is nothing, or -1 when
    // the client is gone. With a `size` of 0 it only tells whether the client is gone.
    virtual i64 TryWrite(const void* data, u64 size) = 0;
};

// The serving side of one name. Belongs to one thread at a time. The name exists from the first instance on until the
// endpoint is destroyed; clients that come while no instance waits stay queued.
class IPipeEndpoint {
public:
    virtual ~IPipeEndpoint() = default;
    // A new instance that waits for the next client. Null with the system error when the name cannot be served: it is
    // taken by a live server, something that is no pipe stands in its place, the folder is missing or not writable, or
    // the name is too long.
    virtual std::unique_ptr<IPipeInstance> CreateInstance(SystemError& error) = 0;
};

std::unique_ptr<IPipeEndpoint> CreatePipeEndpoint(const std::string& name);

// The client's side. One thread at a time.
class IPipeClient {
public:
    enum class Outcome : u8 { Data, TimedOut, Closed };
    virtual ~IPipeClient() = default;
    // The value told in the log.
    virtual PipeId Id() const = 0;
    // Waits at most `timeoutMilliseconds` (0: not at all) for bytes. Data: `taken` (1 to `size`) bytes were copied.
    // Closed: the server has ended the connection and everything it sent has been read, or the read failed; `error` is
    // 0 for the former.
    virtual Outcome Read(void* destination, u64 size, u32 timeoutMilliseconds, u64& taken, SystemError& error) = 0;
    // Bytes that a read would give now. False when the connection has ended.
    virtual bool Available(u64& bytes) = 0;
    // Sends to the server and blocks until it has taken all, or takes nothing any more. The count taken: always 0 with
    // a server by IPipeInstance, whose pipes go one way.
    virtual u64 Write(const void* data, u64 size) = 0;
};

// Connects to a served name. Never waits: an absent server and a full queue of waiting clients are both failures.
std::unique_ptr<IPipeClient> ConnectPipe(const std::string& name, SystemError& error);
// The same, but with a full queue waits at most `milliseconds` for a place in it; PipeBusyError() when they have
// passed. Every other failure comes at once.
std::unique_ptr<IPipeClient> ConnectPipeWithin(const std::string& name, u32 milliseconds, SystemError& error);
// The error by which both tell that a server is there but takes no client now.
SystemError PipeBusyError();
// What the end of a connection by its server is called where an error number is wanted.
SystemError PipeBrokenError();

// The folder that stands for the root of all pipe names of this process. Set before the first endpoint or client;
// "/run/Orv/pipe" until then. An endpoint creates the folder when it is missing.
void SetPipeFolder(const std::string& folder);
std::string PipeFolder();
// The file that stands for a name in that folder: lower-cased, and what cannot stand in a file name percent-encoded.
std::string PipeFileName(const std::string& name);

}  // namespace Platform
