// A file as one read-only run of bytes with a name.
#pragma once

#include <string>

#include "Platform/Types.h"

namespace Orv {

// Does not change after opening, so any number of readers may use it at once. They may not touch the fields.
struct IMemoryFile {
    IMemoryFile() = default;
    IMemoryFile(const IMemoryFile&) = delete;
    IMemoryFile& operator=(const IMemoryFile&) = delete;
    virtual ~IMemoryFile() = default;

    // Points `*out` at up to `count` bytes from `position`, at any address, without a copy; valid as long as this
    // object. Returns how many there are. 0 and null when the object is not valid, holds no bytes in memory, or when
    // `position` lies behind the end; 0 and a pointer at the end itself.
    //
    // `offset` is added to `position`, and the sum is bounded by `size`. As `size` is the length of the audio alone,
    // the last `offset` bytes of a WAV file's audio cannot be reached. Users count on it.
    virtual u64 GetData(const u8** out, u64 position, u64 count);
    // Copies the bytes, within the same bounds. Returns how many.
    virtual u64 Read(void* destination, u64 position, u64 count);
    virtual bool IsValid() const = 0;

    std::string name;          // the path given at opening
    const u8* data = nullptr;  // the bytes in memory; null when none are held
    u64 size = 0;              // in bytes; of a WAV file that has been parsed, the length of the audio
    u64 offset = 0;            // of a WAV file that has been parsed, where the audio begins
    bool locked = false;       // the bytes cannot be paged out
    bool adpcm = false;        // IMA ADPCM, not PCM

protected:
    // Adds `offset` to `position` and cuts `count` to the bytes there are. False when nothing can be read.
    bool Bound(u64& position, u64& count) const;
};

}  // namespace Orv
