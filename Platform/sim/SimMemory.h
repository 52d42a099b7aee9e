// How much memory the processes of a simulated world may lock, and what they have locked.
#pragma once

#include <map>

#include "Platform/Types.h"

namespace Platform::Sim {

class SimMemory {
public:
    static constexpr u32 PageSize = 4096;
    static constexpr u64 NoLimit = 0xFFFFFFFFFFFFFFFF;

    // Bytes, in whole pages, that may be locked at a time from now on; what is locked stays. No limit at first.
    void SetLockLimit(u64 bytes) noexcept { limit_ = bytes; }
    // In whole pages.
    u64 LockedBytes() const;
    // Runs of bytes that are locked.
    u64 Locks() const { return locked_.size(); }

    // What Platform/Memory.h does. What another world has locked is not known here.
    bool Lock(const void* data, u64 size);
    void Unlock(const void* data);

private:
    u64 limit_ = NoLimit;
    std::map<const void*, u64> locked_;  // bytes in whole pages, by where they begin
};

}  // namespace Platform::Sim
