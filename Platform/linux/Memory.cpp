#include "Platform/Memory.h"

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

namespace Platform {

u32 PageSize() {
    static const u32 size = static_cast<u32>(::sysconf(_SC_PAGESIZE));
    return size;
}

bool LockMemory(const void* data, u64 size) {
    return size != 0 && ::mlock(data, size) == 0;
}

void UnlockMemory(const void* data, u64 size) {
    if (size != 0) ::munlock(data, size);
}

void ShareOneHeap() {
    ::mallopt(M_ARENA_MAX, 1);
}

}  // namespace Platform
