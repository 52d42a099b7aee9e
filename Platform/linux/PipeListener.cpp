#include "Platform/linux/PipeListener.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "Platform/Sync.h"

namespace Platform {
namespace {

// The group may serve pipes in the folder; sticky, so that nobody removes another's; setgid, so that the sockets
// belong to the folder's group.
constexpr mode_t kFolderMode = 03770;
constexpr mode_t kFolderModeWithoutGroup = 01770;
constexpr mode_t kParentMode = 0755;
constexpr mode_t kSocketMode = 0660;
constexpr int kBacklog = 4096;  // the kernel takes its own limit when that is lower

SystemError LastError() {
    return static_cast<SystemError>(errno);
}

Descriptor OpenFolder(const std::string& folder) {
    return Descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// Makes the folder and those above it. errno tells what failed.
Descriptor MakeFolder(const std::string& folder) {
    for (std::size_t end = folder.find('/', 1); end != std::string::npos; end = folder.find('/', end + 1)) {
        ::mkdir(folder.substr(0, end).c_str(), kParentMode);
    }
    const bool made = ::mkdir(folder.c_str(), kFolderMode & 0777) == 0;
    if (!made && errno != EEXIST) return Descriptor();
    Descriptor opened = OpenFolder(folder);
    // Who lost a race for it leaves the folder as the winner makes it.
    if (made && opened.IsOpen() && ::fchmod(opened.Get(), kFolderMode) != 0) {
        ::fchmod(opened.Get(), kFolderModeWithoutGroup);
    }
    return opened;
}

// Looking whether a socket is stale, removing it and binding anew must be one step for all who serve pipes here, or
// one would remove what another has just bound. Among the threads of this process a mutex does it, among processes a
// lock on the folder, held for moments and never waited for.
Mutex& BindMutex() {
    static Mutex& mutex = *new Mutex;
    return mutex;
}

}  // namespace

// A datagram socket cannot be connected to a stream socket, which is told only when there is one.
bool IsServed(const PipeAddress& address, SystemError& error) {
    const Descriptor probe(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    error = 0;
    if (probe.IsOpen() && ::connect(probe.Get(), address.Get(), sizeof address.address) == 0) return true;
    if (errno == EPROTOTYPE) return true;
    if (errno != ECONNREFUSED && errno != ENOENT) error = LastError();
    return false;
}

std::shared_ptr<PipeListener> PipeListener::Bind(const std::string& name, SystemError& error) {
    PipeAddress address;
    if (!PipeAddress::Make(name, address, error)) return nullptr;
    return BindAt(address, error);
}

std::shared_ptr<PipeListener> PipeListener::BindAt(const PipeAddress& address, SystemError& error) {
    std::shared_ptr<PipeListener> listener(new PipeListener);
    listener->address_ = address;
    LockGuard<Mutex> guard(BindMutex());
    Descriptor folder = OpenFolder(listener->address_.folder);
    if (!folder.IsOpen() && errno == ENOENT) folder = MakeFolder(listener->address_.folder);
    if (!folder.IsOpen() || ::flock(folder.Get(), LOCK_EX | LOCK_NB) != 0) {
        error = LastError();
        return nullptr;
    }
    if (!listener->BindSocket(folder, error)) return nullptr;
    return listener;
}

bool PipeListener::BindSocket(const Descriptor& folder, SystemError& error) {
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    // Set on the socket first, so that its file is at no moment open to more than its mode.
    bool bound = socket.IsOpen() && ::fchmod(socket.Get(), kSocketMode) == 0 &&
                 ::bind(socket.Get(), address_.Get(), sizeof address_.address) == 0;
    if (!bound && errno == EADDRINUSE) {
        if (!ClearStaleSocket(error)) return false;
        bound = ::bind(socket.Get(), address_.Get(), sizeof address_.address) == 0;
    }
    if (!bound) {
        error = LastError();
        return false;
    }
    socket_ = std::move(socket);
    return AdoptFile(folder, error);
}

bool PipeListener::ClearStaleSocket(SystemError& error) const {
    struct stat info {};
    if (::lstat(address_.path.c_str(), &info) != 0) {
        error = LastError();
        return errno == ENOENT;
    }
    error = EEXIST;
    if (!S_ISSOCK(info.st_mode)) return false;
    if (IsServed(address_, error)) error = EADDRINUSE;
    if (error != 0) return false;
    if (::unlink(address_.path.c_str()) == 0 || errno == ENOENT) return true;
    error = LastError();
    return false;
}

// Remembers the file, gives it its group and mode, whatever the process takes away from new files, and opens the name
// to clients.
bool PipeListener::AdoptFile(const Descriptor& folder, SystemError& error) {
    const Descriptor file(::open(address_.path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    struct stat folderInfo {};
    if (!file.IsOpen() || ::fstat(file.Get(), &info) != 0 || ::fstat(folder.Get(), &folderInfo) != 0) {
        error = LastError();
        // Bound a moment ago under the folder's lock: nobody else would ever remove it.
        ::unlink(address_.path.c_str());
        return false;
    }
    device_ = info.st_dev;
    inode_ = info.st_ino;
    if (info.st_gid != folderInfo.st_gid) {
        // Refused to who is not in that group; the socket then serves the group that the process has.
        (void)!::fchownat(file.Get(), "", static_cast<uid_t>(-1), folderInfo.st_gid, AT_EMPTY_PATH);
    }
    // By way of the descriptor, so that no link can be put in the file's place meanwhile.
    const std::string self = "/proc/self/fd/" + std::to_string(file.Get());
    const bool modeIsRight = (info.st_mode & 0777) == kSocketMode;
    if ((!modeIsRight && ::chmod(self.c_str(), kSocketMode) != 0) || ::listen(socket_.Get(), kBacklog) != 0) {
        error = LastError();
        Close();
        return false;
    }
    error = 0;
    return true;
}

void PipeListener::Close() {
    if (!socket_.IsOpen()) return;
    struct stat info {};
    if (inode_ != 0 && ::lstat(address_.path.c_str(), &info) == 0 && info.st_dev == device_ && info.st_ino == inode_) {
        ::unlink(address_.path.c_str());
    }
    socket_.Close();
}

}  // namespace Platform
