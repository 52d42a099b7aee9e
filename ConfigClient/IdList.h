// Row ids as lists carry them: packed signed 32-bit integers in a binary value.
#pragma once

#include <vector>

#include "VX/ParamList.h"

namespace ConfigConnection {

// The ids of a binary payload, which begins with its length in bytes. None for null.
std::vector<i32> ReadIds(const u8* payload);
// Those of a key; none when the key is absent or no binary value.
std::vector<i32> ReadIds(const VX::ParamListHolder& list, const char* key);

}  // namespace ConfigConnection
