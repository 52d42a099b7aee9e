// Tells the state of the service on a socket, when the settings file asks for it.
#pragma once

#include <string>

#include "Platform/LocalServer.h"

namespace Orv {

// Serves a path with a thread of its own, "status", while it lives. Whatever a client does, no pump and no
// configuration event ever waits for this thread.
class StatusServer {
public:
    // Throws std::system_error when there is no thread to give. A path that cannot be served is told to the log and
    // tried again.
    explicit StatusServer(const std::string& path);

private:
    Platform::LocalServer server_;
};

// The answer to an HTTP request: GET or HEAD of /status (JSON) and of /metrics (Prometheus); anything else is refused.
// False while the request is not complete, unless it is `whole`.
bool AnswerStatusRequest(const std::string& request, bool whole, std::string& answer);

}  // namespace Orv
