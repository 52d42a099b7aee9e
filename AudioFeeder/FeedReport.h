// What one channel tells about itself, for the state of the service.
#pragma once

#include <atomic>
#include <string>

#include "AudioFeeder/FeedRow.h"
#include "AudioFeeder/VolumeControl.h"
#include "Platform/Sync.h"
#include "Platform/SystemError.h"

namespace Orv {

// What one look at a channel shows. Counts are since the channel was built.
struct FeedFigures {
    bool hasThread = false;
    bool nonstop = false;
    u64 clients = 0;
    u64 blocks = 0;             // made, whether anybody heard them or not
    u64 blocksSent = 0;         // taken by clients, one for each client
    u64 silentBlocks = 0;       // of those made: every sample is 0, or there was nothing to play
    u64 lateBlocks = 0;         // of those made: the head start was used up, so that a client heard a gap
    u32 writeMilliseconds = 0;  // for how long a write to a client has been waiting now; 0: none waits
    float gain = 1.0F;
    i16 peak = 0;              // largest magnitude of the last block, as it was sent; 32767 for -32768 too
    LevelSetting level;        // in use; while nothing plays, what the next block will have
    u64 announcements = 0;     // begun
    std::string music;         // the content name that the main list was last given
    std::string announcement;  // the file of the announcement that plays; empty in a pause
    std::string badContent;    // the last one that could not be played, or not to its end; `badReason` empty: none
    std::string badReason;
    u64 badSeconds = 0;                   // since then
    Platform::SystemError pipeError = 0;  // why the pipe cannot be served; 0 when it is
};

// Written by the channel, read by the thread that tells the state, which may hold it for longer than the channel lives.
// What is written at each block is an atomic with one writer: no lock, no allocation, and for the reader each figure is
// right by itself. Made only when the state is wanted.
class FeedReport {
public:
    FeedReport(const FeedRow& row, i32 instanceId);

    // As the configuration has it. The channel takes the pauses of a change up with its next rebuild only.
    FeedRow Row() const;
    i32 InstanceId() const noexcept { return instanceId_; }
    FeedFigures Read() const;

    // --- the pump, at each block; `now` is the steady clock in 32 bits of milliseconds ---
    void OnBlock(const u8* block, bool late, float gain, const LevelSetting& level) noexcept;
    void OnWriting(u32 now) noexcept;
    void OnWritten(u32 clients) noexcept;
    // --- the pump, now and then ---
    void OnClients(u64 count) noexcept { clients_.store(count, std::memory_order_relaxed); }
    void OnPipe(Platform::SystemError error) noexcept { pipeError_.store(error, std::memory_order_relaxed); }
    void OnLevel(const LevelSetting& level) noexcept;
    // A file of the music, or of an announcement, ended where a read failed. By the name that its reader has: what is
    // to play may be another one by now.
    void OnBroken(const std::string& file, Platform::SystemError error);
    // --- the pump at an end of content, and the configuration events; may wait for the disk ---
    void OnMusic(const std::string& name);
    void OnAnnouncement(const std::string& file);
    void OnPause();
    // --- the configuration events ---
    // The row has changed in a way that leaves the channel standing.
    void OnRow(FeedRow row);
    // --- the constructor of the channel ---
    void OnThread(bool started) noexcept { hasThread_.store(started, std::memory_order_relaxed); }

private:
    void CheckContent(const std::string& name);
    void SetBad(const std::string& name, std::string reason) ORV_REQUIRES(mutex_);

    const i32 instanceId_;

    std::atomic<bool> hasThread_{false};
    std::atomic<u64> clients_{0};
    std::atomic<u64> blocks_{0};
    std::atomic<u64> blocksSent_{0};
    std::atomic<u64> silentBlocks_{0};
    std::atomic<u64> lateBlocks_{0};
    std::atomic<u64> announcements_{0};
    std::atomic<u32> writingSince_{0};  // 0: no write
    std::atomic<float> gain_{1.0F};
    std::atomic<i16> peak_{0};
    std::atomic<LevelSetting> level_{LevelSetting{}};
    std::atomic<Platform::SystemError> pipeError_{0};

    mutable Platform::Mutex mutex_;  // for a copy of a text or the row, with no lock inside it
    FeedRow row_ ORV_GUARDED_BY(mutex_);
    std::string music_ ORV_GUARDED_BY(mutex_);
    std::string announcement_ ORV_GUARDED_BY(mutex_);
    std::string badContent_ ORV_GUARDED_BY(mutex_);
    std::string badReason_ ORV_GUARDED_BY(mutex_);
    u64 badSince_ ORV_GUARDED_BY(mutex_) = 0;
};

// Whether channels are to make reports. Set before the first one is built; no at first.
void WantFeedReports(bool wanted);
bool FeedReportsWanted();

}  // namespace Orv
