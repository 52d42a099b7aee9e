#include "Platform/Command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "Platform/Thread.h"
#include "Platform/linux/DescriptorStream.h"

extern char** environ;

namespace Platform {
namespace {

constexpr u32 kEndMilliseconds = 2000;
constexpr u32 kEndPollMilliseconds = 10;

class RunningCommand final : public IRunningCommand {
public:
    RunningCommand(pid_t process, Descriptor output) : process_(process), output_(std::move(output)) {}

    // The group's number cannot become another's before its first process has been reaped here.
    ~RunningCommand() override {
        ::kill(-process_, SIGTERM);
        CommandEnd end;
        for (u32 waited = 0; waited < kEndMilliseconds && !Ended(end); waited += kEndPollMilliseconds) {
            SleepMilliseconds(kEndPollMilliseconds);
        }
        ::kill(-process_, SIGKILL);
        while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
        }
    }

    IInputStream& Output() override { return output_; }

    bool Ended(CommandEnd& end) override {
        siginfo_t info{};
        if (::waitid(P_PID, static_cast<id_t>(process_), &info, WEXITED | WNOHANG | WNOWAIT) != 0) return false;
        if (info.si_pid == 0) return false;
        const bool exited = info.si_code == CLD_EXITED;
        end = {exited ? info.si_status : -1, exited ? 0 : info.si_status};
        return true;
    }

private:
    const pid_t process_;
    DescriptorStream output_;
};

// What the command gets and does not get from this process.
class SpawnSettings {
public:
    explicit SpawnSettings(int output) {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
        ::posix_spawnattr_init(&attributes_);
        // Its own group, so that all of a pipeline is ended; and none of the signals that this process blocks or
        // ignores.
        sigset_t none;
        sigset_t defaults;
        ::sigemptyset(&none);
        ::sigemptyset(&defaults);
        ::sigaddset(&defaults, SIGPIPE);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setsigdefault(&attributes_, &defaults);
        ::posix_spawnattr_setpgroup(&attributes_, 0);
        ::posix_spawnattr_setflags(&attributes_,
                                   POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    int Spawn(pid_t& process, char* const* arguments) const {
        return ::posix_spawn(&process, arguments[0], &actions_, &attributes_, arguments, environ);
    }

private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

}  // namespace

std::unique_ptr<IRunningCommand> StartCommand(const std::string& command, SystemError& error) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        error = static_cast<SystemError>(errno);
        return nullptr;
    }
    Descriptor reading(ends[0]);
    const Descriptor writing(ends[1]);
    std::string shell = "/bin/sh";
    std::string option = "-c";
    std::string line = command;
    char* const arguments[] = {shell.data(), option.data(), line.data(), nullptr};
    pid_t process = 0;
    error = static_cast<SystemError>(SpawnSettings(writing.Get()).Spawn(process, arguments));
    if (error != 0) return nullptr;
    return std::make_unique<RunningCommand>(process, std::move(reading));
}

}  // namespace Platform
