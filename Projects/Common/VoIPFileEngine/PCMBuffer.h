// A sound file's audio in a buffer of its own.
#pragma once

#include <string>

#include "Projects/Common/VoIPFileEngine/IMemoryFile.h"

namespace Orv {

// The one road on which audio at more than 8000 Hz is taken: it is resampled while it is loaded (see LoadPcmFile).
// Holds the audio alone, and all of it can be reached. Not valid when the file could not be used.
class PCMBuffer : public IMemoryFile {
public:
    // May wait for the disk. With `lock` the audio is kept from being paged out, if the system allows it.
    PCMBuffer(const std::string& path, bool lock);
    ~PCMBuffer() override;

    bool IsValid() const override { return data != nullptr; }
};

}  // namespace Orv
