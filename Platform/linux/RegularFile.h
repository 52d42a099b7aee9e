// Opening what must be a regular file. Inside Platform/linux only.
#pragma once

#include <string>

#include "Platform/SystemError.h"
#include "Platform/linux/Descriptor.h"

namespace Platform {

struct RegularFile {
    Descriptor descriptor;
    u64 size = 0;
    u64 device = 0;
};

// Opens the regular file of that exact name, following links. Anything else is refused without being opened, so that
// no FIFO is waited for and no device is set off: a folder with EISDIR, the rest with EINVAL. `flags` are those of
// open(); with O_CREAT the file is made when it is missing. False with the system error on failure.
bool OpenRegularFile(const std::string& path, int flags, RegularFile& file, SystemError& error);

}  // namespace Platform
