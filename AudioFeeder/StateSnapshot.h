// A look at the whole service, and its two written forms.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "AudioFeeder/ConfigurationState.h"
#include "AudioFeeder/FeedReport.h"
#include "Platform/ProcessFigures.h"

namespace Orv {

struct FeedState {
    std::shared_ptr<const FeedReport> report;
    FeedFigures figures;
};

struct StateSnapshot {
    std::string version;
    u64 uptimeMilliseconds = 0;
    Platform::ProcessFigures process;
    ConfigurationLink link = ConfigurationLink::Waiting;
    u64 linkMilliseconds = 0;  // for how long it has been so
    std::string defaultFile;
    std::string rootPath;
    LevelSetting level;  // for feeds without one of their own
    u64 announcements = 0;
    std::vector<FeedState> feeds;  // by pipe name
};

// Takes, one after the other and none inside another, the locks of the default audio file, of the root path, of the
// channel map and of each report, each for moments. Any thread; never waits for a pump or for the disk.
StateSnapshot TakeStateSnapshot();

// From now on the service's age counts.
void MarkServiceStart();

// One JSON object, in UTF-8: bytes that are none become U+FFFD. packaging/man/orv-status.5 tells each field, its unit
// and its range, and each metric below.
std::string WriteStateJson(const StateSnapshot& state);
// The same in the text format of Prometheus, version 0.0.4.
std::string WriteStateMetrics(const StateSnapshot& state);

// "up", "waiting", "lost".
const char* LinkWord(ConfigurationLink link);
// The same for people.
const char* LinkText(ConfigurationLink link);
// "playing", "idle" (no client, and the content stands still), "dead" (without a thread), "unserved" (without a pipe).
const char* FeedWord(const FeedFigures& figures);

}  // namespace Orv
