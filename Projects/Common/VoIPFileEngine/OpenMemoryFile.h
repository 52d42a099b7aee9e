// The factory of files in memory.
#pragma once

#include <memory>
#include <string>

#include "Projects/Common/VoIPFileEngine/IMemoryFile.h"

namespace Orv {

// Never null; a file that cannot be used gives an object that is not valid, which mostly is in the log then. May wait
// for the disk.
//
// With `view`, the file as it is on disk: a name with something before its ".wav" (in any case) gives the audio of a
// WAV file, any other the whole file. Without, the audio in a buffer, resampled if need be; there ".wav" alone is a WAV
// file too. With `lock` the bytes are kept from being paged out, if the system allows it.
std::unique_ptr<IMemoryFile> OpenMemoryFile(const std::string& path, bool view, bool lock);

}  // namespace Orv
