// Where a pipe name lies in the file system, and what both sides of a pipe share. Inside Platform/linux only.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

#include "Platform/NamedPipe.h"

namespace Platform {

// The socket that stands for one pipe name.
struct PipeAddress {
    std::string folder;
    std::string path;  // the folder included
    sockaddr_un address;

    // Of the name in the folder as it is set now. False with EINVAL for an empty name, and with ENAMETOOLONG for one
    // that does not fit into a socket's address together with its folder.
    static bool Make(const std::string& name, PipeAddress& address, SystemError& error);
    // Of a socket that is named by its path, within the same bounds.
    static bool OfPath(const std::string& path, PipeAddress& address, SystemError& error);

    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&address); }

private:
    bool Fill(SystemError& error);
};

// The next number for a connection, above 0. Any thread.
PipeId NextPipeId();

}  // namespace Platform
