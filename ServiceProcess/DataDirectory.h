// The folder that the process works in, so that relative paths mean the same wherever it was started.
#pragma once

#include <string>

namespace Orv {

// The machine's data folder of services, and "\Orv" behind it with that backslash.
std::string GetDataDirectory();

// Makes it the working directory. False, with a line on standard error, when that fails.
bool EnterDataDirectory();

}  // namespace Orv
