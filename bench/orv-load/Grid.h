// The 125 ms grid of one feed, found from what its first client hears.
//
// Block k is due k times 125 ms after the grid's begin, which the pump puts 275 ms before the moment at which it takes
// the client. The tool cannot see that moment. It sees blocks, each some time after it was sent, and the first one as
// late as any other. A block is never early, so the begin is the earliest that any block allows: the least of
// `arrival - k * 125 ms` of all blocks since the first, which itself allows 275 ms before its arrival.
//
// Lateness is thereby what a block comes later than the best of its stream did: a delay that all blocks share is not in
// it, and one block that the tool saw late makes no other look early. What comes before its time moves the begin, which
// makes all others later; how far, beyond doubt, is Early().
#pragma once

#include <algorithm>

#include "bench/orv-load/Common.h"

namespace OrvLoad {

class Grid {
public:
    bool HasBegun() const { return first_ != 0; }
    // `asked` is before the client connected: the pump cannot have taken it before that. Its clock has whole
    // milliseconds.
    void Begin(i64 asked, i64 firstArrival) {
        earliest_ = asked - kFirstBlockOverdue - kMillisecond;
        first_ = begin_ = firstArrival - kFirstBlockOverdue;
    }
    // A block of the first client.
    void Hold(u64 block, i64 arrival) { begin_ = std::min(begin_, arrival - TimeOf(block)); }

    i64 DueAt(u64 block) const { return begin_ + TimeOf(block); }
    // How much later than by the first block's grid, which stays as it was: below 0 for a block that moves the begin.
    i64 AfterFirst(u64 block, i64 arrival) const { return arrival - first_ - TimeOf(block); }
    // What has to be added to that for the lateness.
    i64 Moved() const { return first_ - begin_; }
    // Blocks that are due before that time.
    u64 BlocksBefore(i64 time) const {
        return time <= begin_ ? 0 : static_cast<u64>((time - begin_ + kBlockTime - 1) / kBlockTime);
    }
    // By how much a block came before its time, whenever the pump took the client; 0 when that cannot be said.
    i64 Early() const { return std::max<i64>(0, earliest_ - begin_); }

private:
    static i64 TimeOf(u64 block) { return static_cast<i64>(block) * kBlockTime; }

    i64 earliest_ = 0;
    i64 first_ = 0;
    i64 begin_ = 0;
};

}  // namespace OrvLoad
