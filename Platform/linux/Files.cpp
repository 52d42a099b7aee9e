#include "Platform/Files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <utility>

#include "Platform/Path.h"
#include "Platform/ThreadWait.h"
#include "Platform/linux/NativePath.h"
#include "Platform/linux/RegularFile.h"

namespace Platform {
namespace {

constexpr mode_t kNewFolderMode = 0750;
constexpr u64 kMostPerCall = 0x7FFFF000;  // what one system call moves at most

class ReadFile final : public IReadFile {
public:
    explicit ReadFile(RegularFile file) : file_(std::move(file)) {}

    u64 Size() const override { return file_.size; }

    u64 ReadAt(u64 position, void* destination, u64 count) override {
        const ThreadWaitScope waiting(ThreadWait::Disk);
        u64 done = 0;
        while (done < count) {
            if (position > static_cast<u64>(std::numeric_limits<off_t>::max()) - done) break;
            const ssize_t taken = ::pread(file_.descriptor.Get(), static_cast<u8*>(destination) + done,
                                          std::min(count - done, kMostPerCall), static_cast<off_t>(position + done));
            if (taken < 0 && errno == EINTR) continue;
            if (taken <= 0) break;
            done += static_cast<u64>(taken);
        }
        return done;
    }

private:
    const RegularFile file_;
};

class WriteFile final : public IWriteFile {
public:
    explicit WriteFile(Descriptor file) : file_(std::move(file)) {}

    bool Write(const void* data, u64 size) override {
        const ThreadWaitScope waiting(ThreadWait::Disk);
        u64 done = 0;
        while (done < size) {
            const ssize_t taken = ::pwrite(file_.Get(), static_cast<const u8*>(data) + done,
                                           std::min(size - done, kMostPerCall), static_cast<off_t>(position_ + done));
            if (taken < 0 && errno == EINTR) continue;
            if (taken <= 0) break;
            done += static_cast<u64>(taken);
        }
        position_ += done;
        return done == size;
    }

    u64 Position() const override { return position_; }

    void TakeBack(u64 position) override {
        const ThreadWaitScope waiting(ThreadWait::Disk);
        position_ = position;
        // Should it fail, the next writes go over what is left there, as far as they reach.
        while (::ftruncate(file_.Get(), static_cast<off_t>(position)) != 0 && errno == EINTR) {
        }
    }

private:
    const Descriptor file_;
    u64 position_ = 0;
};

// For file systems without a rename that never replaces. A second name and the end of the first one do the same for
// files; what can have no second name is looked for and then renamed, which leaves a gap of a moment.
bool MoveWithoutReplacing(const std::string& from, const std::string& to) {
    if (::link(from.c_str(), to.c_str()) == 0) return ::unlink(from.c_str()) == 0;
    if (errno == EEXIST) return false;
    struct stat info {};
    if (::lstat(to.c_str(), &info) == 0 || errno != ENOENT) return false;
    return ::rename(from.c_str(), to.c_str()) == 0;
}

}  // namespace

std::unique_ptr<IReadFile> OpenReadFile(const std::string& path, SystemError& error) {
    RegularFile file;
    if (!OpenRegularFile(FindOnDisk(path), O_RDONLY, file, error)) return nullptr;
    return std::make_unique<ReadFile>(std::move(file));
}

std::unique_ptr<IWriteFile> CreateWriteFile(const std::string& path, SystemError& error) {
    const ThreadWaitScope waiting(ThreadWait::Disk);
    RegularFile file;
    if (!OpenRegularFile(NativePath(path), O_WRONLY | O_CREAT, file, error)) return nullptr;
    // Emptied only now that it is known to be a plain file.
    if (::ftruncate(file.descriptor.Get(), 0) != 0) {
        error = static_cast<SystemError>(errno);
        return nullptr;
    }
    return std::make_unique<WriteFile>(std::move(file.descriptor));
}

bool PathExists(const std::string& path) {
    const ThreadWaitScope waiting(ThreadWait::Disk);
    struct stat info {};
    return CanBeNamed(path) && ::stat(NativePath(path).c_str(), &info) == 0;
}

bool CreateFolder(const std::string& path, SystemError& error) {
    const ThreadWaitScope waiting(ThreadWait::Disk);
    error = ENOENT;
    if (!CanBeNamed(path)) return false;
    error = ::mkdir(NativePath(path).c_str(), kNewFolderMode) == 0 ? 0 : static_cast<SystemError>(errno);
    return error == 0;
}

SystemError PathExistsError() {
    return EEXIST;
}

bool MoveFileTo(const std::string& from, const std::string& to) {
    const ThreadWaitScope waiting(ThreadWait::Disk);
    if (!CanBeNamed(from) || !CanBeNamed(to)) return false;
    const std::string source = NativePath(from);
    const std::string target = NativePath(to);
    if (::renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    return MoveWithoutReplacing(source, target);
}

}  // namespace Platform
