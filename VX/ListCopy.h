// Lists as a link sees them: how large they are, and how one becomes another program's own.
#pragma once

#include "VX/Link.h"

namespace VX {

// Memory that a list takes, with everything nested in it. It must be nested MaxNesting deep at most.
u64 ParamListBytes(HVXPARAMLIST list);

// A list of its own with the same parameters in the same order, nested ones copied too. False when it is nested more
// than MaxNesting deep or carries more than MaxMessageBytes; a null list is copied as an empty one.
bool CopyParamList(HVXPARAMLIST list, ParamListHolder& copy);

}  // namespace VX
