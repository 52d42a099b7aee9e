// Looking at what a service depends on, without touching it: for the tools that tell people what is wrong.
#pragma once

#include <string>

#include "Platform/SystemError.h"

namespace Platform {

enum class SocketState : u8 {
    Absent,
    Served,
    Stale,        // a socket that nobody serves any more
    NotASocket,   // something else stands in its place
    Unreachable,  // it cannot be told: see the error
};

// Whether somebody serves the pipe of that name, in the pipe folder of this process. Nobody sees a client of it.
SocketState ProbePipe(const std::string& name, SystemError& error);
// The same for a socket by its path.
SocketState ProbeSocket(const std::string& path, SystemError& error);

enum class FolderState : u8 { Missing, NotAFolder, NotReadable, NotWritable, Usable };

// What this process may do in a folder: Usable is to list and to make files. The path is taken by its exact spelling.
FolderState ProbeFolder(const std::string& path);

// Bytes of the file system on which `path` lies, and those that an unprivileged process may still take. False with the
// system error. May wait for the disk.
bool DiskSpace(const std::string& path, u64& total, u64& available, SystemError& error);

}  // namespace Platform
