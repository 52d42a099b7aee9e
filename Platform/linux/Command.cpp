#include "Platform/Command.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
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

std::unique_ptr<IRunningCommand> Start(std::vector<std::string> words, SystemError& error) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        error = static_cast<SystemError>(errno);
        return nullptr;
    }
    Descriptor reading(ends[0]);
    const Descriptor writing(ends[1]);
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_t process = 0;
    error = static_cast<SystemError>(SpawnSettings(writing.Get()).Spawn(process, arguments.data()));
    if (error != 0) return nullptr;
    return std::make_unique<RunningCommand>(process, std::move(reading));
}

}  // namespace

std::unique_ptr<IRunningCommand> StartCommand(const std::string& command, SystemError& error) {
    return Start({"/bin/sh", "-c", command}, error);
}

std::unique_ptr<IRunningCommand> StartProgram(const std::string& program, const std::vector<std::string>& arguments,
                                              SystemError& error) {
    std::vector<std::string> words = {program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return Start(std::move(words), error);
}

std::string ProgramFolder() {
    std::string path(4096, '\0');
    const ssize_t length = ::readlink("/proc/self/exe", path.data(), path.size());
    if (length <= 0 || static_cast<std::size_t>(length) == path.size()) return {};
    path.resize(static_cast<std::size_t>(length));
    return path.substr(0, path.find_last_of('/'));
}

bool LimitThisProcess(u64 memoryBytes, u32 processorSeconds, SystemError& error) {
    const rlimit memory{memoryBytes, memoryBytes};
    // The later, hard limit kills; the earlier one ends with a signal that tells why.
    const rlimit time{processorSeconds, processorSeconds + 5};
    const bool done = ::setrlimit(RLIMIT_AS, &memory) == 0 && ::setrlimit(RLIMIT_CPU, &time) == 0;
    error = done ? 0 : static_cast<SystemError>(errno);
    return done;
}

i32 TimeLimitSignal() {
    return SIGXCPU;
}

bool IsFaultSignal(i32 signal) {
    switch (signal) {
        case SIGABRT:
        case SIGBUS:
        case SIGFPE:
        case SIGILL:
        case SIGSEGV:
        case SIGSYS:
        case SIGTRAP:
            return true;
        default:
            return false;
    }
}

}  // namespace Platform
