// Sound files that are held in memory, by name.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "Platform/Sync.h"
#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"

namespace Orv {

struct IMemoryFile;

// One for the process. Nothing enters files yet, so every lookup misses. Any thread.
class MemoryFileCache {
public:
    static MemoryFileCache& Instance();

    // The file of that name, or null. Case (A to Z) and the kind of separator make no difference.
    std::shared_ptr<IMemoryFile> Find(const char* name);

private:
    // The name under which a file is kept: lower-cased, every backslash a slash.
    static std::string Key(const char* name);

    Platform::RecursiveMutex mutex_;
    std::map<std::string, std::shared_ptr<IMemoryFile>> files_ ORV_GUARDED_BY(mutex_);
};

// A reader of a cached file, opened. Null when no file of that name is cached.
MTObjects::THolder<IMMFileStreamReader> CreateMemFileReader(u32 id, const char* name, void* buffer, u32 frameBytes);

}  // namespace Orv
