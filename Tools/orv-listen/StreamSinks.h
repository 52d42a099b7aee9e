// Headerless sound for another program.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "Platform/OutputStream.h"
#include "Tools/orv-listen/Sinks.h"

namespace Orv {

struct StreamFormat {
    bool ulaw = false;  // one mu-law byte a sample in place of two bytes
    u32 writeMs = 20;   // each write holds that much sound, but for the very last one; 1 to 250
    u32 prefillMs = 0;  // so much silence stands in front, for each new reader
};

// Standard output, or any other stream. It ends when its reader leaves. `stop` ends a write that waits.
std::unique_ptr<ISoundSink> MakeStreamSink(std::unique_ptr<Platform::IOutputStream> stream, const StreamFormat& format,
                                           const std::atomic<bool>& stop);

// A FIFO. While nobody reads it the sound is dropped; each reader that comes hears what is on then. Null with a reason
// when there can be no FIFO of that name.
std::unique_ptr<ISoundSink> MakeFifoSink(const std::string& path, const StreamFormat& format,
                                         const std::atomic<bool>& stop, std::string& reason);

}  // namespace Orv
