// Files that only their owner may read, and the lock that lets one process at a time serve such a file.
#pragma once

#include <memory>
#include <string>

#include "Platform/SystemError.h"

namespace Platform {

// Makes sure that `path` is a regular file that nobody but its owner can read or write: creates it empty, or takes the
// rights of others from one that exists. The path is taken by its exact spelling. False with the system error.
bool MakePrivateFile(const std::string& path, SystemError& error);

// Who besides its owner may read a file that holds a secret.
enum class FileReaders : u8 { Owner, Group };
// Puts `text` in place of whatever `path` held: written aside, brought to the disk and renamed, so that nobody ever
// meets half of it. The file gets its folder's group. The path is taken by its exact spelling. False with the system
// error.
bool ReplaceFile(const std::string& path, const std::string& text, FileReaders readers, SystemError& error);
// Gives a file the owner and the group of its folder, where this process may do so; root may. False with the system
// error, also when it was not allowed; true when nothing had to be changed.
bool GiveToFolderOwner(const std::string& path, SystemError& error);

// Held as long as the object lives; the system frees it when the process ends, however that happens.
class IFileLock {
public:
    virtual ~IFileLock() = default;
};

// Takes the one lock of `path`, which is created for its owner when missing. It keeps out nobody but others who ask for
// it here. Null with the system error, at once, when it cannot be had. Letting it go ends every record lock that this
// process has on the file, so a database must be closed first.
std::unique_ptr<IFileLock> TryLockFile(const std::string& path, SystemError& error);
// The error that tells of a lock held by another process.
SystemError FileLockedError();

// The whole text of a small file, or of standard input when `path` is "-". False with the system error; a text of more
// than `limit` bytes fails too, with FileTooLargeError(). Any kind of file: a pipe, as a shell's <(command), is read to
// its end, however long its writer takes. One that nobody has open for writing fails with NoWriterError() after
// WaitForWriterMilliseconds.
bool ReadWholeFile(const std::string& path, u64 limit, std::string& text, SystemError& error);
SystemError FileTooLargeError();
SystemError NoWriterError();
inline constexpr u32 WaitForWriterMilliseconds = 5'000;
// What to say of an error of ReadWholeFile().
std::string ReadErrorText(SystemError error);

}  // namespace Platform
