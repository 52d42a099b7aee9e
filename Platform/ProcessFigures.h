// What the system counts about this process, and what it lets it have.
#pragma once

#include "Platform/Types.h"

namespace Platform {

struct ProcessFigures {
    u64 id = 0;
    u64 threads = 0;
    u64 residentBytes = 0;
    u64 cpuMilliseconds = 0;  // of all threads since the start, those that have ended included
    u64 openFiles = 0;
    u64 openFilesLimit = 0;
};

// A figure that the system does not tell is 0. Reads the system's own files; any thread.
ProcessFigures ReadProcessFigures();

// Whether `count` more files, a few, could be open at one time. Opens and closes as many, so that meanwhile others may
// lack them, and asks nothing else: it is right where the system's own files are not to be read. Any thread.
bool CanOpenFiles(u32 count);

}  // namespace Platform
