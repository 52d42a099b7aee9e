#include "Platform/NewFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "Platform/Files.h"
#include "Platform/linux/Descriptor.h"

namespace Platform {
namespace {

constexpr mode_t kFileMode = 0644;
constexpr mode_t kFolderMode = 0755;

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool Fail(SystemError& error) {
    error = static_cast<SystemError>(errno);
    return false;
}

class NewFile final : public INewFile {
public:
    explicit NewFile(Descriptor file) : file_(std::move(file)) {}

    bool Write(const void* data, u64 size, SystemError& error) override {
        error = 0;
        for (u64 done = 0; done < size;) {
            const ssize_t count = ::write(file_.Get(), static_cast<const u8*>(data) + done, size - done);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) return Fail(error);
            done += static_cast<u64>(count);
        }
        return true;
    }

    bool Finish(SystemError& error) override {
        error = 0;
        if (::fsync(file_.Get()) != 0) return Fail(error);
        file_.Close();
        return true;
    }

private:
    Descriptor file_;
};

}  // namespace

std::unique_ptr<INewFile> CreateNewFile(const std::string& path, SystemError& error) {
    error = 0;
    Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
    struct stat folder {};
    if (!file.IsOpen() || ::stat(FolderOf(path).c_str(), &folder) != 0) {
        Fail(error);
        return nullptr;
    }
    // The group is a convenience: everybody may read the file. The mode is set by itself, past the user's mask.
    if (::fchown(file.Get(), static_cast<uid_t>(-1), folder.st_gid) != 0) errno = 0;
    if (::fchmod(file.Get(), kFileMode) != 0) {
        Fail(error);
        return nullptr;
    }
    return std::make_unique<NewFile>(std::move(file));
}

bool NameFile(const std::string& from, const std::string& to, bool replace, SystemError& error) {
    error = 0;
    if (replace) {
        if (::rename(from.c_str(), to.c_str()) != 0) return Fail(error);
    } else {
        errno = 0;
        if (!MoveFileTo(from, to)) {
            error = errno == 0 ? PathExistsError() : static_cast<SystemError>(errno);
            return false;
        }
    }
    const Descriptor folder(::open(FolderOf(to).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.IsOpen()) ::fsync(folder.Get());  // the new name; the file is right either way
    return true;
}

bool RemoveFile(const std::string& path, SystemError& error) {
    error = 0;
    return ::unlink(path.c_str()) == 0 || Fail(error);
}

bool MakeOpenFolder(const std::string& path, SystemError& error) {
    error = 0;
    struct stat status {};
    if (::mkdir(path.c_str(), kFolderMode) == 0) {
        if (::chmod(path.c_str(), kFolderMode) != 0) return Fail(error);
        return true;
    }
    if (errno != EEXIST) return Fail(error);
    if (::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return true;
    error = ENOTDIR;
    return false;
}

}  // namespace Platform
