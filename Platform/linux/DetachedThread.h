// Threads that nobody joins, for work that may never return. Inside Platform/linux only.
#pragma once

#include <functional>

namespace Platform {

// As the constructor of Thread, but the new thread belongs to nobody: what it uses must outlive it.
void StartDetachedThread(const char* name, std::function<void()> body);

}  // namespace Platform
