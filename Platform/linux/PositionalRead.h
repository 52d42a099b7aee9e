// The two ways of reading a file at a position, behind a seam: a test makes them fail, hang or know no cache. Inside
// Platform/linux only.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace Platform {

// Both answer as pread() does.
struct ReadCalls {
    // What the page cache has; -1 with EAGAIN when that is nothing, with EOPNOTSUPP on file systems that cannot tell.
    ssize_t (*fromCache)(int fd, void* destination, std::size_t count, off_t position);
    // Waits for the disk.
    ssize_t (*fromDisk)(int fd, void* destination, std::size_t count, off_t position);
};

const ReadCalls& CurrentReadCalls();
// Null brings the system's own back. Any thread; reads under way end with the calls they began with.
void SetReadCalls(const ReadCalls* calls);

}  // namespace Platform
