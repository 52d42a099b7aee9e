#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"

#include <algorithm>

#include "Platform/Path.h"

namespace Orv {

// Never destroyed: a reader may be built as late as any other static object is.
MemoryFileCache& MemoryFileCache::Instance() {
    static MemoryFileCache& cache = *new MemoryFileCache;
    return cache;
}

std::string MemoryFileCache::Key(const char* name) {
    std::string key = Platform::LowerAscii(name);
    std::replace(key.begin(), key.end(), '\\', '/');
    return key;
}

std::shared_ptr<IMemoryFile> MemoryFileCache::Find(const char* name) {
    const std::string key = Key(name);
    Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_);
    const auto found = files_.find(key);
    return found == files_.end() ? nullptr : found->second;
}

}  // namespace Orv
