// Parameter lists as the bytes of the link: the ParamList of Link.proto.
#pragma once

#include <string>

#include "VX/Link.h"

namespace VX {

// What one message may hold, nested lists and their parameters included.
inline constexpr u32 MaxParameters = 4u << 20;

// False when the list passes MaxMessageBytes or MaxNesting. A null list is encoded as an empty one.
bool EncodeParamList(HVXPARAMLIST list, std::string& bytes);

// False when the bytes are no list or pass a limit; then `list` is left alone. Safe for any bytes.
bool DecodeParamList(const std::string& bytes, ParamListHolder& list, u32 maxParameters = MaxParameters);

}  // namespace VX
