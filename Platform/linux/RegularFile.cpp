#include "Platform/linux/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "Platform/ThreadWait.h"
#include "Platform/linux/NativePath.h"

namespace Platform {
namespace {

constexpr mode_t kNewFileMode = 0640;

SystemError WrongKind(mode_t mode) {
    if (S_ISREG(mode)) return 0;
    return S_ISDIR(mode) ? EISDIR : EINVAL;
}

}  // namespace

bool OpenRegularFile(const std::string& path, int flags, RegularFile& file, SystemError& error) {
    const ThreadWaitScope waiting(ThreadWait::Disk);
    error = ENOENT;
    if (!CanBeNamed(path)) return false;
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0) {
        error = WrongKind(info.st_mode);
        if (error != 0) return false;
    } else if (errno != ENOENT || (flags & O_CREAT) == 0) {
        error = static_cast<SystemError>(errno);
        return false;
    }

    // O_NONBLOCK and the second look are for a name that changes its meaning between the two calls.
    int fd;
    do {
        fd = ::open(path.c_str(), flags | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, kNewFileMode);
    } while (fd < 0 && errno == EINTR);
    Descriptor descriptor(fd);
    if (fd < 0 || ::fstat(fd, &info) != 0) {
        error = static_cast<SystemError>(errno);
        return false;
    }
    error = WrongKind(info.st_mode);
    if (error != 0) return false;

    file.descriptor = std::move(descriptor);
    file.size = static_cast<u64>(info.st_size);
    file.device = info.st_dev;
    return true;
}

}  // namespace Platform
