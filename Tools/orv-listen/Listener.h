// Listens to one feed: keeps the connection, counts, measures, and hands the sound on without ever stalling the feed.
#pragma once

#include <atomic>
#include <string>

#include "Platform/Types.h"
#include "Tools/orv-listen/StreamSinks.h"

namespace Orv {

enum ListenExit : i32 {
    ListenDone = 0,          // all that was asked for, stopped by the user, or standard output has lost its reader
    ListenOutputFailed = 1,  // the output takes no more
    ListenBadUsage = 2,
    ListenNoFeed = 3,  // nobody serves that pipe
    ListenCutOff = 4,  // the feed ended before the time asked for
};

struct ListenOptions {
    std::string name;
    std::string wavPath;   // empty: none
    std::string fifoPath;  // empty: none
    double seconds = 0.0;  // of sound; 0: no limit
    bool meter = false;
    // Waits for the feed and connects again, and meanwhile the outputs get silence, so that they always get real time.
    bool follow = false;
    bool rawToStandardOutput = false;
    StreamFormat format;  // of standard output and the FIFO
};

// Runs until done. `stop` may be set from any thread. Exit codes as above.
i32 Listen(const ListenOptions& options, std::atomic<bool>& stop);

}  // namespace Orv
