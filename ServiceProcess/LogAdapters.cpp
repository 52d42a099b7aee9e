#include "ServiceProcess/LogAdapters.h"

#include "ServiceProcess/Log.h"

namespace Orv {

std::atomic<LogSink> LogErrorSink{nullptr};
std::atomic<LogSink> LogWarnSink{nullptr};
std::atomic<LogSink> LogInfoSink{nullptr};
std::atomic<LogSink> LogTraceSink{nullptr};
std::atomic<LogSink> LogDebugSink{nullptr};

namespace {

// The lines of the engine name the host as their place; the engine's own place is in the text.
constexpr char kLogSource[] = "OrvAudioFeeder";

void WriteError(const char* text) {
    ORV_LOG(Error) << text;
}

void WriteWarn(const char* text) {
    ORV_LOG(Warn) << text;
}

void WriteInfo(const char* text) {
    ORV_LOG(Info) << text;
}

void WriteTrace(const char* text) {
    ORV_LOG(Trace) << text;
}

void WriteDebug(const char* text) {
    ORV_LOG(Debug) << text;
}

void Set(std::atomic<LogSink>& sink, bool on, LogSink function) {
    sink.store(on ? function : nullptr, std::memory_order_relaxed);
}

}  // namespace

void SetLogAdapters(u32 level) {
    if (level > 3) return;
    Set(LogErrorSink, level >= 1, WriteError);
    Set(LogWarnSink, level >= 1, WriteWarn);
    Set(LogInfoSink, level >= 2, WriteInfo);
    Set(LogTraceSink, level >= 3, WriteTrace);
    Set(LogDebugSink, level >= 3, WriteDebug);
}

}  // namespace Orv
