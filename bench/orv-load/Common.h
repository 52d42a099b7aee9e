// What every part of the load tool uses: numbers of the stream, the clock, failures.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>

#include "Platform/Types.h"

namespace OrvLoad {

inline constexpr i64 kNanosecond = 1;
inline constexpr i64 kMicrosecond = 1000;
inline constexpr i64 kMillisecond = 1000 * kMicrosecond;
inline constexpr i64 kSecond = 1000 * kMillisecond;

inline constexpr u32 kBlockBytes = 2000;
inline constexpr u32 kBlockSamples = 1000;
inline constexpr i64 kBlockTime = 125 * kMillisecond;
// How far the first block after a rest is overdue when it goes out, as the pumps do it.
inline constexpr i64 kFirstBlockOverdue = 275 * kMillisecond;

// The steady clock in nanoseconds.
i64 Now();
// From here on SIGINT and SIGTERM make the two below throw LoadError, so that a run that is broken off leaves nothing
// behind.
void WatchForInterrupt();
void SleepFor(i64 nanoseconds);
// Asks `condition` every 2 ms; false when `nanoseconds` have passed without it.
bool WaitFor(i64 nanoseconds, const std::function<bool()>& condition);

// The tool cannot go on; the text says why and what to do.
class LoadError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
// Throws LoadError with the text and what errno says.
[[noreturn]] void Fail(const std::string& text);

std::string ReadText(const std::string& path);  // empty when there is none
void WriteText(const std::string& path, const std::string& text);

// On most systems a file system in memory, which has nothing to read into a cache.
inline constexpr char kMemoryFolder[] = "/dev/shm";

// A folder of the run's own with a short path, so that sockets fit into it. Gone with the object, unless kept.
class RunFolder {
public:
    explicit RunFolder(bool keep, const std::string& parent = "/tmp");
    ~RunFolder();
    RunFolder(const RunFolder&) = delete;
    RunFolder& operator=(const RunFolder&) = delete;
    const std::string& Path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
    bool keep_;
};

}  // namespace OrvLoad
