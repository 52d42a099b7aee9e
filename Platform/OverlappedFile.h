// Reads that are started, polled and given up without ever blocking their caller.
#pragma once

#include <memory>
#include <string>

#include "Platform/SystemError.h"

namespace Platform {

enum class ReadState : u8 {
    Done,       // the bytes are there; may be fewer than asked for when the file ends inside the range, never 0
    Pending,    // still under way; ask again with Poll()
    EndOfFile,  // the position lies at or behind the end of the file
    Failed,     // Error() tells why
};

// One read with its target memory. Shared between the caller and whoever carries the read out, so that a read that
// hangs keeps its buffer and its file while the caller goes on. The caller's side belongs to one thread at a time.
class OverlappedRead {
public:
    static constexpr u32 Capacity = 8192;

    virtual ~OverlappedRead() = default;
    // Target of the read; the bytes count once Poll() or StartRead() has answered Done, and stay until the next start.
    virtual const u8* Data() const = 0;
    // How far the read has come. Never blocks. Before the first start: EndOfFile.
    virtual ReadState Poll() = 0;
    // Bytes brought by a read that is Done.
    virtual u32 Bytes() const = 0;
    virtual SystemError Error() const = 0;
};

// A regular file open for such reads. Any thread, and any number of reads at once.
class IOverlappedFile {
public:
    virtual ~IOverlappedFile() = default;
    // A read record for this file, not started. Never null.
    virtual std::shared_ptr<OverlappedRead> MakeRead() = 0;
    // Starts `length` (1 to Capacity) bytes from `position`. The read must not be pending. Never blocks: what is in the
    // page cache may be Done at once, everything else is Pending. Dropping the last reference of the caller to a
    // pending read gives it up; nobody waits for its end.
    virtual ReadState StartRead(const std::shared_ptr<OverlappedRead>& read, u64 position, u32 length) = 0;
};

// Opens an existing regular file, found whatever its case; anything else is refused without waiting for it. Opening
// itself may wait for the disk. Null with the system error on failure. A pending read keeps the file open.
std::shared_ptr<IOverlappedFile> OpenOverlappedFile(const std::string& path, SystemError& error);

}  // namespace Platform
