#include "Projects/Common/VoIPFileEngine/FileMapping.h"

#include <algorithm>
#include <map>
#include <system_error>
#include <utility>

namespace Orv {
namespace {

constexpr auto kNothingToMap = static_cast<Platform::SystemError>(std::errc::invalid_argument);
constexpr auto kNoMemory = static_cast<Platform::SystemError>(std::errc::not_enough_memory);

// Never destroyed, as a cached file may go as late as any static object does.
struct Registry {
    Platform::Mutex mutex;
    std::map<std::string, std::weak_ptr<FileMapping>> mappings ORV_GUARDED_BY(mutex);
};

Registry& TheRegistry() {
    static Registry& registry = *new Registry;
    return registry;
}

}  // namespace

std::shared_ptr<FileMapping> FileMapping::Create(const std::string& path, u64 size, Platform::SystemError& error) {
    std::string key = path;
    std::replace(key.begin(), key.end(), '\\', '/');
    Registry& registry = TheRegistry();
    Platform::LockGuard<Platform::Mutex> guard(registry.mutex);
    std::weak_ptr<FileMapping>& entry = registry.mappings[key];
    std::shared_ptr<FileMapping> mapping = entry.lock();
    if (mapping != nullptr) return mapping;
    if (size == 0) {
        registry.mappings.erase(key);
        error = kNothingToMap;
        return nullptr;
    }
    mapping = std::make_shared<FileMapping>(key, size);
    entry = mapping;
    return mapping;
}

void FileMapping::TakeRegistryLock() {
    Platform::LockGuard<Platform::Mutex> guard(TheRegistry().mutex);
}

FileMapping::FileMapping(std::string key, u64 size) : key_(std::move(key)), size_(size) {}

// Somebody may have made a new mapping of the same name since the last holder of this one let it go.
FileMapping::~FileMapping() {
    Registry& registry = TheRegistry();
    Platform::LockGuard<Platform::Mutex> guard(registry.mutex);
    const auto entry = registry.mappings.find(key_);
    if (entry != registry.mappings.end() && entry->second.expired()) registry.mappings.erase(entry);
}

const u8* FileMapping::Map(Platform::IReadFile& file, u64& size, Platform::SystemError& error) {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    if (bytes_ == nullptr) {
        bytes_ = AllocatePages(size_);
        if (bytes_ == nullptr) {
            error = kNoMemory;
            return nullptr;
        }
        size_ = file.ReadAt(0, bytes_.get(), size_);
    }
    size = size_;
    return bytes_.get();
}

bool FileMapping::Lock() {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    if (bytes_ == nullptr || (locks_ == 0 && !Platform::LockMemory(bytes_.get(), size_))) return false;
    ++locks_;
    return true;
}

void FileMapping::Unlock() {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    if (--locks_ == 0) Platform::UnlockMemory(bytes_.get(), size_);
}

}  // namespace Orv
