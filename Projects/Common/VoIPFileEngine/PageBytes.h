// Memory of whole pages from the system's allocator, so that what is locked shares no page with anything else.
#pragma once

#include <cstdlib>
#include <memory>

#include "Platform/Memory.h"

namespace Orv {

struct FreeBytes {
    void operator()(u8* bytes) const noexcept { std::free(bytes); }
};
using PageBytes = std::unique_ptr<u8[], FreeBytes>;

// At least `size` bytes, not set to anything. Null when there is no memory.
inline PageBytes AllocatePages(u64 size) {
    const u64 page = Platform::PageSize();
    const u64 rounded = size / page * page + (size % page != 0 || size == 0 ? page : 0);
    return rounded < size ? nullptr : PageBytes(static_cast<u8*>(std::aligned_alloc(page, rounded)));
}

}  // namespace Orv
