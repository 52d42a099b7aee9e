// What all feeds of the model share, and how the model says that something is wrong.
#pragma once

#include <deque>
#include <map>
#include <string>

#include "tests/sim/LogLevels.h"
#include "tests/sim/ModelBox.h"
#include "tests/sim/ModelDisk.h"
#include "tests/sim/ModelNames.h"
#include "tests/sim/ModelVolume.h"
#include "tests/sim/Rows.h"

namespace OrvSim {

// What a run has seen and judged.
struct Counts {
    u64 blocks = 0;       // made by pumps, heard or not
    u64 blocksHeard = 0;  // writes of blocks compared with the model, byte by byte
    u64 naps = 0;         // passes of a pump without a block, each exactly 100 ms
    u64 clientBytes = 0;  // read by clients and compared with what was sent to them
    u64 clients = 0;
    u64 stalledClients = 0;
    u64 rests = 0;      // a feed that had played and then held its position
    u64 lateReads = 0;  // lines of silence for a late disk
    u64 announcements = 0;
    u64 files = 0;    // music files begun
    u64 changes = 0;  // delivered, rows
    u64 softUpdates = 0;
    u64 rebuilds = 0;
    u64 diskFaults = 0;
    u64 socketFaults = 0;
    u64 nameClashes = 0;  // tries to serve a name that another feed has, in another case
    u64 nameTakeovers = 0;
    u64 threadFaults = 0;
    u64 clockTurns = 0;  // of the wall clock
    u64 linksLost = 0;
    u64 slowCalls = 0;
    u64 tableChecks = 0;
    u64 levelChanges = 0;  // of the log
    u64 sources = 0;       // times that somebody served live sound
    u64 sourceStalls = 0;
    u64 brokenReads = 0;      // of live sources
    u64 refusedConnects = 0;  // to live sources that were there
    u64 sourceBytes = 0;
    u64 liveBlocks = 0;  // made of live sound, alone or mixed
    u64 logLines = 0;
    void Add(const Counts& other);
};

class ModelWorld {
public:
    explicit ModelWorld(Platform::Sim::SimFiles& simFiles) : disk(simFiles), files(disk, live), box(files, levels) {
        disk.beforeChange = [this] { box.CatchUp(Now()); };
    }

    static u64 Now();
    // Keeps the first one.
    void Fail(const std::string& what);
    bool Failed() const { return !failure.empty(); }
    // A value from a to b by the rule, from the raw values that the thread has drawn; complains when there are none.
    i32 Uniform(u64 thread, i32 a, i32 b);
    // The next key that the thread has drawn for a shuffle; complains when there is none.
    i32 ShuffleKey(u64 thread);

    LogLevels levels;  // in force now
    ModelNames names;
    ModelDisk disk;
    LiveSources live;
    u64 sourceVanished = 0;  // when one did last
    SharedFiles files;
    BoxModel box;
    Level global;
    std::string defaultFile;
    std::string root;
    std::map<std::string, Row> announcements;
    std::map<u64, std::deque<u32>> draws;
    std::map<u64, std::deque<i32>> shuffleKeys;
    // So many starts of a pump must fail.
    u32 threadFailures = 0;
    // Whether the model follows every byte; otherwise only what holds whatever the order of the threads.
    bool exact = true;
    std::string failure;
    u64 failedAt = 0;
    Counts counts;
};

}  // namespace OrvSim
