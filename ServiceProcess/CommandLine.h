// The options of the process. Several exist only to be accepted.
#pragma once

#include <string>

#include "Platform/Types.h"

namespace Orv {

struct CommandLineOptions {
    // Path of the common settings file, from the data directory when relative.
    std::string configFile = "./Bin/OrvPhoneSystem.ini";
    std::string pidFile;  // stored, never used
    bool daemon = false;  // only chooses the wording of a start-up line: nothing forks
    bool notify = false;  // only excludes `daemon`
};

// The process-wide record: the defaults until ApplyCommandLine() has run, which happens before any other thread exists.
const CommandLineOptions& ProcessOptions();

// Whether the arguments ask for the usage: exactly one, "-h" or "--help".
bool IsUsageRequest(i32 argc, char** argv);
void PrintUsage();

// Reads the options. An unknown argument, or an option whose value is missing, is passed over. Each settings file is
// told on standard error. Throws std::logic_error when both `daemon` and `notify` are set.
CommandLineOptions ParseCommandLine(i32 argc, char** argv);

// Parses, stores the process-wide record and writes the two start-up lines to standard error. 0; throws as above.
i32 ApplyCommandLine(i32 argc, char** argv);

}  // namespace Orv
