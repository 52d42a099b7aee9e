#include "ConfigClient/IdList.h"

namespace ConfigConnection {

std::vector<i32> ReadIds(const u8* payload) {
    std::vector<i32> ids;
    if (payload == nullptr) return ids;
    const u32 count = static_cast<u32>(VXReadInt32(payload)) / 4;
    ids.reserve(count);
    for (u32 index = 0; index < count; ++index) ids.push_back(VXReadInt32(payload + 4 + std::size_t{index} * 4));
    return ids;
}

std::vector<i32> ReadIds(const VX::ParamListHolder& list, const char* key) {
    return ReadIds(VXGetBinaryValue(list.Get(), key));
}

}  // namespace ConfigConnection
