// Where the sound comes from.
#pragma once

#include "Platform/Types.h"

namespace Orv {

// Sound in the pipe's own format: 8000 Hz, 16 bits, little-endian, mono. One thread.
class ISource {
public:
    enum class Outcome : u8 {
        Data,     // more may be there
        Nothing,  // nothing is there now
        End,      // nothing will come any more; why has been told
    };
    virtual ~ISource() = default;
    // Copies up to `size` bytes (at least 2) that are there now. `taken` is even; with Data it may be 0. Never waits
    // for sound; may wait for a disk.
    virtual Outcome Read(u8* destination, u64 size, u64& taken) = 0;
    // After the end: how it ended, as a PublishExit.
    virtual i32 Result() const = 0;
};

}  // namespace Orv
