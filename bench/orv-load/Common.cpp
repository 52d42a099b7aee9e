#include "bench/orv-load/Common.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace OrvLoad {
namespace {

volatile sig_atomic_t interrupted = 0;

void CheckInterrupt() {
    if (interrupted == 0) return;
    interrupted = 0;
    throw LoadError("Interrupted");
}

}  // namespace

void WatchForInterrupt() {
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted = 1; };
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

i64 Now() {
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * kSecond + time.tv_nsec;
}

void SleepFor(i64 nanoseconds) {
    if (nanoseconds <= 0) return;
    timespec time{nanoseconds / kSecond, nanoseconds % kSecond};
    while (::nanosleep(&time, &time) != 0 && errno == EINTR) CheckInterrupt();
    CheckInterrupt();
}

bool WaitFor(i64 nanoseconds, const std::function<bool()>& condition) {
    const i64 end = Now() + nanoseconds;
    while (!condition()) {
        CheckInterrupt();
        if (Now() > end) return condition();
        SleepFor(2 * kMillisecond);
    }
    return true;
}

void Fail(const std::string& text) {
    throw LoadError(text + ": " + std::strerror(errno));
}

std::string ReadText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void WriteText(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file) throw LoadError("Cannot write " + path);
}

RunFolder::RunFolder(bool keep, const std::string& parent) : path_(parent + "/orv-l-XXXXXX"), keep_(keep) {
    if (::mkdtemp(path_.data()) == nullptr) Fail("Cannot make a folder in " + parent);
}

RunFolder::~RunFolder() {
    if (keep_) {
        std::fprintf(stderr, "The run's folder is kept: %s\n", path_.c_str());
        return;
    }
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace OrvLoad
