// Sound files that are held in memory, by name.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "Platform/Sync.h"
#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"

namespace Orv {

struct IMemoryFile;

// One for the process; empty unless files are preloaded. Any thread.
class MemoryFileCache {
public:
    static MemoryFileCache& Instance();

    // The file of that name, or null. Case (A to Z) and the kind of separator make no difference. A name that is not
    // found as it stands is looked for by its absolute path, so that a file that was entered under that is found
    // however it is asked for.
    std::shared_ptr<IMemoryFile> Find(const char* name);
    // Enters a file under a name. False, and the file that is there stays, when the name is taken.
    bool Add(const std::string& name, std::shared_ptr<IMemoryFile> file);
    // Forgets all files. Readers keep theirs.
    void Clear();
    // Takes the lock for a moment: for who looks whether it can be had.
    void TakeLock() { Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_); }

private:
    // The name under which a file is kept: lower-cased, every backslash a slash.
    static std::string Key(const std::string& name);
    // `others` tells whether there are files at all.
    std::shared_ptr<IMemoryFile> FindKey(const std::string& key, bool& others);

    Platform::RecursiveMutex mutex_;
    std::map<std::string, std::shared_ptr<IMemoryFile>> files_ ORV_GUARDED_BY(mutex_);
};

// A reader of a cached file, opened; null when no file of that name is cached. One whose file cannot be used is not
// valid. `frameBytes` is at most MaxFrameBytes; with 0 it has finished from the start.
MTObjects::THolder<IMMFileStreamReader> CreateMemFileReader(u32 id, const char* name, void* buffer, u32 frameBytes);

}  // namespace Orv
