// A whole sound file read into memory, resampled if its rate is higher than the engine's.
#pragma once

#include <string>

#include "Projects/Common/VoIPFileEngine/PageBytes.h"

namespace Orv {

// The audio of `path`: of a name that ends in ".wav" the data chunk of a mono file, 16-bit PCM at 8000 Hz as it is, at
// a higher rate resampled to 8000 Hz, or 4-bit IMA ADPCM in 256-byte blocks as it is (`adpcm` is true then); of any
// other name the whole file. `fileSize` is the file's length, `dataOffset` where the audio begins in it, `dataSize` how
// many bytes the result has. Null, with the outputs as far as they were known, when the file cannot be used, which most
// often is in the log then: also a file of less than 44 bytes, or of 2 GiB and more, and one for which memory runs out.
// No header can make it read outside the file or go on past its end. May wait for the disk.
PageBytes LoadPcmFile(const std::string& path, u64& fileSize, u64& dataOffset, u64& dataSize, bool& adpcm);

}  // namespace Orv
