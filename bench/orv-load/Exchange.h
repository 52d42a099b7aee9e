// The system under load: real programs, real files, in a folder of their own.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Tools/orvctl/Connection.h"
#include "bench/orv-load/Child.h"
#include "bench/orv-load/Listeners.h"

namespace OrvLoad {

struct ExchangeOptions {
    std::string binaries;      // folder of orv-config and orv-audio-feed
    std::string music;         // folder of *.wav and *.raw
    u32 pieces = 5;            // so many of them, in alphabetical order
    std::string announcement;  // one file; empty: none
    u32 announcementRows = 1;  // rows that play it: of n + 1 draws one is a pause
    u32 feeds = 100;
    std::string type = "mixed";  // sorted, shuffled, mixed (every other one), default, marked, counted (see Marks.h)
    bool announcements = true;   // each feed plays them, after pauses of 2 to 8 seconds
    i32 minPause = 2;
    i32 maxPause = 8;
    i32 limit = 50;  // level limit of all feeds in percent; 0: none
    bool nonstop = false;
    i32 logLevel = 1;
    bool keep = false;  // the folder
    // A folder for the sounds, so that they can lie on another file system than the rest; empty: with the rest.
    std::string soundsIn;
};

// The first file of a folder of music, in alphabetical order; throws when there is none.
std::string FirstPiece(const std::string& folder);

// Whether the file system of that file tells what it has in the page cache (reads that do not wait), as the service
// asks for it.
bool HasCachedReads(const std::string& file);

// For Exchange::Apply(): one column of one feed.
Orv::Change FeedChange(u32 feed, const char* column, i32 value);

class Exchange {
public:
    // Starts the Configuration service and puts all feeds into its tables.
    explicit Exchange(const ExchangeOptions& options);

    struct BuildTimes {
        i64 fromStart = 0;       // of the program to the last pipe
        i64 fromConnection = 0;  // of the program to the Configuration service, to the last pipe
    };
    // Starts the audio feed service and waits for every pipe.
    BuildTimes StartService(i64 timeout = 120 * kSecond);
    // Asks it to stop; the time to its exit.
    i64 StopService(i64 timeout);

    // One transaction.
    void Apply(const std::vector<Orv::Change>& changes);

    pid_t Service() const { return service_.Pid(); }
    bool ServiceRuns() { return service_.Running(); }
    std::string PipePath(u32 feed) const;
    // One seat per feed, `clients` of them in all, feed after feed.
    std::vector<Seat> Seats(u32 clients) const;
    std::string Prompts() const { return sounds_ ? sounds_->Path() : folder_ / "d/Data/Ivr/Prompts"; }
    std::string LogFolder() const { return folder_ / "d/Data/Logs"; }
    // Of the music.
    bool HasCachedReads() const;
    // Files below the log's backup folder.
    u64 BackedUpLogs() const;
    const ExchangeOptions& Options() const { return options_; }

private:
    void CopyMusic() const;
    void StartConfig();
    void WriteSettings() const;
    void FillTables();
    std::vector<Orv::Change> FeedRows(u32 first, u32 end) const;
    bool ServiceIsConnected();
    Orv::Connection& Admin();

    ExchangeOptions options_;
    RunFolder folder_;
    RunFolder pipes_;
    std::optional<RunFolder> sounds_;
    u32 port_ = 0;
    std::unique_ptr<VX::ILinkConnector> connector_;
    std::unique_ptr<Orv::Connection> admin_;
    Child config_;
    Child service_;
};

}  // namespace OrvLoad
