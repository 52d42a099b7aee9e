// What all channels share besides the announcements: plain values that the configuration sets and the pumps read.
#pragma once

#include <atomic>
#include <string>

#include "AudioFeeder/VolumeControl.h"
#include "Platform/Types.h"

namespace Orv {

// --- set by configuration events; any thread ------------------------------------------------------------------------

// Stores the file unless it is null or empty, and tells the default set about it.
void SetDefaultAudioFile(const char* file);
// The folder under which "Playlist" lies; "./" until set. Null keeps the old one, an empty text empties it.
void SetRootPath(const char* path);
// The global level limit, as a percentage that is clamped to 0 to 100.
void SetMaxVolume(i32 percent);
void SetAutogain(bool on);
// For how long a client may take nothing until it is ended; 0, as at first: without end. Counts for clients that come
// later; the service's thread, before there is a channel.
void SetClientStallSeconds(u32 seconds);

// --- read by the pumps; locks of moments at most --------------------------------------------------------------------

void GetDefaultAudioFile(std::string& file);
std::string RootPath();
// The level limit and the autogain that hold for feeds without a limit of their own. The two are set one by one, so a
// reader may meet a new limit beside an old autogain for one block.
LevelSetting GlobalLevelSetting() noexcept;
u32 ClientStallSeconds() noexcept;

// The number of the next channel; the first one is 1.
i32 NextInstanceId() noexcept;
// Threads that are inside IPipeFeed::Pump.
extern std::atomic<i32> runningPumpThreads;
// Ends all pump threads. Set once, at the end of the process, after IPipeManager::StopAll.
extern std::atomic<bool> channelsStopping;

}  // namespace Orv
