// The files and folders of a simulated world, and the faults of its disk.
//
// Paths are taken as everywhere in Platform/: both separators, relative ones from the working directory. What exists is
// found whatever its case (exact spelling first), what is added keeps its spelling. Operations on something that does
// not exist throw std::invalid_argument with the path: they are for tests, which know what they have put there. Files
// that are open when something is removed, replaced or moved keep what they had, as on a POSIX disk.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/SystemError.h"
#include "Platform/Types.h"

namespace Platform::Sim {

enum class FileKind : u8 { Regular, Folder, Fifo, Device, Socket };

// The order in which a folder search gives the entries.
enum class SearchOrder : u8 { Insertion, Reversed, ByName };

// All but the "alive" ones only rise.
struct FileCounters {
    u64 opens = 0;         // attempts to open a file for reading or writing
    u64 openFailures = 0;  // those of them that failed
    u64 reads = 0;         // started or blocking reads
    u64 bytesRead = 0;
    u64 bytesWritten = 0;
    u64 searches = 0;
    u64 filesAlive = 0;  // open files: for reading, overlapped or for writing
    u64 readRecordsAlive = 0;
    u64 searchesAlive = 0;
};

class SimFiles {
public:
    SimFiles();
    ~SimFiles();
    SimFiles(const SimFiles&) = delete;
    SimFiles& operator=(const SimFiles&) = delete;

    // Contents. A new world has "/", "/tmp", "/run" and "/var/lib"; folders on the way to something added are made.
    // Adding what exists (by its exact spelling) gives a regular file new contents in place and throws for the rest.
    void AddFile(const std::string& path, std::string_view bytes);
    void AddFile(const std::string& path, const std::vector<u8>& bytes);
    void AddFolder(const std::string& path);  // nothing happens if it exists
    void AddSpecial(const std::string& path, FileKind kind);
    void Remove(const std::string& path);  // a folder with all that is in it
    void Rename(const std::string& from, const std::string& to);
    // Cuts an existing file, or extends it with zeros; open files see it.
    void Truncate(const std::string& path, u64 size);
    // A new file in the place and search position of the old one; open files keep the old one.
    void Replace(const std::string& path, std::string_view bytes);

    bool Exists(const std::string& path) const;
    FileKind KindOf(const std::string& path) const;
    // The bytes of a file, written ones included.
    std::string ReadBack(const std::string& path) const;
    // The names in a folder, in insertion order.
    std::vector<std::string> List(const std::string& path) const;

    void SetWorkingDirectory(const std::string& path);  // must exist
    std::string WorkingDirectory() const;               // "/" at first
    void SetProgramDataFolder(const std::string& path);
    std::string ProgramDataFolder() const;  // "/var/lib" at first
    void SetSearchOrder(SearchOrder order);

    // Faults. They belong to a path (case ignored), whether something is there or not, and hold for open files as well.
    // The next `times` operations that open, search, create or move the path fail with `error` (0: no longer).
    static constexpr u32 Always = 0xFFFFFFFF;
    void FailOpens(const std::string& path, SystemError error, u32 times = Always);
    // The same as FailOpens(path, EACCES).
    void MakeUnreadable(const std::string& path);
    // Opening takes so long; the caller waits.
    void DelayOpens(const std::string& path, u32 milliseconds);
    // A read takes so long from its start: an overlapped one is Pending, a plain one waits. 0: Done at once.
    void DelayReads(const std::string& path, u32 milliseconds);
    // The same for each path without a delay of its own.
    void DelayAllReads(u32 milliseconds);
    // While set, reads under way and new ones do not end: overlapped ones stay Pending, plain ones wait.
    void HangReads(const std::string& path, bool hang);
    // Reads that touch a byte from `first` to `last` fail with `error` (0: no longer).
    static constexpr u64 End = 0xFFFFFFFFFFFFFFFF;
    void FailReads(const std::string& path, SystemError error, u64 first = 0, u64 last = End);
    // Bytes that files of this world still take; a write beyond takes what fits and fails.
    void SetFreeSpace(u64 bytes);
    // Takes back every fault.
    void ClearFaults();

    // Called after each write to a file with its name (without the folder) and what it took, on the writer's thread.
    // Must not block, and not touch this world's files.
    void SetWriteHook(std::function<void(const std::string& name, std::string_view bytes)> hook);

    FileCounters Counters() const;

    struct Impl;
    Impl& Internals() noexcept { return *impl_; }

private:
    std::shared_ptr<Impl> impl_;
};

}  // namespace Platform::Sim
