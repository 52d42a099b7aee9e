// Thousands of clients of pipes on one thread. Each block's arrival is held against the feed's 125 ms grid (Grid.h).
//
// The grid of a feed begins with its first client: the pump sends three blocks at once then, the first of them 275 ms
// overdue. A pump that looks at its clock each 100 ms is up to 100 ms late and never early.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/orv-load/Common.h"
#include "bench/orv-load/Grid.h"
#include "bench/orv-load/Histogram.h"

namespace OrvLoad {

// Blocks of one client, as they arrive: number since its first one, 2000 bytes, arrival. On the listeners' thread.
using BlockTap = std::function<void(u64 block, const u8* data, i64 arrival)>;

struct Seat {
    std::string path;   // of the pipe's socket
    u32 feed = 0;       // seats of one feed share its grid
    BlockTap tap = {};  // may be empty
    // Takes one block each 125 ms and leaves two waiting, as a program does that reads at the pace of the sound; else
    // whatever is there.
    bool paced = false;
};

// What was heard in a window: the blocks that came from its begin on, and of those that came after its end the ones
// that had been due before it. So each block that was due counts, however late it came.
struct Heard {
    i64 length = 0;
    u64 clients = 0;       // that were attached at its end
    u64 blocks = 0;        // whole blocks
    u64 silentBlocks = 0;  // of them all zeros
    u64 lateBlocks = 0;    // later than one block's time
    u64 missing = 0;       // due before its end and not there 2 seconds after it
    u64 torn = 0;          // clients whose bytes are no whole blocks then
    u64 ended = 0;         // clients that saw the end of the stream
    i64 drift = 0;         // whole blocks by which the worst client was off the grid: behind it in the best moment of
                           // the last 5 seconds, or ahead
    i64 earliest = 0;      // how far a block came before its time at least; 0 when none did beyond doubt
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
    void EndWindow();
    // Ends the window, unless it has ended, and waits for the blocks that were due in it, 2 seconds at most.
    Heard Collect();
    // Of a window, the first being 0, by the grids as they are known now: what compares two windows holds both against
    // the same.
    Histogram LatenessIn(u32 window) const;

    // Nobody takes anything until Resume().
    void Pause() { paused_ = true; }
    void Resume() { paused_ = false; }
    // From now on paced clients, too, take whatever is there.
    void Hurry() { hurried_ = true; }
    // Whether every client that is attached has the blocks that were due before that time.
    bool HaveAllBefore(i64 time) const;

    u64 BlocksOf(u32 client) const;
    // When a client had its first block and when it saw the end; 0 before.
    i64 FirstBlockAt(u32 client) const;
    i64 EndedAt(u32 client) const;
    u64 Ended() const;
    u64 Count() const;
    // Closes all of them.
    void DetachAll();

private:
    static constexpr i64 kNever = INT64_MAX;

    struct Client {
        int descriptor = -1;
        Seat seat;
        u64 bytes = 0;
        i64 askedAt = 0;  // before it connected
        i64 firstBlockAt = 0;
        i64 endedAt = 0;
        i64 nextRead = 0;            // of a paced client
        bool leads = false;          // the feed's first client, of which the grid is made
        u64 offset = 0;              // the feed's block that was its first; of a later client a guess
        std::deque<i32> afterFirst;  // of the blocks of all windows, Grid::AfterFirst() in microseconds
        std::vector<u64> windows;    // where in it each window begins
        std::vector<u8> part;        // of a block, for the tap
    };

    void Run();
    void ConnectPending();
    bool Connect(u32 index);
    void ReadReady();
    void ReadPaced();
    // Takes `most` bytes at most. Whether there were any.
    bool Receive(Client& client, u64 most);
    void TakeBlocks(Client& client, const u8* data, u64 size, i64 arrival);
    void TakePlace(Client& client, i64 arrival);
    Grid& GridOf(const Client& client) { return grids_[client.seat.feed]; }
    // Places a block on its feed's grid. Whether it counts in the window.
    bool Account(Client& client, u64 block, i64 arrival);
    void Feed(Client& client, const u8* data, u64 size, i64 arrival) const;
    void End(Client& client);
    u64 MissingOf(const Client& client, i64 time) const;
    u64 Missing() const;
    i64 Lateness(const Client& client, u64 sample) const;
    void Judge(const Client& client);

    const i64 period_;
    int epoll_ = -1;
    mutable std::mutex mutex_;  // guards all below
    std::vector<Client> clients_;
    std::vector<u32> pending_;
    std::vector<u32> paced_;
    std::vector<Grid> grids_;  // of the feeds
    u64 withoutFirstBlock_ = 0;
    u64 ended_ = 0;
    bool inWindow_ = false;
    i64 windowBegin_ = 0;
    i64 windowEnd_ = kNever;
    i64 ownTimeBegin_ = 0;
    u64 windows_ = 0;
    u64 endedBefore_ = 0;
    Heard heard_;

    std::atomic<bool> stop_{false};
    std::atomic<bool> paused_{false};
    std::atomic<bool> hurried_{false};
    std::thread thread_;
};

}  // namespace OrvLoad
