// What main() does.
#pragma once

#include "Platform/Types.h"

namespace Orv {

// Creates the application's ServiceHost, which registers itself. Called once, after the options have been read.
using MakeHost = void (*)(i32 argc, char** argv);

// The whole life of the process: the usage, or the data directory, the options, the host and its run. Returns the exit
// code: 0, also when the application could not start, and -3 after a standard exception, told on standard error. Want
// of memory ends the process from here on, see Platform/OutOfMemory.h. Platform::PrepareProcess() must have been
// called.
i32 ProcessEntry(i32 argc, char** argv, MakeHost make);

}  // namespace Orv
