// A RIFF WAVE file: where its audio lies, and in which of the two forms that the engine plays.
#pragma once

#include <string>

#include "Projects/Common/VoIPFileEngine/FileView.h"

namespace Orv {

class WaveBytes;

// Valid for 8000 Hz mono audio, either 16-bit PCM or 4-bit IMA ADPCM in 256-byte blocks: `offset` is then where the
// audio begins, `size` its length, cut to the file, and `adpcm` tells the form. Everything else is told to the log and
// leaves the object closed. No header can make the parser read outside the file or go on past its end.
class WAVFileView : public FileView {
public:
    // May wait for the disk. With neither `prefetch` nor `lock` only the chunks' headers are read.
    WAVFileView(const std::string& path, bool prefetch, bool lock);

private:
    bool ParseWave();
    // Both take the position of a chunk, move it on, and tell the log when they answer false.
    bool ParseFormat(WaveBytes& bytes, u64& position);
    bool FindData(WaveBytes& bytes, u64 position);
};

}  // namespace Orv
