// Bytes that come by and by, from somebody who may take his time. The simulated platform opens none: what runs there
// brings streams of its own.
#pragma once

#include <memory>

#include "Platform/SystemError.h"

namespace Platform {

// One thread at a time.
class IInputStream {
public:
    enum class Outcome : u8 { Data, TimedOut, End };
    virtual ~IInputStream() = default;
    // Waits at most `timeoutMilliseconds` (0: not at all) for bytes. Data: `taken` (1 to `size`) bytes were copied.
    // End: nothing will come any more; `error` is 0 unless that is because the read failed.
    virtual Outcome Read(void* destination, u64 size, u32 timeoutMilliseconds, u64& taken, SystemError& error) = 0;
};

// The process's standard input, whatever it is. Its settings, which it shares with other processes, stay as they are.
std::unique_ptr<IInputStream> OpenStandardInput();

}  // namespace Platform
