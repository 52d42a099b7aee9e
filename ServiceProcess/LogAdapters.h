// How the file engine logs: five pointers, each null or a function that makes one statement of its level out of a text.
// LogWriter::SetLogLevel() fills and empties them. A null pointer silences its word, and the text is not even built.
//
// The pointers lag behind the plain statements on purpose: at level 1 only errors and warnings of the engine are
// written, at level 2 its information too, and its traces from level 3 on. Until the level is set for the first time
// the engine is silent.
#pragma once

#include <atomic>
#include <sstream>

#include "Platform/Types.h"

namespace Orv {

using LogSink = void (*)(const char* text);

// Written by one thread at a time and read by any; old and new value are both valid, so the order is relaxed.
extern std::atomic<LogSink> LogErrorSink;
extern std::atomic<LogSink> LogWarnSink;
extern std::atomic<LogSink> LogInfoSink;
extern std::atomic<LogSink> LogTraceSink;
extern std::atomic<LogSink> LogDebugSink;

// Sets the pointers as level 0, 1, 2 or 3 wants them; any other level leaves them as they are.
void SetLogAdapters(u32 level);

}  // namespace Orv

// One message of the engine: source name, line in parentheses, a blank, the text. The file that uses it defines
// kLogSource, "VoIPFileEngine/..." for the file engine. Behind the sink stands what would stand behind a stream's `<<`.
#define ORV_ENGINE_LOG(sink, ...)                                                        \
    do {                                                                                 \
        if (::Orv::LogSink sinkFunction = ::Orv::sink.load(std::memory_order_relaxed)) { \
            std::ostringstream logText;                                                  \
            logText << kLogSource << '(' << __LINE__ << ") " << __VA_ARGS__;             \
            sinkFunction(logText.str().c_str());                                         \
        }                                                                                \
    } while (false)
