// Real processes for tests: start one, feed it, capture what it says, wait for it with a deadline, end it. Tests only:
// nothing that is shipped may include this.
//
// A process belongs to the object that started it: the destructor kills and reaps it, and the kernel kills it when the
// thread that started it ends, so that a test that dies leaves nothing behind.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

extern char** environ;

namespace OrvTest {

// A folder of the test's own with a short path, so that sockets fit into it. Gone with the object.
class TempFolder {
public:
    TempFolder() {
        char name[] = "/tmp/orv-XXXXXX";
        if (::mkdtemp(name) == nullptr) throw std::runtime_error("no temporary folder");
        path_ = name;
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& Path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// The whole content of a file, empty when there is none.
inline std::string ReadFileText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline void WriteFileText(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file) throw std::runtime_error("cannot write " + path);
}

// Asks `condition` every 5 ms until it holds or the time is over. Whether it held.
inline bool Eventually(const std::function<bool()>& condition, int milliseconds = 10000) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    for (;;) {
        if (condition()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

// Waits until a file holds a text, for instance the capture of a process's output.
inline bool WaitForText(const std::string& path, const std::string& text, int milliseconds = 10000) {
    return Eventually([&] { return ReadFileText(path).find(text) != std::string::npos; }, milliseconds);
}

struct ProcessOptions {
    std::vector<std::string> command;  // the program's path and its arguments
    std::string inputFile;             // standard input; empty: /dev/null
    std::string outputFile;            // standard output, created or appended to; empty: /dev/null
    std::string errorFile;             // the same for standard error
    std::string workingFolder;         // empty: the test's own
    // Set, or with an empty value removed, on top of the test's environment. NOTIFY_SOCKET is removed unless set here.
    std::vector<std::pair<std::string, std::string>> environment;
};

class Process {
public:
    Process() = default;
    // Starts it, or throws. A program that cannot be executed ends with code 127.
    explicit Process(const ProcessOptions& options) { Start(options); }
    ~Process() { Kill(); }
    Process(Process&& other) noexcept { *this = std::move(other); }
    Process& operator=(Process&& other) noexcept {
        if (this != &other) {
            Kill();
            pid_ = std::exchange(other.pid_, -1);
            status_ = other.status_;
        }
        return *this;
    }

    pid_t Pid() const { return pid_; }
    bool Running() { return pid_ > 0 && !Reap(); }

    // Sends a signal; nothing when it has ended.
    void Signal(int number) {
        if (Running()) ::kill(pid_, number);
    }
    // True once it has ended, false when the time is over.
    bool WaitFor(int milliseconds) {
        return Eventually([this] { return !Running(); }, milliseconds);
    }
    // Ends it at once and reaps it.
    void Kill() {
        if (!Running()) return;
        ::kill(pid_, SIGKILL);
        while (::waitpid(pid_, &status_, 0) < 0 && errno == EINTR) {
        }
        pid_ = -1;
    }
    // SIGTERM, then the exit code; -1 when it did not end in time (it is then killed) or by a signal.
    int Stop(int milliseconds = 10000) {
        Signal(SIGTERM);
        if (!WaitFor(milliseconds)) {
            Kill();
            return -1;
        }
        return ExitCode();
    }
    // After its end: the code, -1 when a signal ended it, and that signal, 0 when none did.
    int ExitCode() const { return WIFEXITED(status_) ? WEXITSTATUS(status_) : -1; }
    int EndSignal() const { return WIFSIGNALED(status_) ? WTERMSIG(status_) : 0; }

private:
    void Start(const ProcessOptions& options) {
        // Everything that allocates happens before the fork.
        std::vector<char*> arguments;
        for (const std::string& part : options.command) arguments.push_back(const_cast<char*>(part.c_str()));
        arguments.push_back(nullptr);
        const std::vector<std::string> variables = Environment(options);
        std::vector<char*> pointers;
        for (const std::string& variable : variables) pointers.push_back(const_cast<char*>(variable.c_str()));
        pointers.push_back(nullptr);
        const char* const input = options.inputFile.empty() ? "/dev/null" : options.inputFile.c_str();
        const char* const output = options.outputFile.empty() ? "/dev/null" : options.outputFile.c_str();
        const char* const error = options.errorFile.empty() ? "/dev/null" : options.errorFile.c_str();
        const char* const folder = options.workingFolder.empty() ? nullptr : options.workingFolder.c_str();
        const pid_t parent = ::getpid();

        status_ = 0;
        pid_ = ::fork();
        if (pid_ < 0) throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
        if (pid_ > 0) return;

        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent) ::_exit(127);
        sigset_t none;
        ::sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        ::signal(SIGPIPE, SIG_DFL);
        Redirect(input, O_RDONLY, 0);
        Redirect(output, O_WRONLY | O_CREAT | O_APPEND, 1);
        Redirect(error, O_WRONLY | O_CREAT | O_APPEND, 2);
        for (int descriptor = 3; descriptor < 1024; ++descriptor) ::close(descriptor);
        if (folder != nullptr && ::chdir(folder) != 0) ::_exit(127);
        ::execve(arguments[0], arguments.data(), pointers.data());
        ::_exit(127);
    }

    static std::vector<std::string> Environment(const ProcessOptions& options) {
        auto changes = options.environment;
        changes.insert(changes.begin(), {"NOTIFY_SOCKET", ""});
        std::vector<std::string> variables;
        for (char** variable = environ; *variable != nullptr; ++variable) variables.emplace_back(*variable);
        for (const auto& [name, value] : changes) {
            const std::string prefix = name + "=";
            std::erase_if(variables, [&](const std::string& variable) { return variable.starts_with(prefix); });
            if (!value.empty()) variables.push_back(prefix + value);
        }
        return variables;
    }

    static void Redirect(const char* path, int flags, int target) {
        const int descriptor = ::open(path, flags, 0600);
        if (descriptor < 0) ::_exit(127);
        if (descriptor != target) {
            ::dup2(descriptor, target);
            ::close(descriptor);
        }
    }

    bool Reap() {
        const pid_t result = ::waitpid(pid_, &status_, WNOHANG);
        if (result != pid_) return false;
        pid_ = -1;
        return true;
    }

    pid_t pid_ = -1;
    int status_ = 0;
};

// What a program that was run to its end has said.
struct RunResult {
    int exitCode = -1;  // -1: ended by a signal, or did not end in time
    bool timedOut = false;
    std::string output;
    std::string error;
};

// Runs a program to its end.
inline RunResult Run(const std::vector<std::string>& command, const std::string& input = "", int milliseconds = 30000,
                     const std::vector<std::pair<std::string, std::string>>& environment = {}) {
    TempFolder folder;
    ProcessOptions options;
    options.command = command;
    options.environment = environment;
    options.outputFile = folder / "out";
    options.errorFile = folder / "err";
    if (!input.empty()) {
        options.inputFile = folder / "in";
        WriteFileText(options.inputFile, input);
    }
    Process process(options);
    RunResult result;
    result.timedOut = !process.WaitFor(milliseconds);
    if (result.timedOut) process.Kill();
    result.exitCode = result.timedOut ? -1 : process.ExitCode();
    result.output = ReadFileText(options.outputFile);
    result.error = ReadFileText(options.errorFile);
    return result;
}

}  // namespace OrvTest
