// One audio channel: one row of AUDIOFEED, one pipe, one thread.
#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <string>

#include "AudioFeeder/ChannelConnection.h"
#include "AudioFeeder/FeedReport.h"
#include "AudioFeeder/FeedRow.h"
#include "AudioFeeder/PipeListener.h"
#include "AudioFeeder/Playlist.h"
#include "AudioFeeder/PumpPulse.h"
#include "AudioFeeder/VolumeControl.h"
#include "Platform/Sync.h"
#include "Platform/Thread.h"
#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"

namespace Orv {

// The values of the column `feedtype`: what the main list plays.
enum class FeedType : i32 {
    DefaultSet = 0,  // the shared music box
    LineIn = 1,      // there is none: says so and plays the shared music box
    Shuffled = 2,    // the files of the feed's folder, shuffled
    Sorted = 3,      // the same, sorted
};

// Pulls blocks of sound from its stream set at real-time pace and writes each to every client; tells the set what to
// play next when something has ended; serves its pipe between blocks. Without clients it holds its content where it
// stands, unless the row has `nonstop`. A `feedtype` outside the known ones gives silence.
//
// Constructor, destructor, Shutdown(), Start(), SetFeedLevel() and TellRow() belong to the configuration events, one at
// a time; everything else runs on the pump thread. The thread uses the object without a reference: the destructor joins
// it.
class IPipeFeed final : public IContentPlayListener {
public:
    // Sets up the content and starts the pump. May wait for the disk. A thread that cannot be started leaves a channel
    // that does nothing, and is logged.
    explicit IPipeFeed(const FeedRow& row);
    ~IPipeFeed() override;

    // Stops the pump, which closes all connections, and waits for its end: moments, but as long as a client that takes
    // nothing holds a write, which ClientStallSeconds() bounds. Repeatable. On the pump thread itself it throws
    // std::system_error.
    void Shutdown();
    // Gives both lists their first content, at construction and again at a soft update, where the pump may be running.
    void Start();
    // The feed's own limit and autogain, taken up as a pair at the next block. A limit of 0 means that the global pair
    // counts.
    void SetFeedLevel(const LevelSetting& level) noexcept;
    // The row to tell from now on. The channel itself keeps the one that it was built from.
    void TellRow(const FeedRow& row);

    // Something has ended; gives its list the next content. May wait for the disk.
    void OnContentEvent(const ContentEvent& event) override;

    i32 InstanceId() const noexcept { return instanceId_; }
    // What the channel tells about itself; null unless that is wanted. May be held for longer than the channel lives.
    std::shared_ptr<const FeedReport> Report() const noexcept { return report_; }

protected:
    bool TestValid() const override { return true; }

private:
    // --- the pump (PipeFeed.cpp) ---
    // Between two ends of content, no step of a block allocates, opens or lists files, or formats text that the log's
    // level drops; the write to a client is the only place that may block.
    void Pump();
    bool ServiceListener();
    const u8* ProduceBlock(ContentEventList& events);
    void ReportBlock(const u8* block, bool late) noexcept;
    const u8* ControlVolume(const u8* frame);
    void SendToAll(const u8* block);
    bool MustStop() const noexcept;
    // The pump's only wait: 100 ms, cut short by Shutdown().
    void Nap() { stopRequest_.WaitFor(100); }
    LevelSetting LevelThatCounts() const noexcept;

    // --- content (PipeFeedContent.cpp) ---
    bool BuildPlaylist(bool sorted);
    std::list<StreamItem> TakeMusicItems();
    void NextMusic();
    void NextAnnouncement();
    void NextPause();
    void PlayPause(i32 seconds);
    i32 DrawPause() const;
    void SwitchMusic(const std::list<StreamItem>& items);
    void SwitchOverlay(u32 id, const std::list<StreamItem>& items);
    bool IsSorted() const noexcept { return feedType_ == static_cast<i32>(FeedType::Sorted); }

    // Constant after construction. The row is never replaced; what its columns say is kept beside it.
    const i32 instanceId_;
    const FeedRow row_;
    const std::string logPrefix_;
    const i32 feedType_;
    const bool playAnnouncements_;
    const bool nonstop_;
    const std::shared_ptr<FeedReport> report_;            // null when nobody wants to know
    u8 blockBuffer_[BlockBytes] = {};                     // the pump's own; outlives the stream set that fills it
    MTObjects::THolder<IMMStreamManager> streamManager_;  // set by the first Start(); empty for an unknown feedtype

    // Shared, each synchronised by itself.
    std::atomic<LevelSetting> feedLevel_;    // limit and autogain change together
    std::atomic<u8> announcementMask_{0};    // mix mask for the end of an announcement's lead-in
    std::atomic<bool> stopFlag_{false};      // set by Shutdown()
    Platform::Event stopRequest_;            // wakes the pump for stopFlag_
    ContentGiver contentGiver_;              // Start() for as long as it runs
    Platform::RecursiveMutex playlistLock_;  // BuildPlaylist() and next music are whole under it
    Playlist playlist_;                      // Start() takes a file out without playlistLock_

    // The pump's own.
    VolumeControl volume_;
    PipeListener listener_;
    std::list<ChannelConnection> connections_;

    Platform::Thread pumpThread_;
};

}  // namespace Orv
