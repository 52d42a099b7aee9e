#include "Projects/Common/VoIPFileEngine/ILoopBuffer.h"

#include <algorithm>

namespace Orv {
namespace {

u8 Load(u8& byte) noexcept {
    return std::atomic_ref<u8>(byte).load(std::memory_order_relaxed);
}

void Store(u8& byte, u8 value) noexcept {
    std::atomic_ref<u8>(byte).store(value, std::memory_order_relaxed);
}

}  // namespace

void ILoopBuffer::Append(const u8* bytes, u64 count) noexcept {
    static_cast<void>(returned.load(std::memory_order_acquire));
    while (count != 0) {
        const u64 end = written.load(std::memory_order_relaxed);
        const u64 offset = end % Size;
        const u64 piece = std::min(count, Size - offset);
        for (u64 i = 0; i < piece; ++i) Store(data[offset + i], bytes[i]);
        written.store(end + piece, std::memory_order_release);
        bytes += piece;
        count -= piece;
    }
}

void ILoopBuffer::Reset() noexcept {
    static_cast<void>(returned.load(std::memory_order_acquire));
    written.store(0, std::memory_order_release);
    for (u8& byte : data) Store(byte, 0);
    // Once more, so that who reads it from here on has the zeros as well.
    written.store(0, std::memory_order_release);
}

void ILoopBuffer::CopyOut(u64 position, u8* out, u32 count) noexcept {
    for (u32 i = 0; i < count; ++i) out[i] = Load(data[(position + i) % Size]);
}

}  // namespace Orv
