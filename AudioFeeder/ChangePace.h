// How fast changes follow one another. A transaction may hold thousands of them, and the blocks of feeds that none of
// them concerns are due meanwhile.
#pragma once

#include <atomic>

#include "Platform/Types.h"

namespace Orv {

// Changes that follow one another leave the pumps a rest: 2 ms after each 2 ms of work, and no more after one that
// takes longer by itself. The first one after a gap has no rest before it. Any thread.
class ChangePace {
public:
    // Around each change. End() may sleep for 2 ms: no lock is held and no turn.
    void Begin() noexcept;
    void End();
    // Nothing was before, as in a new process. While no change is made.
    void Reset() noexcept;

private:
    // Steady milliseconds: of the first change since the last rest or gap, and of the end of the last one. Threads that
    // make changes at once only blur each other's pace, so that no order is needed.
    std::atomic<u64> begin_{0};
    std::atomic<u64> end_{0};
};

}  // namespace Orv
