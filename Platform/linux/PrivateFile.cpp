#include "Platform/PrivateFile.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "Platform/linux/Descriptor.h"

namespace Platform {
namespace {

class FileLock : public IFileLock {
public:
    explicit FileLock(int fd) : descriptor_(fd) {}
    int Get() const { return descriptor_.Get(); }

private:
    Descriptor descriptor_;
};

SystemError LastError() {
    return static_cast<SystemError>(errno);
}

}  // namespace

bool MakePrivateFile(const std::string& path, SystemError& error) {
    error = 0;
    // One that exists is never opened here: closing it would take away the record locks that others in this process
    // hold on it.
    const Descriptor made(::open(path.c_str(), O_RDONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (made.Get() >= 0) return true;
    struct stat status {};
    if (errno != EEXIST || ::stat(path.c_str(), &status) != 0) {
        error = LastError();
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        error = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return false;
    }
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0 && ::chmod(path.c_str(), status.st_mode & S_IRWXU) != 0) {
        error = LastError();
        return false;
    }
    return true;
}

std::unique_ptr<IFileLock> TryLockFile(const std::string& path, SystemError& error) {
    error = 0;
    auto lock =
        std::make_unique<FileLock>(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, S_IRUSR | S_IWUSR));
    if (lock->Get() < 0 || ::flock(lock->Get(), LOCK_EX | LOCK_NB) != 0) {
        error = LastError();
        return nullptr;
    }
    return lock;
}

SystemError FileLockedError() {
    return EWOULDBLOCK;
}

bool ReadWholeFile(const std::string& path, u64 limit, std::string& text, SystemError& error) {
    text.clear();
    error = 0;
    const bool standardInput = path == "-";
    // Without O_NONBLOCK a FIFO is not even opened before its writer comes.
    const Descriptor file(standardInput ? ::dup(STDIN_FILENO)
                                        : ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (file.Get() < 0) {
        error = LastError();
        return false;
    }
    // A read of a FIFO that has no writer yet is its end like any other; only poll() waits for the writer, and does not
    // tell one that is silent from none.
    bool hasWriter = standardInput;
    char buffer[16384];
    for (;;) {
        pollfd state{file.Get(), POLLIN, 0};
        const int ready = ::poll(&state, 1, hasWriter ? -1 : static_cast<int>(WaitForWriterMilliseconds));
        if (ready < 0 && errno == EINTR) continue;
        const ssize_t count = ::read(file.Get(), buffer, sizeof(buffer));
        if (count < 0) {
            if (errno == EINTR) continue;
            if (errno != EAGAIN) {
                error = LastError();
                return false;
            }
        } else if (count == 0) {
            if (ready != 0) return true;
            error = NoWriterError();
            return false;
        }
        hasWriter = true;
        if (count > 0) text.append(buffer, static_cast<std::size_t>(count));
        if (text.size() > limit) {
            error = FileTooLargeError();
            return false;
        }
    }
}

SystemError NoWriterError() {
    return EPIPE;
}

std::string ReadErrorText(SystemError error) {
    if (error != NoWriterError()) return SystemErrorText(error);
    return "it is a pipe, and nobody has opened it for writing within " +
           std::to_string(WaitForWriterMilliseconds / 1000) + " s";
}

SystemError FileTooLargeError() {
    return EFBIG;
}

}  // namespace Platform
