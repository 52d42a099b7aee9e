#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"

#include <algorithm>
#include <utility>

#include "Platform/Path.h"
#include "Projects/Common/VoIPFileEngine/ContentName.h"
#include "Projects/Common/VoIPFileEngine/IMemoryFile.h"

namespace Orv {

// Never destroyed: a reader may be built as late as any other static object is.
MemoryFileCache& MemoryFileCache::Instance() {
    static MemoryFileCache& cache = *new MemoryFileCache;
    return cache;
}

std::string MemoryFileCache::Key(const std::string& name) {
    std::string key = Platform::LowerAscii(name);
    std::replace(key.begin(), key.end(), '\\', '/');
    return key;
}

std::shared_ptr<IMemoryFile> MemoryFileCache::FindKey(const std::string& key, bool& others) {
    Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_);
    others = !files_.empty();
    const auto found = files_.find(key);
    return found == files_.end() ? nullptr : found->second;
}

std::shared_ptr<IMemoryFile> MemoryFileCache::Find(const char* name) {
    bool others = false;
    std::shared_ptr<IMemoryFile> file = FindKey(Key(name), others);
    if (file == nullptr && others) file = FindKey(Key(NormaliseFileName(name)), others);
    return file;
}

bool MemoryFileCache::Add(const std::string& name, std::shared_ptr<IMemoryFile> file) {
    Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_);
    return files_.emplace(Key(name), std::move(file)).second;
}

// The files go behind the lock: giving locked memory back takes its time.
void MemoryFileCache::Clear() {
    std::map<std::string, std::shared_ptr<IMemoryFile>> files;
    Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_);
    files.swap(files_);
}

}  // namespace Orv
