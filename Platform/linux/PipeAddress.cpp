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
    return address.Fill(error);
}

bool PipeAddress::OfPath(const std::string& path, PipeAddress& address, SystemError& error) {
    error = EINVAL;
    address.path = NativePath(path);
    if (!CanBeNamed(address.path) || address.path.back() == '/') return false;
    const auto slash = address.path.rfind('/');
    address.folder = slash == std::string::npos ? "." : slash == 0 ? "/" : address.path.substr(0, slash);
    return address.Fill(error);
}

bool PipeAddress::Fill(SystemError& error) {
    address = {};
    address.sun_family = AF_UNIX;
    error = ENAMETOOLONG;
    if (path.size() >= sizeof address.sun_path) return false;
    std::memcpy(address.sun_path, path.c_str(), path.size());
    error = 0;
    return true;
}

}  // namespace Platform
