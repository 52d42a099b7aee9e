#include "Platform/ServiceManager.h"

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cerrno>

#include "Platform/SystemError.h"

extern char** environ;

namespace Platform {
namespace {

// What the manager itself makes when it runs.
constexpr char kManagerFolder[] = "/run/systemd/system";

// The exit code of a program found on the path, or -1 with errno.
int RunToEnd(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& part : command) arguments.push_back(const_cast<char*>(part.c_str()));
    arguments.push_back(nullptr);
    // The child gets no signal blocked and none ignored that this process keeps for itself.
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t none;
    sigset_t all;
    ::sigemptyset(&none);
    ::sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setsigdefault(&attributes, &all);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t child = -1;
    const int failed = ::posix_spawnp(&child, arguments[0], nullptr, &attributes, arguments.data(), environ);
    ::posix_spawnattr_destroy(&attributes);
    if (failed != 0) {
        errno = failed;
        return -1;
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

UnitOutcome StartUnits(const std::vector<std::string>& units, std::string& reason) {
    struct stat folder {};
    if (::lstat(kManagerFolder, &folder) != 0 || !S_ISDIR(folder.st_mode)) return UnitOutcome::NoManager;
    std::vector<std::string> command = {"systemctl", "start", "--"};
    command.insert(command.end(), units.begin(), units.end());
    const int code = RunToEnd(command);
    if (code == 0) return UnitOutcome::Done;
    reason = code < 0 ? "systemctl cannot be run: " + SystemErrorText(static_cast<SystemError>(errno))
                      : "systemctl ended with code " + std::to_string(code);
    return UnitOutcome::Failed;
}

}  // namespace Platform
