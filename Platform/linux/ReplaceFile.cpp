#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "Platform/PrivateFile.h"
#include "Platform/linux/Descriptor.h"

namespace Platform {
namespace {

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool WriteAll(int file, const std::string& text) {
    for (std::size_t written = 0; written < text.size();) {
        const ssize_t count = ::write(file, text.data() + written, text.size() - written);
        if (count < 0 && errno != EINTR) return false;
        if (count > 0) written += static_cast<std::size_t>(count);
    }
    return true;
}

// The whole file as it is to be, under its temporary name. errno tells what failed.
bool WriteAside(const std::string& path, const std::string& text, gid_t group, FileReaders readers) {
    const Descriptor file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
    if (!file.IsOpen()) return false;
    struct stat status {};
    if (::fstat(file.Get(), &status) != 0) return false;
    // The group first: the file must at no moment be readable for another one.
    if (status.st_gid != group && ::fchown(file.Get(), static_cast<uid_t>(-1), group) != 0) return false;
    if (readers == FileReaders::Group && ::fchmod(file.Get(), S_IRUSR | S_IWUSR | S_IRGRP) != 0) return false;
    return WriteAll(file.Get(), text) && ::fsync(file.Get()) == 0;
}

}  // namespace

bool ReplaceFile(const std::string& path, const std::string& text, FileReaders readers, SystemError& error) {
    error = 0;
    struct stat folder {};
    const std::string aside = path + "." + std::to_string(::getpid()) + ".new";
    bool done = ::stat(FolderOf(path).c_str(), &folder) == 0 && WriteAside(aside, text, folder.st_gid, readers) &&
                ::rename(aside.c_str(), path.c_str()) == 0;
    if (!done) {
        error = static_cast<SystemError>(errno);
        ::unlink(aside.c_str());
        return false;
    }
    const Descriptor opened(::open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.IsOpen()) ::fsync(opened.Get());  // the new name; the file is right either way
    return true;
}

bool GiveToFolderOwner(const std::string& path, SystemError& error) {
    error = 0;
    struct stat folder {};
    struct stat file {};
    if (::stat(FolderOf(path).c_str(), &folder) == 0 && ::lstat(path.c_str(), &file) == 0) {
        if (file.st_uid == folder.st_uid && file.st_gid == folder.st_gid) return true;
        if (::lchown(path.c_str(), folder.st_uid, folder.st_gid) == 0) return true;
    }
    error = static_cast<SystemError>(errno);
    return false;
}

}  // namespace Platform
