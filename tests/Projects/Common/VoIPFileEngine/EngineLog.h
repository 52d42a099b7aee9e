// Catches the file engine's messages while it lives.
#pragma once

#include <mutex>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "ServiceProcess/LogAdapters.h"

namespace Orv::TestData {

// All five words, as "Warn VoIPFileEngine/FileView: No RIFF marker": level, source name, text. The form of the start,
// source name, line in parentheses and one blank, is checked on the way; what is not of that form comes as it is.
class EngineLog {
public:
    EngineLog() {
        Take();
        LogErrorSink = [](const char* text) { Add("Error ", text); };
        LogWarnSink = [](const char* text) { Add("Warn ", text); };
        LogInfoSink = [](const char* text) { Add("Info ", text); };
        LogTraceSink = [](const char* text) { Add("Trace ", text); };
        LogDebugSink = [](const char* text) { Add("Debug ", text); };
    }
    ~EngineLog() {
        for (auto* sink : {&LogErrorSink, &LogWarnSink, &LogInfoSink, &LogTraceSink, &LogDebugSink}) *sink = nullptr;
    }
    EngineLog(const EngineLog&) = delete;
    EngineLog& operator=(const EngineLog&) = delete;

    // What came since the last call.
    std::vector<std::string> Take() {
        const std::lock_guard guard(mutex_);
        return std::exchange(lines_, {});
    }

private:
    static void Add(const std::string& word, const char* text) {
        static const std::regex form("([^(]+)\\([0-9]+\\) ([^]*)");
        std::cmatch match;
        const std::string line = std::regex_match(text, match, form) ? word + match[1].str() + ": " + match[2].str()
                                                                     : "no prefix: " + word + text;
        const std::lock_guard guard(mutex_);
        lines_.push_back(line);
    }

    static inline std::mutex mutex_;
    static inline std::vector<std::string> lines_;
};

// Lines of the two sources.
inline std::string ViewLine(const std::string& word, const std::string& text) {
    return word + " VoIPFileEngine/FileView: " + text;
}
inline std::string RawLine(const std::string& word, const std::string& text) {
    return word + " VoIPFileEngine/RawFile: " + text;
}

}  // namespace Orv::TestData
