// The system's memory pages, keeping them from being paged out, and the heap.
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

// From now on all threads allocate from one heap, in which what one of them gives back is there for any other.
// Otherwise threads have a few heaps between them, and what the maker of thousands of feeds has allocated for them
// stays behind in its own, unused, when their pumps have replaced it. For processes whose threads allocate now and then
// only: they wait for one another while they do. To be called first thing in main, before any thread exists.
void ShareOneHeap();

}  // namespace Platform
