// Thousands of clients of pipes on one thread. Each block's arrival is held against the feed's 125 ms grid.
//
// The grid of a feed begins with its first client: the pump sends three blocks at once then, the first of them 275 ms
// overdue. Block k is due k times 125 ms after that. A pump that looks at its clock each 100 ms is up to 100 ms late
// and never early.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/orv-load/Common.h"
#include "bench/orv-load/Histogram.h"

namespace OrvLoad {

// Blocks of one client, as they arrive: number since its first one, 2000 bytes, arrival. On the listeners' thread.
using BlockTap = std::function<void(u64 block, const u8* data, i64 arrival)>;

struct Seat {
    std::string path;   // of the pipe's socket
    u32 feed = 0;       // seats of one feed share its grid
    BlockTap tap = {};  // may be empty
};

// What was heard between BeginWindow() and EndWindow().
struct Heard {
    i64 length = 0;
    u64 clients = 0;       // that were attached at its end
    u64 blocks = 0;        // whole blocks
    u64 silentBlocks = 0;  // of them all zeros
    u64 lateBlocks = 0;    // later than one block's time
    u64 missing = 0;       // due more than 250 ms before the end and not there
    u64 torn = 0;          // clients whose bytes at the end are no whole blocks
    u64 ended = 0;         // clients that saw the end of the stream
    i64 drift = 0;         // whole blocks by which the worst client was behind the grid in the last 5 seconds, at best
    i64 earliest = 0;      // how far a block came before its time; 0 when none did
    i64 ownTime = 0;       // processor time of the listeners' thread
    Histogram lateness;
};

class Listeners {
public:
    // Looks for blocks every `period` nanoseconds, which makes each up to that much later than it was; with 0 the
    // kernel wakes the thread for each.
    explicit Listeners(i64 period);
    ~Listeners();
    Listeners(const Listeners&) = delete;
    Listeners& operator=(const Listeners&) = delete;

    // Attaches one client to each seat; those that find no pipe, or a full queue, try on. The index of the first.
    u32 Attach(std::vector<Seat> seats);
    // Whether every client has its first block; waits for it.
    bool WaitForFirstBlocks(i64 nanoseconds);
    void BeginWindow();
    Heard EndWindow();

    u64 BlocksOf(u32 client) const;
    // When a client had its first block and when it saw the end; 0 before.
    i64 FirstBlockAt(u32 client) const;
    i64 EndedAt(u32 client) const;
    u64 Ended() const;
    u64 Count() const;
    // Closes all of them.
    void DetachAll();

private:
    struct Client {
        int descriptor = -1;
        Seat seat;
        u64 bytes = 0;
        i64 firstBlockAt = 0;
        i64 endedAt = 0;
        i64 gridStart = 0;          // when its block 0 was due
        bool gridIsGuess = false;   // of a later client of the feed
        i64 leastNow = INT64_MAX;   // least lateness in this slice of the window
        i64 leastLast = INT64_MAX;  // and in the one before
        std::vector<u8> part;       // of a block, for the tap
    };

    void Run();
    void ConnectPending();
    bool Connect(u32 index);
    void ReadReady();
    void Receive(Client& client);
    void TakeBlocks(Client& client, const u8* data, u64 size, i64 arrival);
    void BeginGrid(Client& client, i64 arrival);
    static i64 LatenessOf(Client& client, u64 block, i64 arrival);
    void Account(Client& client, u64 block, i64 arrival);
    void Feed(Client& client, const u8* data, u64 size, i64 arrival) const;
    void End(Client& client);
    void RollSlices(i64 now);

    const i64 period_;
    int epoll_ = -1;
    mutable std::mutex mutex_;  // guards all below
    std::vector<Client> clients_;
    std::vector<u32> pending_;
    std::vector<i64> gridOfFeed_;  // 0: none yet
    u64 withoutFirstBlock_ = 0;
    u64 ended_ = 0;
    bool inWindow_ = false;
    i64 windowBegin_ = 0;
    i64 sliceBegin_ = 0;
    i64 ownTimeBegin_ = 0;
    Heard heard_;

    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace OrvLoad
