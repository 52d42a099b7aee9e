#include "ConfigService/ServiceLog.h"

#include <cstdio>
#include <utility>

#include "ConfigService/Validation.h"
#include "Platform/Clock.h"

namespace Orv {
namespace {

constexpr u64 kLongestForeignText = 100;

std::string WithoutControls(std::string_view text) {
    std::string clean(text);
    for (u64 i = 0; i < clean.size(); ++i) {
        const u64 length = static_cast<u8>(clean[i]) == 0xC2 ? 2 : 1;
        if (HasControlCharacter(std::string_view(clean).substr(i, length))) clean[i] = '?';
    }
    return clean;
}

}  // namespace

ServiceLog::ServiceLog()
    : sink_([](const std::string& line) {
          std::fwrite((line + "\n").data(), 1, line.size() + 1, stderr);
          std::fflush(stderr);
      }) {}

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
