// The listening socket behind a pipe name. Inside Platform/linux only.
#pragma once

#include <memory>
#include <string>

#include "Platform/SystemError.h"
#include "Platform/linux/Descriptor.h"
#include "Platform/linux/PipeAddress.h"

namespace Platform {

// Holds a name from Bind() to Close(). One thread at a time.
class PipeListener {
public:
    // Takes the name: makes the folder when it is missing and replaces a socket that nobody serves any more. Null with
    // the system error otherwise: EADDRINUSE when somebody serves it, EEXIST when something else than a socket stands
    // there, EAGAIN when another process is at this very step.
    static std::shared_ptr<PipeListener> Bind(const std::string& name, SystemError& error);
    // The same for a socket that is no pipe.
    static std::shared_ptr<PipeListener> BindAt(const PipeAddress& address, SystemError& error);

    ~PipeListener() { Close(); }
    PipeListener(const PipeListener&) = delete;
    PipeListener& operator=(const PipeListener&) = delete;

    // -1 once it is closed.
    int Get() const { return socket_.Get(); }
    // Gives the name up. The file is removed only while it is the one that was bound.
    void Close();

private:
    PipeListener() = default;
    bool BindSocket(const Descriptor& folder, SystemError& error);
    bool ClearStaleSocket(SystemError& error) const;
    bool AdoptFile(const Descriptor& folder, SystemError& error);

    PipeAddress address_;
    Descriptor socket_;
    // The file that was bound. The socket keeps its inode, so its number is not used again before Close().
    u64 device_ = 0;
    u64 inode_ = 0;
};

// Whether a socket is bound to the address, without disturbing who serves it. False with an error when that cannot be
// told.
bool IsServed(const PipeAddress& address, SystemError& error);

}  // namespace Platform
