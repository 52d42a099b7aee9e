// Reads a sound file of any kind that people have.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Platform/Files.h"

namespace Orv {

// Ends the conversion of one file; the text tells a person why, without the file's name.
class Refusal : public std::runtime_error {
public:
    explicit Refusal(const std::string& text) : std::runtime_error(text) {}
};

// One thread. Throws Refusal from everything that reads.
class ISoundFile {
public:
    virtual ~ISoundFile() = default;
    virtual const char* Format() const = 0;  // "FLAC"
    virtual u32 Rate() const = 0;
    virtual u32 Channels() const = 0;  // 1 or 2
    // What its header says; 0 when it says nothing.
    virtual u64 StatedFrames() const = 0;
    // The next frames, interleaved, 1.0 is full scale; at most `frames`. Empty at the end.
    virtual const std::vector<float>& Read(u64 frames) = 0;
};

// WAV, FLAC, Ogg (Vorbis, Opus) and MP3. `file` must outlive the result.
std::unique_ptr<ISoundFile> OpenSoundFile(Platform::IReadFile& file);

}  // namespace Orv
