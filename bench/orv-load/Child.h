// A program that the tool has started. It ends with the object, and with the tool.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "bench/orv-load/Common.h"

namespace OrvLoad {

class Child {
public:
    Child() = default;
    // Starts `command`; its output goes to the end of `outputFile`. It may open as many files as the system allows.
    Child(const std::vector<std::string>& command, const std::string& outputFile);
    ~Child();
    Child(Child&& other) noexcept;
    Child& operator=(Child&& other) noexcept;

    pid_t Pid() const { return pid_; }
    bool Running();
    // Asks it to end (SIGTERM).
    void AskToStop();
    // Waits for its end; the exit code, or -1 for a signal or when the time is over, after which it is killed.
    int WaitForEnd(i64 nanoseconds);
    // How it ended, in words: "code 3", "signal 9 (Killed)", "not within 120 s, killed".
    const std::string& Ending() const { return ending_; }
    int Stop(i64 nanoseconds = 60 * kSecond) {
        AskToStop();
        return WaitForEnd(nanoseconds);
    }

private:
    void Kill();

    pid_t pid_ = -1;
    int status_ = 0;
    std::string ending_;
};

// Raises this process's soft limit of descriptors to the hard one; children inherit it. The limit.
u64 RaiseDescriptorLimit();

// Puts this process before those that it starts, where the system allows it: thousands of threads that it has made busy
// must not keep it from looking at its clock. Whether it is allowed.
bool RaisePriority();

}  // namespace OrvLoad
