// The system's only log.
//
//   ORV_LOG(Info) << "Root path updated: " << path;
//
// The file that uses such a statement defines kLogSource, the source name in the line. The level is tested first; below
// it nothing is built. The writer's lock is innermost: a statement may stand under any other lock. A log that cannot be
// written never stops the service: the line is lost, whole and in silence.
#pragma once

#include <atomic>
#include <memory>
#include <ostream>
#include <string>

#include "Platform/Sync.h"

namespace Orv {

// A level word as it stands in the line, the verbosity from which on it is written, and whether it forces a flush.
struct LogWord {
    const char* text;  // five characters
    i32 threshold;
    bool forceFlush;
};
namespace LogWords {
inline constexpr LogWord Error{"Error", 1, true};
inline constexpr LogWord Warn{" Warn", 1, false};
inline constexpr LogWord Info{" Info", 1, false};
inline constexpr LogWord Excep{"Excep", 1, true};  // the what() of a standard exception that was caught
inline constexpr LogWord Trace{"Trace", 2, false};
inline constexpr LogWord Debug{"Debug", 3, false};
}  // namespace LogWords

class LogFileBuffer;

// Writes lines into a file of its folder, starts a new file at the size limit, and moves each file that it closes to
// <folder>/<backup folder>/YYYYMMDD/. Any thread. Blocks on its own lock and on the disk.
class LogWriter {
public:
    // `name` is the first part of every file name. A null `backupFolder` switches archiving off; one that begins with a
    // separator is taken as it is, any other below the log's folder.
    LogWriter(const char* name, const char* backupFolder);
    // Closes the active file and moves it to its backup folder.
    ~LogWriter();
    LogWriter(const LogWriter&) = delete;
    LogWriter& operator=(const LogWriter&) = delete;

    // The process's writer: "OrvAudioProvider", "./Backup/". It is closed at process end; a statement after that is
    // lost like one before OpenLog().
    static LogWriter& Instance();

    // Sets the size limit in bytes; with a new folder, closes the active file and starts one there. The folder must
    // exist: the writer makes backup folders only.
    void OpenLog(const char* folder, u64 maxBytes);
    // Closes and archives the active file and forgets the folder: what is written from here on is lost.
    void CloseLog();
    // Verbosity, 0 to 5; sets the adapters of LogAdapters.h as well.
    void SetLogLevel(u32 level);
    // Read without the lock: a statement may still see the level of a moment ago.
    i32 Level() const noexcept { return level_.load(std::memory_order_relaxed); }
    bool Enabled(const LogWord& word) const noexcept { return Level() >= word.threshold; }

    // What a LogLine is made of. Recursive; held from the prefix to the end of the line.
    void Lock() ORV_ACQUIRE(lock_) { lock_.Lock(); }
    void Unlock() ORV_RELEASE(lock_) { lock_.Unlock(); }
    // Opens the file if that is due, and begins a line in it, with the date in front when the day is new. Begins none
    // where there is no file or no room for the date; what is streamed is then dropped. `levelWord` and `sourceFile`
    // are used during the call only; a null `sourceFile` leaves the location out.
    void WriteLinePrefix(const char* levelWord, const char* sourceFile, u32 sourceLine) ORV_REQUIRES(lock_);
    std::ostream& Stream() ORV_REQUIRES(lock_) { return stream_; }
    // The line feed, and the flush if asked for; nothing when no line was begun. A line that the disk does not take is
    // taken back whole.
    void EndLine(bool forceFlush) ORV_REQUIRES(lock_);

private:
    bool PrepareFile() ORV_REQUIRES(lock_);
    void CloseAndArchive() ORV_REQUIRES(lock_);
    void Archive() const ORV_REQUIRES(lock_);
    std::string MakeFileName() const ORV_REQUIRES(lock_);

    // Constant after construction.
    const std::string name_;
    const std::string backupFolder_;
    const std::unique_ptr<LogFileBuffer> buffer_;

    // Synchronised by itself.
    std::atomic<i32> level_{3};

    Platform::RecursiveMutex lock_;
    std::string folder_ ORV_GUARDED_BY(lock_);
    std::string currentPath_ ORV_GUARDED_BY(lock_);
    std::ostream stream_ ORV_GUARDED_BY(lock_);  // on buffer_, which the lock guards with it
    u64 sizeLimit_ ORV_GUARDED_BY(lock_) = 0;
    u32 lastDay_ ORV_GUARDED_BY(lock_) = 0;         // of the last "#Date: " line in this file, 0 for none
    bool lineBegun_ ORV_GUARDED_BY(lock_) = false;  // its prefix is written, so its end is too
    const bool autoFlush_ = true;
};

// One line: takes the lock and writes the prefix; ends the line and gives the lock back when it goes, also when the
// message throws while it is being built.
class LogLine {
public:
    // The lock is held from here to the destructor, which the analysis cannot follow.
    LogLine(LogWriter& writer, const LogWord& word, const char* sourceFile,
            u32 sourceLine) ORV_NO_THREAD_SAFETY_ANALYSIS;
    ~LogLine() ORV_NO_THREAD_SAFETY_ANALYSIS;
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;
    std::ostream& Stream() ORV_NO_THREAD_SAFETY_ANALYSIS { return writer_.Stream(); }

private:
    LogWriter& writer_;
    bool forceFlush_;
};

// Turns a statement into an expression without a value; `&` binds weaker than `<<`.
struct LogStatement {
    void operator&(const std::ostream&) const noexcept {}
};

}  // namespace Orv

#define ORV_LOG_TO(writer, word)             \
    !(writer).Enabled(::Orv::LogWords::word) \
        ? static_cast<void>(0)               \
        : ::Orv::LogStatement() & ::Orv::LogLine((writer), ::Orv::LogWords::word, kLogSource, __LINE__).Stream()

#define ORV_LOG(word) ORV_LOG_TO(::Orv::LogWriter::Instance(), word)
