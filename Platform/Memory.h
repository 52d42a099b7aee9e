// The system's memory pages, and keeping them from being paged out.
#pragma once

#include "Platform/Types.h"

namespace Platform {

// In bytes, a power of two. Constant.
u32 PageSize();

// Keeps the pages that hold the `size` bytes at `data` in physical memory, reading them in first if need be. False when
// the system refuses, usually because the process has reached its limit, and for no bytes at all; nothing is locked
// then. Locks are not counted: one unlock undoes any number of locks, and locks of two objects on one page are one, so
// memory that is locked should begin on a page of its own. Any thread; may wait for the disk.
bool LockMemory(const void* data, u64 size);
// Takes the lock of those pages back. Nothing happens if they are not locked. Any thread.
void UnlockMemory(const void* data, u64 size);

}  // namespace Platform
