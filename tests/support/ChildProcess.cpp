#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

// There when the build counts what its tests run: a process that ends by _Exit() must ask for it.
extern "C" __attribute__((weak)) int __llvm_profile_write_file();

namespace OrvTest {

namespace {

constexpr rlim_t kSeconds = 60;

std::string ReadAll(std::FILE* file) {
    std::string text;
    std::rewind(file);
    char buffer[4096];
    for (std::size_t count = 0; (count = std::fread(buffer, 1, sizeof buffer, file)) != 0;) text.append(buffer, count);
    return text;
}

}  // namespace

std::string ChildEnd::Describe() const {
    return "exit code " + std::to_string(exitCode) + ", signal " + std::to_string(signal) + (hung ? ", hung" : "") +
           "\n" + said + "\n";
}

ChildEnd InChild(const std::function<void()>& body) {
    std::FILE* said = std::tmpfile();
    if (said == nullptr) throw std::runtime_error("no temporary file");
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(::fileno(said), STDOUT_FILENO);
        ::dup2(::fileno(said), STDERR_FILENO);
        // Processor time, so that a loaded machine ends nobody; a simulated process never waits for anything real.
        const rlimit time{kSeconds, kSeconds};
        ::setrlimit(RLIMIT_CPU, &time);
        const rlimit none{0, 0};
        ::setrlimit(RLIMIT_CORE, &none);
        body();
        std::fflush(nullptr);
        if (__llvm_profile_write_file != nullptr) __llvm_profile_write_file();
        std::_Exit(testing::Test::HasFailure() ? 1 : 0);
    }
    ChildEnd end;
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child) {
        std::fclose(said);
        throw std::runtime_error("no child process");
    }
    if (WIFEXITED(status)) end.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) end.signal = WTERMSIG(status);
    end.hung = end.signal == SIGXCPU || end.signal == SIGKILL;
    end.said = ReadAll(said);
    std::fclose(said);
    return end;
}

}  // namespace OrvTest
