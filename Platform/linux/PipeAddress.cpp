#include "Platform/linux/PipeAddress.h"

#include <atomic>
#include <cerrno>
#include <cstring>

#include "Platform/Sync.h"
#include "Platform/linux/NativePath.h"

namespace Platform {
namespace {

struct Setting {
    Mutex mutex;
    std::string folder ORV_GUARDED_BY(mutex) = "/run/Orv/pipe";
};

// Never destroyed, since a pump may still be at work when the process ends.
Setting& TheSetting() {
    static Setting& setting = *new Setting;
    return setting;
}

std::atomic<PipeId> lastId{0};

}  // namespace

void SetPipeFolder(const std::string& folder) {
    Setting& setting = TheSetting();
    LockGuard<Mutex> guard(setting.mutex);
    setting.folder = folder;
}

std::string PipeFolder() {
    Setting& setting = TheSetting();
    LockGuard<Mutex> guard(setting.mutex);
    return setting.folder;
}

PipeId NextPipeId() {
    return lastId.fetch_add(1, std::memory_order_relaxed) + 1;
}

bool PipeAddress::Make(const std::string& name, PipeAddress& address, SystemError& error) {
    error = EINVAL;
    address.folder = NativePath(PipeFolder());
    if (name.empty() || !CanBeNamed(address.folder)) return false;
    while (address.folder.size() > 1 && address.folder.back() == '/') address.folder.pop_back();
    address.path = address.folder;
    if (address.path.back() != '/') address.path += '/';
    address.path += PipeFileName(name);

    address.address = {};
    address.address.sun_family = AF_UNIX;
    error = ENAMETOOLONG;
    if (address.path.size() >= sizeof address.address.sun_path) return false;
    std::memcpy(address.address.sun_path, address.path.c_str(), address.path.size());
    error = 0;
    return true;
}

}  // namespace Platform
