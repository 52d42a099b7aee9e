// What orv-publish says.
#pragma once

#include <functional>
#include <string>

#include "Platform/SystemError.h"

namespace Orv {

enum PublishExit : i32 {
    PublishDone = 0,          // the source has ended, or stopped by the user
    PublishSourceFailed = 1,  // the source cannot be opened or read
    PublishBadUsage = 2,
    PublishCannotServe = 3,    // the pipe cannot be served under that name
    PublishCommandFailed = 4,  // the command did not end with exit code 0
};

// Takes one message: a sentence or more, without the program's name and the line end.
using TellFunction = std::function<void(const std::string& text)>;

// "12.345 s of sound"
std::string SoundLength(u64 bytes);
// `text` as one word of a shell's command line.
std::string ShellWord(const std::string& text);
// Why the pipe of that name cannot be served, and what to do. `folder` and `file` are where it was to stand.
std::string ServeFailure(const std::string& name, const std::string& folder, const std::string& file,
                         Platform::SystemError error);

}  // namespace Orv
