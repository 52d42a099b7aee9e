// orv-config serve: the daemon.
#pragma once

#include <string>

#include "Platform/Types.h"

namespace Orv {

struct ServeOptions {
    std::string database;
    std::string address = "127.0.0.1";
    u32 port = 0;  // 0: any free one
};

// Whether an address reaches this machine only.
bool IsLoopback(const std::string& address);

// Serves until the system says stop. The exit code: 0 after a stop, 1 when it could not start.
int Serve(const ServeOptions& options);

}  // namespace Orv
