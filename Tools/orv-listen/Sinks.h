// Where the sound goes.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "Platform/Types.h"

namespace Orv {

// Takes the sound as it comes. One thread. Write() may block for as long as the output does.
class ISoundSink {
public:
    virtual ~ISoundSink() = default;
    // False when the output takes no more: closed, or full.
    virtual bool Write(const u8* bytes, u64 count) = 0;
    // Completes the output. False when that failed.
    virtual bool Finish() = 0;
};

// Headerless samples on standard output.
std::unique_ptr<ISoundSink> MakeStandardOutputSink();

// A WAV file at 8000 Hz, 16 bits, mono. It is a valid file at each moment up to one second back, so that a recording
// that is cut off can be played. Null with a reason when the file cannot be made.
std::unique_ptr<ISoundSink> MakeWavSink(const std::string& path, std::string& reason);

}  // namespace Orv
