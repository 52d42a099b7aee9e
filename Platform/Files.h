// Plain files: one that is read at given positions, one that is written from its start, and the few operations on
// names. All of these may wait for the disk. Paths go through FindOnDisk() unless told otherwise.
#pragma once

#include <memory>
#include <string>

#include "Platform/SystemError.h"

namespace Platform {

// A regular file open for reading. One thread at a time.
class IReadFile {
public:
    virtual ~IReadFile() = default;
    // Length in bytes at the time of opening.
    virtual u64 Size() const = 0;
    // Copies up to `count` bytes from `position`. Returns the bytes copied: fewer than asked for only at the end of the
    // file as it is now, or at an error. A file that has shrunk meanwhile just gives less; nothing here can fault.
    virtual u64 ReadAt(u64 position, void* destination, u64 count) = 0;
};

// Opens an existing regular file. Anything else (a folder, a FIFO, a device, a socket) is refused at once, without
// waiting for it. Null with the system error on failure.
std::unique_ptr<IReadFile> OpenReadFile(const std::string& path, SystemError& error);

// A file being written from its start. One thread at a time.
class IWriteFile {
public:
    virtual ~IWriteFile() = default;
    // Appends to the file. False when the system took less; the rest is dropped, what it took stays.
    virtual bool Write(const void* data, u64 size) = 0;
    // Bytes written so far.
    virtual u64 Position() const = 0;
    // Cuts off what was written behind `position`, which is at most Position(); the next write goes on there.
    virtual void TakeBack(u64 position) = 0;
};

// Creates a file, or empties an existing regular one (a link is followed, anything else refused). The path is taken by
// its exact spelling; separators are told apart as everywhere. Null with the system error on failure.
std::unique_ptr<IWriteFile> CreateWriteFile(const std::string& path, SystemError& error);

// The following take their paths by exact spelling.
bool PathExists(const std::string& path);
// False with the system error; PathExistsError() tells the error that means "already there".
bool CreateFolder(const std::string& path, SystemError& error);
SystemError PathExistsError();
// Renames within one file system, never replacing an existing file. False on failure.
bool MoveFileTo(const std::string& from, const std::string& to);

}  // namespace Platform
