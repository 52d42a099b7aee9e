#include "Projects/Common/VoIPFileEngine/IMemoryFile.h"

#include <algorithm>
#include <cstring>

namespace Orv {

u64 IMemoryFile::GetData(const u8** out, u64 position, u64 count) {
    *out = nullptr;
    if (data == nullptr || !Bound(position, count)) return 0;
    *out = data + position;
    return count;
}

u64 IMemoryFile::Read(void* destination, u64 position, u64 count) {
    if (data == nullptr || !Bound(position, count)) return 0;
    std::memcpy(destination, data + position, count);
    return count;
}

// The sum is tested by way of differences, which cannot wrap.
bool IMemoryFile::Bound(u64& position, u64& count) const {
    if (!IsValid() || offset > size || position > size - offset) return false;
    position += offset;
    count = std::min(count, size - position);
    return true;
}

}  // namespace Orv
