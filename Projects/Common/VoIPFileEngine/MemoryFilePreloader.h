// Fills the MemoryFileCache.
#pragma once

#include <memory>
#include <string>

#include "Projects/Common/VoIPFileEngine/IMemoryFile.h"

namespace Orv {

// Loads sound files into the cache, up to a limit of memory. A file that cannot be mapped as it is, such as a mono file
// at 44100 Hz, is loaded whole and resampled. What is not loaded is told to the log and plays from disk, as if nobody
// had tried. One thread.
class MemoryFilePreloader {
public:
    // `limitBytes` bounds what the files hold together, and the length of each file while it is being loaded.
    explicit MemoryFilePreloader(u64 limitBytes) : limit_(limitBytes) {}

    // Enters the file under its absolute, lower-cased path: the file that this path plays from disk. True when it is in
    // the cache afterwards. May wait for the disk.
    bool Load(const std::string& path);

    u32 Files() const { return files_; }    // loaded so far
    u32 Locked() const { return locked_; }  // those of them that cannot be paged out
    u64 Bytes() const { return bytes_; }    // what they hold

private:
    // The file and the bytes it holds. Null when it cannot be used or does not fit.
    std::shared_ptr<IMemoryFile> Open(const std::string& name, u64& bytes) const;
    bool Fits(const std::string& name, u64 bytes) const;

    const u64 limit_;
    u64 bytes_ = 0;
    u32 files_ = 0;
    u32 locked_ = 0;
};

}  // namespace Orv
