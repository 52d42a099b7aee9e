// A command line or a program that runs beside this process and gives bytes. Not on the simulated platform.
#pragma once

#include <memory>
#include <string>
#include <vector>

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
// The same for a program by its path with its arguments as they stand.
std::unique_ptr<IRunningCommand> StartProgram(const std::string& program, const std::vector<std::string>& arguments,
                                              SystemError& error);

// The folder that this process's own program lies in, without a closing separator; empty when it cannot be told.
std::string ProgramFolder();

// From now on this process may hold so much memory, beyond which allocations fail, and use so much processor time,
// beyond which the system ends it by the signal TimeLimitSignal(). It can't be taken back. False with the system error.
bool LimitThisProcess(u64 memoryBytes, u32 processorSeconds, SystemError& error);
i32 TimeLimitSignal();
// Whether a process that this signal has ended was at fault itself, as by a wrong address. Otherwise somebody else
// ended it, or the system did for want of memory.
bool IsFaultSignal(i32 signal);

}  // namespace Platform
