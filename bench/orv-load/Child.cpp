#include "bench/orv-load/Child.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace OrvLoad {
namespace {

constexpr int kOwnNice = -10;

// The nice value this process was started with.
int startNice = 0;

}  // namespace

Child::Child(const std::vector<std::string>& command, const std::string& outputFile) {
    std::vector<char*> arguments;
    for (const std::string& part : command) arguments.push_back(const_cast<char*>(part.c_str()));
    arguments.push_back(nullptr);
    if (::access(arguments[0], X_OK) != 0) Fail("Cannot start " + command[0]);
    const char* const output = outputFile.c_str();
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ < 0) Fail("Cannot start " + command[0]);
    if (pid_ > 0) return;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(127);
    const int input = ::open("/dev/null", O_RDONLY);
    const int file = ::open(output, O_WRONLY | O_CREAT | O_APPEND, 0600);
    if (input < 0 || file < 0) ::_exit(127);
    ::dup2(input, 0);
    ::dup2(file, 1);
    ::dup2(file, 2);
    ::setpriority(PRIO_PROCESS, 0, startNice);
    ::close_range(3, ~0U, 0);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
}

Child::~Child() {
    Kill();
}

Child::Child(Child&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), status_(other.status_), ending_(std::move(other.ending_)) {}

Child& Child::operator=(Child&& other) noexcept {
    if (this != &other) {
        Kill();
        pid_ = std::exchange(other.pid_, -1);
        status_ = other.status_;
        ending_ = std::move(other.ending_);
    }
    return *this;
}

bool Child::Running() {
    if (pid_ <= 0) return false;
    if (::waitpid(pid_, &status_, WNOHANG) != pid_) return true;
    pid_ = -1;
    return false;
}

void Child::AskToStop() {
    if (Running()) ::kill(pid_, SIGTERM);
}

int Child::WaitForEnd(i64 nanoseconds) {
    if (!WaitFor(nanoseconds, [this] { return !Running(); })) {
        Kill();
        ending_ = "not within " + std::to_string(nanoseconds / kSecond) + " s, killed";
        return -1;
    }
    if (WIFEXITED(status_)) {
        ending_ = "code " + std::to_string(WEXITSTATUS(status_));
        return WEXITSTATUS(status_);
    }
    const int signal = WTERMSIG(status_);
    ending_ = "signal " + std::to_string(signal) + " (" + ::strsignal(signal) + ")";
    return -1;
}

void Child::Kill() {
    if (!Running()) return;
    ::kill(pid_, SIGKILL);
    while (::waitpid(pid_, &status_, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
}

u64 RaiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
    return limit.rlim_cur;
}

bool RaisePriority() {
    startNice = ::getpriority(PRIO_PROCESS, 0);
    return ::setpriority(PRIO_PROCESS, 0, kOwnNice) == 0;
}

}  // namespace OrvLoad
