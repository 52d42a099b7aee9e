#include "ServiceProcess/Log.h"

#include <locale>
#include <utility>

#include "Platform/Clock.h"
#include "Platform/Thread.h"
#include "ServiceProcess/LogAdapters.h"
#include "ServiceProcess/LogFileBuffer.h"
#include "ServiceProcess/LogFormat.h"

namespace Orv {

namespace {

// Makes the process's writer at static initialisation and closes its file at process end.
struct WriterLifetime {
    WriterLifetime() { LogWriter::Instance(); }
    ~WriterLifetime() { LogWriter::Instance().CloseLog(); }
} writerLifetime;

}  // namespace

LogWriter::LogWriter(const char* name, const char* backupFolder)
    : name_(name),
      backupFolder_(backupFolder != nullptr ? backupFolder : ""),
      buffer_(std::make_unique<LogFileBuffer>()),
      stream_(buffer_.get()) {
    stream_.imbue(std::locale::classic());
}

LogWriter::~LogWriter() {
    CloseLog();
}

// The object itself stays: other process-wide objects may still log when they go, and threads while they end.
LogWriter& LogWriter::Instance() {
    static LogWriter* const instance = new LogWriter("OrvAudioProvider", "./Backup/");
    return *instance;
}

void LogWriter::OpenLog(const char* folder, u64 maxBytes) {
    Platform::LockGuard<Platform::RecursiveMutex> guard(lock_);
    sizeLimit_ = maxBytes;
    if (folder_ == folder) return;
    CloseAndArchive();
    folder_ = folder;
    // Level 0 does not silence this line, and it names no source.
    LogLine(*this, LogWord{LogWords::Info.text, LogWords::Info.threshold, true}, nullptr, 0).Stream()
        << "New log file has started";
}

void LogWriter::CloseLog() {
    Platform::LockGuard<Platform::RecursiveMutex> guard(lock_);
    CloseAndArchive();
    folder_.clear();
}

void LogWriter::SetLogLevel(u32 level) {
    level_.exchange(static_cast<i32>(level), std::memory_order_relaxed);
    SetLogAdapters(level);
}

bool LogWriter::PrepareFile() {
    if (buffer_->IsOpen() && buffer_->Position() < sizeLimit_) return true;
    CloseAndArchive();
    currentPath_ = MakeFileName();
    if (currentPath_.empty()) return false;
    Platform::SystemError error = 0;
    auto file = Platform::CreateWriteFile(currentPath_, error);
    if (file == nullptr) return false;
    buffer_->Open(std::move(file));
    return true;
}

void LogWriter::WriteLinePrefix(const char* levelWord, const char* sourceFile, u32 sourceLine) {
    lineBegun_ = false;
    if (!PrepareFile()) {
        stream_.setstate(std::ios_base::failbit);  // the pieces of the message are not even formatted
        return;
    }
    // What an earlier message did to the stream ends with its line.
    stream_.clear();
    stream_.flags(std::ios_base::dec | std::ios_base::skipws);
    stream_.fill(' ');
    stream_.width(0);
    stream_.precision(6);

    const Platform::CalendarTime now = Platform::LocalTime();
    if (now.day != lastDay_) {
        stream_ << LogDateLine(now).text << std::flush;
        if (!stream_) return;  // a full disk: no line stands in front of its date
        lastDay_ = now.day;
    }
    lineBegun_ = true;
    stream_ << LogLineStart(now, Platform::CurrentThreadId()).text << levelWord << '|';
    if (sourceFile != nullptr) stream_ << sourceFile << '(' << sourceLine << ')';
    stream_ << ": ";
}

void LogWriter::EndLine(bool forceFlush) {
    if (!lineBegun_ || !buffer_->IsOpen()) return;
    stream_.clear();
    stream_.put('\n');
    if (forceFlush || autoFlush_) stream_.flush();
}

LogLine::LogLine(LogWriter& writer, const LogWord& word, const char* sourceFile, u32 sourceLine)
    : writer_(writer), forceFlush_(word.forceFlush) {
    writer_.Lock();
    try {
        writer_.WriteLinePrefix(word.text, sourceFile, sourceLine);
    } catch (...) {
        writer_.Unlock();
        throw;
    }
}

LogLine::~LogLine() {
    writer_.EndLine(forceFlush_);
    writer_.Unlock();
}

}  // namespace Orv
