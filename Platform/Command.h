// A command line that runs beside this process and gives bytes. Not on the simulated platform.
#pragma once

#include <memory>
#include <string>

#include "Platform/InputStream.h"

namespace Platform {

struct CommandEnd {
    i32 exitCode;  // -1 when a signal ended it
    i32 signal;    // 0 when none did
};

// A command and all that it has started, as one group. Destroying it asks what is left of the group to end, gives the
// command two seconds for it, and then ends it. One thread at a time.
class IRunningCommand {
public:
    virtual ~IRunningCommand() = default;
    // What it writes to its standard output. Lives as long as this object.
    virtual IInputStream& Output() = 0;
    // Whether the command itself has ended, and how. Never blocks.
    virtual bool Ended(CommandEnd& end) = 0;
};

// Runs `command` by the system's shell, with an empty standard input and with this process's standard error. Null with
// the system error when it cannot be started; a command that the shell does not find ends with exit code 127.
std::unique_ptr<IRunningCommand> StartCommand(const std::string& command, SystemError& error);

}  // namespace Platform
