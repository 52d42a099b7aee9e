#include "ConfigService/PasswordInput.h"

#include "ConfigService/Credentials.h"
#include "Platform/PrivateFile.h"
#include "Platform/Terminal.h"

namespace Orv {
namespace {

constexpr u64 kLargestFile = 65536;

}  // namespace

bool ObtainPassword(const std::string& file, const std::string& prompt, bool twice, std::string& password,
                    std::string& reason) {
    if (!file.empty()) {
        std::string text;
        Platform::SystemError error = 0;
        if (!Platform::ReadWholeFile(file, kLargestFile, text, error)) {
            reason = "The password file " + file + " cannot be read: " + Platform::ReadErrorText(error);
            return false;
        }
        password = FirstLine(text);
        return true;
    }
    if (!Platform::ReadPassword(prompt + ": ", password)) {
        reason = "There is no terminal to ask for the password; name a file that holds it, or - for standard input";
        return false;
    }
    std::string again;
    if (twice && (!Platform::ReadPassword(prompt + " again: ", again) || again != password)) {
        reason = "The two passwords differ; try again";
        return false;
    }
    return true;
}

}  // namespace Orv
