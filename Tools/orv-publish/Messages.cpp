#include "Tools/orv-publish/Messages.h"

#include <cerrno>
#include <cstdio>

namespace Orv {

std::string SoundLength(u64 bytes) {
    char text[48];
    std::snprintf(text, sizeof text, "%.3f s of sound", static_cast<double>(bytes) / 16000.0);
    return text;
}

std::string ShellWord(const std::string& text) {
    std::string word = "'";
    for (const char c : text) {
        if (c == '\'') {
            word += "'\\''";
        } else {
            word += c;
        }
    }
    return word + "'";
}

std::string ServeFailure(const std::string& name, const std::string& folder, const std::string& file,
                         Platform::SystemError error) {
    constexpr char kOtherFolder[] =
        "--pipe-folder names another folder, and -c the service's settings file, whose PipePath is that folder";
    const std::string cannot = "cannot serve the pipe '" + name + "': ";
    switch (error) {
        case EADDRINUSE:
            return cannot + "another program serves it already (" + file +
                   ").\nIs it a feed's own pipe ('orvctl feed list' shows them), or does another orv-publish run? End "
                   "that one, or choose another name.";
        case EEXIST:
            return cannot + "something that is no pipe stands at " + file + ".\nRemove it, or choose another name.";
        case ENOENT:
        case ENOTDIR:
            return cannot + "the folder " + folder +
                   " is missing and cannot be made.\nStart the service, which makes it, or make it yourself; " +
                   kOtherFolder + ".";
        case EACCES:
        case EPERM:
            return cannot + "you may not make pipes in the folder " + folder +
                   ".\nBecome a member of the group that owns it, or run this as the service's user; " + kOtherFolder +
                   ".";
        case ENAMETOOLONG:
            return cannot + "its path " + file + " is too long.\nA pipe's whole path has at most 107 bytes; choose a " +
                   "shorter name, or with --pipe-folder a shorter folder.";
        default:
            return cannot + Platform::SystemErrorText(error) + " (" + file + ").\n" + kOtherFolder + ".";
    }
}

}  // namespace Orv
