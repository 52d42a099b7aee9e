// Where the sound goes.
#pragma once

#include <memory>
#include <string>

#include "Platform/Types.h"

namespace Orv {

enum class SinkState : u8 {
    Open,
    ReaderGone,  // who read it has left, and with him the reason to go on
    Failed,      // the output takes no more
};

// Takes the sound as it comes, in whole 16-bit samples. One thread, but for ReaderGone(). All of these may block for as
// long as the output does.
class ISoundSink {
public:
    virtual ~ISoundSink() = default;
    // Once, before the first sound.
    virtual SinkState Begin() { return SinkState::Open; }
    virtual SinkState Write(const u8* bytes, u64 count) = 0;
    // Completes the output.
    virtual SinkState Finish() = 0;
    // Whether the reader is known to have left. Never blocks. Any thread.
    virtual bool ReaderGone() const { return false; }
};

// A WAV file at 8000 Hz, 16 bits, mono. It is a valid file at each moment up to one second back, so that a recording
// that is cut off can be played. Null with a reason when the file cannot be made.
std::unique_ptr<ISoundSink> MakeWavSink(const std::string& path, std::string& reason);

}  // namespace Orv
