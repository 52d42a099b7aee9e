#include "Platform/Diagnosis.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>

#include "Platform/linux/NativePath.h"
#include "Platform/linux/PipeAddress.h"
#include "Platform/linux/PipeListener.h"

namespace Platform {
namespace {

SocketState Probe(const PipeAddress& address, SystemError& error) {
    error = 0;
    struct stat info {};
    if (::lstat(address.path.c_str(), &info) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) return SocketState::Absent;
        error = static_cast<SystemError>(errno);
        return SocketState::Unreachable;
    }
    if (!S_ISSOCK(info.st_mode)) return SocketState::NotASocket;
    if (IsServed(address, error)) return SocketState::Served;
    return error == 0 ? SocketState::Stale : SocketState::Unreachable;
}

}  // namespace

SocketState ProbePipe(const std::string& name, SystemError& error) {
    PipeAddress address;
    return PipeAddress::Make(name, address, error) ? Probe(address, error) : SocketState::Unreachable;
}

SocketState ProbeSocket(const std::string& path, SystemError& error) {
    PipeAddress address;
    return PipeAddress::OfPath(path, address, error) ? Probe(address, error) : SocketState::Unreachable;
}

FolderState ProbeFolder(const std::string& path) {
    const std::string native = NativePath(path);
    struct stat info {};
    if (!CanBeNamed(native) || ::stat(native.c_str(), &info) != 0) {
        return errno == EACCES ? FolderState::NotReadable : FolderState::Missing;
    }
    if (!S_ISDIR(info.st_mode)) return FolderState::NotAFolder;
    if (::access(native.c_str(), R_OK | X_OK) != 0) return FolderState::NotReadable;
    return ::access(native.c_str(), W_OK) == 0 ? FolderState::Usable : FolderState::NotWritable;
}

bool DiskSpace(const std::string& path, u64& total, u64& available, SystemError& error) {
    struct statvfs info {};
    if (::statvfs(NativePath(path).c_str(), &info) != 0) {
        error = static_cast<SystemError>(errno);
        return false;
    }
    error = 0;
    total = u64{info.f_blocks} * info.f_frsize;
    available = u64{info.f_bavail} * info.f_frsize;
    return true;
}

}  // namespace Platform
