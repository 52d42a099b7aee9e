// A socket in the file system on which a process answers short questions of other programs of the same machine, and
// the asking side. Not for sound: see NamedPipe.h for that.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "Platform/SystemError.h"

namespace Platform {

struct LocalServerLimits {
    u32 requestBytes = 4096;  // what comes behind them is not read
    u32 milliseconds = 2000;  // that a client has from its coming until it has taken its answer
    u32 clients = 16;         // at once; one more takes the place of the oldest
};

// Called each time a client has sent something: `request` is all of it so far, and `whole` tells that no more will be
// read. False when there is more to come; otherwise, and always when `whole`, `answer` goes to the client, whose
// connection ends behind it. On the server's thread; whatever it waits for, all clients wait for.
using LocalAnswer = std::function<bool(const std::string& request, bool whole, std::string& answer)>;
// Told when the path has come to be served (0), and when it cannot be (why), once for each different outcome. A path
// that cannot be served is tried again each second. On the server's thread.
using LocalServerEvent = std::function<void(SystemError error)>;

// Serves one path on a thread of its own, from the construction to the destruction, which waits for the thread. Group
// and owner may connect (mode 0660). The folder is made when it is missing; a socket there that nobody serves any more
// is replaced, one that is served is left alone, as is anything that is no socket. No client holds up another one.
class LocalServer {
public:
    // Throws std::system_error when the system has no thread or descriptor to give.
    LocalServer(const std::string& path, const char* threadName, LocalAnswer answer, LocalServerEvent event,
                LocalServerLimits limits = {});
    ~LocalServer();
    LocalServer(const LocalServer&) = delete;
    LocalServer& operator=(const LocalServer&) = delete;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Sends `request` and reads the answer up to its end. False with the system error when that cannot be done within
// `milliseconds`, or when the answer is longer than `limit` bytes.
bool AskLocalServer(const std::string& path, const std::string& request, u32 milliseconds, u64 limit,
                    std::string& answer, SystemError& error);

}  // namespace Platform
