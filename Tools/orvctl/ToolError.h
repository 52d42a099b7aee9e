// How orvctl ends.
#pragma once

#include <stdexcept>
#include <string>

namespace Orv {

enum class ExitCode : int {
    Done = 0,
    Refused = 1,         // by the service, which tells why
    BadCommandLine = 2,  // or a settings file, a password file or a file of rows that cannot be used
    CannotConnect = 3,
    WrongCredentials = 4,
    NotFound = 5,        // the row or user does not exist
    NotAllowed = 6,      // the user's role does not allow it
    ConnectionLost = 7,  // in the middle; a change may have been made
    ServiceFailed = 8,   // the service could not write; nothing was changed
    FileRefused = 9,     // a sound file could not be imported, or the import was stopped
};

// Ends the command with its code and the text on standard error.
class ToolError : public std::runtime_error {
public:
    ToolError(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
    ExitCode Code() const { return code_; }

private:
    ExitCode code_;
};

// Each line of the text on standard error, and an object of both on standard output when JSON is wanted.
void TellError(const std::string& text, ExitCode code, bool json);

}  // namespace Orv
