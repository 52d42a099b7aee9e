// The whole life of the service in a simulated world: its process entry, the connection, tables, channels of every
// kind, sound, changes, the stop. Everything in it has a name that tells which feed it is about.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/AudioFeeder/FakeConfigService.h"
#include "tests/AudioFeeder/FeederWorld.h"

namespace FeederTest {

struct LifeStory {
    i32 exitCode = 99;  // of the process
    // By pipe: what a client heard from the begin to the end, and how much one heard that came shortly before the end.
    std::map<std::string, Samples> heard;
    std::map<std::string, std::size_t> heardLast;
    std::vector<std::string> served;  // pipes, shortly before the end
    std::vector<LogLine> log;
    std::vector<std::string> tableFaults;  // where the service's tables are not those of the Configuration service
    std::vector<u32> states;               // told to the service manager
    std::string leftOver;                  // files, pipes and threads that outlived it; empty is right
    std::string state;                     // what it told of itself on its socket

    u64 CountLog(const std::string& part) const;
};

// Feeds: "sorted" and "shuffled" play folders, "default" the default stream, "talking" announcements over its folder,
// one of them the live sound of "held", which plays a file held in memory. Changes: "sorted" is set softly, "shuffled"
// rebuilt, "late" inserted, "talking" gets its second announcement; a transaction inserts "batched" and removes "gone".
extern const std::vector<std::string> LifeFeeds;  // that stand when the changes are over
// Threads of the test beside the service.
extern const std::vector<std::string> LifeTestThreads;

// Lives it. `begin` is called on the main simulated thread right before the process entry, `end` right after it with
// the exit code; one that is not 0 leaves threads behind, so that nothing but the end of the process may follow.
LifeStory Live(bool asService, const std::function<void()>& begin, const std::function<void(i32)>& end);

}  // namespace FeederTest
