// Finds the sound in a WAV file.
#pragma once

#include <string>

#include "Platform/Files.h"

namespace Orv {

struct WavSound {
    u64 begin = 0;
    u64 length = 0;  // even, and never past the end of the file
};

// Looks for 8000 Hz, 16-bit, mono PCM. False with what the file is instead, for instance "44100 Hz, 2 channels, 16-bit
// PCM". A data length of 0xFFFFFFFF, as programs write that cannot know it, means the rest of the file.
bool FindWavSound(Platform::IReadFile& file, WavSound& sound, std::string& whatItIs);

}  // namespace Orv
