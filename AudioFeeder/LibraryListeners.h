// What the library tells the host about its connections.
#pragma once

#include "Platform/Types.h"

namespace Orv {

// Installs the library's four listeners. Before VXInitialize.
void InstallLibraryListeners();

// Both on the library's threads; 0, also when a standard exception had to be logged.

// A program is connected: logged when it is a Configuration service.
i32 OnVXConnect(const char* local, const char* remote, const char* application, u64 value1, u64 value2,
                const char* applicationType);
// A program is gone: when it is the one that the tables come from, they are forgotten and the host is told.
i32 OnVXDisconnect(const char* application, u64 value1, u64 value2);

}  // namespace Orv
