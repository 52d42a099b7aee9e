// The socket by which a service manager is told how its service is. Inside Platform/linux only.
#pragma once

#include <string>

namespace Platform {

// Whether this process has been given such a socket in NOTIFY_SOCKET: a path, or "@" and an abstract name.
bool HasNotifySocket();
// Sends one message of "NAME=value" lines. A manager that does not take it within a second goes without. Any thread.
void NotifyServiceManager(const std::string& message);

}  // namespace Platform
