#include "ConfigService/ServiceLog.h"

#include <cstdio>
#include <utility>

#include "ConfigService/Validation.h"
#include "Platform/Clock.h"

namespace Orv {
namespace {

constexpr u64 kLongestForeignText = 100;

// On standard error. What a full disk has cut off ends before the next line begins, since it cannot be taken back.
void WriteToStandardError(const std::string& line) {
    static bool cutOff = false;  // under the log's mutex
    const std::string text = (cutOff ? "\n" : "") + line + "\n";
    const u64 taken = std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
    if (taken != 0) cutOff = taken != text.size() && text[taken - 1] != '\n';
}

std::string WithoutControls(std::string_view text) {
    std::string clean(text);
    for (u64 i = 0; i < clean.size(); ++i) {
        const u64 length = static_cast<u8>(clean[i]) == 0xC2 ? 2 : 1;
        if (HasControlCharacter(std::string_view(clean).substr(i, length))) clean[i] = '?';
    }
    return clean;
}

}  // namespace

ServiceLog::ServiceLog() : sink_(&WriteToStandardError) {}

ServiceLog::ServiceLog(Sink sink) : sink_(std::move(sink)) {}

void ServiceLog::Write(const char* level, std::string_view text) {
    const Platform::CalendarTime now = Platform::LocalTime();
    char prefix[48];
    std::snprintf(prefix, sizeof(prefix), "%04u-%02u-%02u %02u:%02u:%02u.%03u %s ", now.year, now.month, now.day,
                  now.hour, now.minute, now.second, now.milliseconds, level);
    const std::string line = prefix + WithoutControls(text);
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    sink_(line);
}

std::string Harmless(std::string_view text) {
    return WithoutControls(text.substr(0, kLongestForeignText));
}

}  // namespace Orv
