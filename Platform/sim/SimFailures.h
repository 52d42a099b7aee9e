// Lets one operation of a simulated world fail that a system may refuse: the n-th since Begin(). Every such operation
// of the platform asks here, whoever makes it; a test begins with a number that is never reached to learn which there
// are, and then lets each of them fail in a world of its own.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "Platform/Types.h"

namespace Platform::Sim {

enum class Operation : u8 {
    Path,          // a file or folder is opened, made, moved, looked for or entered
    Entry,         // the next entry of a folder; its list ends there
    Read,          // of a file
    Write,         // to a file
    OpenInstance,  // of a pipe
    PollInstance,
    WritePipe,  // the connection is broken
    ConnectPipe,
    ReadPipe,  // by its client
    StartThread,
    LockMemory,
    ServeSocket,
    Other,  // told by a test
};

struct FallibleOperation {
    Operation kind;
    std::string what;    // a path or file name, the name of a pipe, of a thread
    std::string thread;  // that makes it
};

class SimFailures {
public:
    static constexpr u64 Never = 0xFFFFFFFFFFFFFFFF;

    // Counts from 0 and lets the operation `number` fail. Threads with these names are left alone, and not counted.
    void Begin(u64 number, std::set<std::string> exempt);
    void End() { counts_ = false; }
    // Those since Begin(), in order; the failed one too.
    const std::vector<FallibleOperation>& Operations() const { return operations_; }

    // Whether the operation `number` has been made, and so has failed.
    bool HasFailed() const { return operations_.size() > number_; }

    // For whoever makes an operation: whether it fails.
    bool Fails(Operation kind, const std::string& what);

private:
    bool counts_ = false;
    u64 number_ = Never;
    std::set<std::string> exempt_;
    std::vector<FallibleOperation> operations_;
};

// Of the world in use.
SimFailures& Failures() noexcept;

}  // namespace Platform::Sim
