#include "Platform/Memory.h"

#include <string>

#include "Platform/sim/World.h"

namespace Platform {

u64 Sim::SimMemory::LockedBytes() const {
    u64 sum = 0;
    for (const auto& [data, bytes] : locked_) sum += bytes;
    return sum;
}

bool Sim::SimMemory::Lock(const void* data, u64 size) {
    if (data == nullptr || size == 0) return false;
    const u64 bytes = (size + PageSize - 1) / PageSize * PageSize;
    const u64 held = LockedBytes();
    if (held > limit_ || bytes > limit_ - held) return false;
    locked_[data] = bytes;
    return true;
}

void Sim::SimMemory::Unlock(const void* data) {
    locked_.erase(data);
}

u32 PageSize() {
    return Sim::SimMemory::PageSize;
}

bool LockMemory(const void* data, u64 size) {
    if (Sim::Failures().Fails(Sim::Operation::LockMemory, std::to_string(size))) return false;
    return Sim::CurrentWorld().memory.Lock(data, size);
}

void UnlockMemory(const void* data, u64) {
    Sim::CurrentWorld().memory.Unlock(data);
}

// The heap is that of the program around the simulation.
void ShareOneHeap() {}

}  // namespace Platform
