// The Configuration service's own log: dated lines on standard error, or wherever the program sends them. Any thread.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Platform/Sync.h"

namespace Orv {

class ServiceLog {
public:
    using Sink = std::function<void(const std::string& line)>;

    // Writes to standard error.
    ServiceLog();
    // `sink` gets each line without its end, one at a time.
    explicit ServiceLog(Sink sink);

    // "2024-05-31 18:04:59.017 Info  text". Control characters in the text come out as "?", so that what was read from
    // outside stays inside its line.
    void Info(std::string_view text) { Write("Info ", text); }
    void Warn(std::string_view text) { Write("Warn ", text); }
    void Error(std::string_view text) { Write("Error", text); }

private:
    void Write(const char* level, std::string_view text);

    Platform::Mutex mutex_;
    const Sink sink_;
};

// `text` cut to 100 bytes, with "?" for control characters: for what strangers send.
std::string Harmless(std::string_view text);

}  // namespace Orv
