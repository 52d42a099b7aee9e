// The person's terminal, for the tools.
#pragma once

#include <string>

#include "Platform/Types.h"

namespace Platform {

enum class StandardStream : u8 { Input, Output, Error };

// Whether the stream is a terminal.
bool IsTerminal(StandardStream stream);
// Columns and rows of the terminal on standard error or output; 80 and 24 when there is none.
u32 TerminalWidth();
u32 TerminalHeight();
// Whether the stream is a terminal that is to be coloured: not one that TERM names "dumb" or not at all, and
// not with NO_COLOR in the environment.
bool ShowsColours(StandardStream stream);
// Asks on the terminal and reads one line without echo. Blocks. False when there is no terminal or no line. A request
// to end or suspend the process (Ctrl-C, Ctrl-\, Ctrl-Z, a hang-up, SIGTERM) does so when the echo is back; it may come
// to any thread, and PrepareProcess() keeps none from here. One call at a time.
bool ReadPassword(const std::string& prompt, std::string& password);

}  // namespace Platform
