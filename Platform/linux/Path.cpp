#include "Platform/Path.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "Platform/PathText.h"
#include "Platform/ThreadWait.h"
#include "Platform/linux/NativePath.h"

namespace Platform {
namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

// Whether `path` is there under this very name, be it a link that leads nowhere. errno tells why not.
bool ExistsExactly(const std::string& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0;
}

// The bytewise smallest name in `folder` that equals `name` when case is ignored; empty when there is none.
std::string FindIgnoringCase(const std::string& folder, const std::string& name) {
    const std::unique_ptr<DIR, CloseFolder> entries(::opendir(folder.empty() ? "." : folder.c_str()));
    std::string best;
    if (!entries) return best;
    std::string candidate;
    while (const dirent* entry = ::readdir(entries.get())) {
        candidate = entry->d_name;
        if (EqualIgnoringCase(candidate, name) && (best.empty() || candidate < best)) best.swap(candidate);
    }
    return best;
}

// Goes through `path` component by component. Only folders in which a component fails are read.
std::string FindComponents(const std::string& path) {
    std::string found(path[0] == '/' ? "/" : "");
    std::size_t begin = path.find_first_not_of('/');
    while (begin != std::string::npos) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        const std::string component = path.substr(begin, end - begin);
        std::string exact = found;
        if (!exact.empty() && exact.back() != '/') exact += '/';
        const std::size_t folderLength = exact.size();
        exact += component;
        if (!ExistsExactly(exact)) {
            const std::string other = errno == ENOENT ? FindIgnoringCase(found, component) : std::string();
            // Nothing fits: the rest stays as it is, and the caller's own call fails on it.
            if (other.empty()) return exact.append(path, end);
            exact.replace(folderLength, std::string::npos, other);
        }
        found.swap(exact);
        begin = path.find_first_not_of('/', end);
    }
    if (path.back() == '/' && found.back() != '/') found += '/';
    return found;
}

}  // namespace

bool MakeAbsolutePath(const std::string& path, std::string& absolute) {
    if (path.empty()) return false;
    std::string folder;
    if (!IsSeparator(path[0])) {
        const std::unique_ptr<char, decltype(&std::free)> current(::getcwd(nullptr, 0), &std::free);
        if (!current) return false;
        folder = current.get();
    }
    absolute = AbsolutePathFrom(folder, path);
    return true;
}

std::string FindOnDisk(const std::string& path) {
    const ThreadWaitScope waiting(ThreadWait::Disk);
    const std::string native = NativePath(path);
    if (!CanBeNamed(native) || ExistsExactly(native)) return native;
    return errno == ENOENT ? FindComponents(native) : native;
}

std::string ProgramDataFolder() {
    return "/var/lib";
}

bool SetWorkingDirectory(const std::string& path, SystemError& error) {
    error = ENOENT;
    if (!CanBeNamed(path)) return false;
    error = ::chdir(FindOnDisk(path).c_str()) == 0 ? 0 : static_cast<SystemError>(errno);
    return error == 0;
}

}  // namespace Platform
