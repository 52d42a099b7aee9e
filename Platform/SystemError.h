// The system's own error numbers and texts.
#pragma once

#include <string>

#include "Platform/Types.h"

namespace Platform {

// A system error number; 0 is success. Functions of this folder give it through an out parameter.
using SystemError = u32;

// The system's text for a number, without a line end; empty when the system has none.
std::string SystemErrorText(SystemError error);

}  // namespace Platform
