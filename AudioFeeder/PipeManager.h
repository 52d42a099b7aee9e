// The owner of all channels, and the configuration events that make, change and end them.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "AudioFeeder/FeedRow.h"
#include "AudioFeeder/PipeFeed.h"
#include "Platform/Sync.h"
#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"
#include "Projects/Common/VoIPFileEngine/MusicBox.h"
#include "ServiceProcess/MTReferencedTypeBase.h"

namespace Orv {

// One per process. All operations come from configuration events; they take turns (EventTurn.h), and they wait for the
// threads of channels that they end. No pump calls in here.
class IPipeManager : public MTObjects::MTReferencedTypeBase {
public:
    // The holder of the single manager, which is made when there is no valid one, with the default set on the air. A
    // thread of that which cannot be started is logged, not thrown: see UpdateDefaultSet(). Any thread.
    static MTObjects::THolder<IPipeManager>& Instance();
    // The single manager if it has been made, for who only looks. Any thread.
    static MTObjects::THolder<IPipeManager> Existing();

    ~IPipeManager() override;

    // A row is new or has changed; an empty old row means that it is new. A change of volume only reaches the running
    // channel and starts its content anew; any other change builds a new channel. True.
    bool UpdateFeed(const FeedRow& newRow, const FeedRow& oldRow);
    // Ends the channel of the row's `pipename`, if there is one. True.
    bool ShutdownFeed(const FeedRow& row);
    // Ends every channel and takes the default set off the air. True.
    bool ShutdownAll();
    // Puts the default set back on the air if it is off, as it is without its thread, and lets it repeat `file` unless
    // that is null or empty. Feeds of the default set that were built while it was off hear it from their next change.
    void UpdateDefaultSet(const char* file);

    // What each channel tells about itself, by pipe name; nothing unless that is wanted. Any thread. A channel itself
    // is never held here: one that is held on would keep its pipe's name from its successor.
    std::vector<std::shared_ptr<const FeedReport>> Reports();
    // Takes the lock of the channels' map for a moment: for who looks whether it can be had. Any thread.
    void TakeChannelMapLock();

    // Reads the parameters, the feeds and the announcements from the tables and builds everything. Creates the manager.
    static void ReloadAll();
    // Ends all channels and forgets all announcements. The shared values stay.
    static void StopAll();
    // The last step of the process's end, after StopAll and channelsStopping: gives the pump threads 30 seconds.
    static void WaitForChannels();

protected:
    bool TestValid() const override { return true; }

private:
    using FeedHolder = MTObjects::THolder<IPipeFeed>;

    IPipeManager();
    void RegisterDefaultSet();
    FeedHolder FindFeed(const std::string& pipeName);
    FeedHolder FirstFeed(std::string& pipeName);
    void ShutdownFeed(const std::string& pipeName);
    void ReleaseDefaultSet();

    std::map<std::string, FeedHolder> channelMap_ ORV_GUARDED_BY(channelMapMutex_);
    Platform::RecursiveMutex channelMapMutex_;  // for lookups, inserts and erases only

    // Both under a turn.
    MTObjects::THolder<IMMStreamManager> defaultSetReader_;
    MTObjects::THolder<IMusicBox> defaultMusicBox_;
};

}  // namespace Orv
