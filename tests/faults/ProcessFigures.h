// What a process of a test takes of the machine, from outside. Tests only.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

#include "tests/support/Process.h"

namespace OrvTest {

// A figure of /proc/PID/status in its own unit: "VmRSS" and "VmHWM" (the most so far) in kB, "Threads".
inline long FigureOf(pid_t process, const std::string& name) {
    const std::string text = ReadFileText("/proc/" + std::to_string(process) + "/status");
    const auto at = text.find("\n" + name + ":");
    return at == std::string::npos ? -1 : std::stol(text.substr(at + name.size() + 2));
}

inline long DescriptorsOf(pid_t process) {
    long count = 0;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/fd", ignored)) {
        static_cast<void>(entry);
        ++count;
    }
    return count;
}

}  // namespace OrvTest
