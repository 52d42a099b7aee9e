// The person's terminal, for the tools.
#pragma once

#include <string>

#include "Platform/Types.h"

namespace Platform {

enum class StandardStream : u8 { Input, Output, Error };

// Whether the stream is a terminal.
bool IsTerminal(StandardStream stream);
// Columns of the terminal on standard error or output; 80 when there is none.
u32 TerminalWidth();
// Asks on the terminal and reads one line without echo. False when there is no terminal or no line.
bool ReadPassword(const std::string& prompt, std::string& password);

}  // namespace Platform
