// Bytes for somebody who may take his time, or leave. Not on the simulated platform.
#pragma once

#include <memory>
#include <string>

#include "Platform/SystemError.h"

namespace Platform {

// One thread at a time, but for ReaderGone().
class IOutputStream {
public:
    enum class Outcome : u8 {
        Taken,     // all of it
        TimedOut,  // none of it, or the beginning; `taken` tells
        Closed,    // the reader is gone, and nothing will be taken any more
        Failed,    // the system's error tells why nothing is taken any more
    };
    virtual ~IOutputStream() = default;
    // Hands on `size` bytes, 4096 at most, and waits at most `timeoutMilliseconds` for it. A pipe gets them in one
    // piece.
    virtual Outcome Write(const void* data, u64 size, u32 timeoutMilliseconds, u64& taken, SystemError& error) = 0;
    // Whether the reader is known to be gone. Never waits. Any thread.
    virtual bool ReaderGone() const = 0;
};

// The process's standard output, whatever it is. Its settings, which it shares with other processes, stay as they are.
std::unique_ptr<IOutputStream> OpenStandardOutput();

// Makes a FIFO (a pipe with a name in the file system, which its user's group may read) unless there is one. False with
// the system error; NotAFifoError() when something else stands there.
bool MakeFifo(const std::string& path, SystemError& error);
SystemError NotAFifoError();
// Opens a FIFO for writing, without waiting. Null with NoReaderError() when nobody has it open for reading now.
std::unique_ptr<IOutputStream> OpenFifo(const std::string& path, SystemError& error);
SystemError NoReaderError();

}  // namespace Platform
