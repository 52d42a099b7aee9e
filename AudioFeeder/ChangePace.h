// How fast changes follow one another. A transaction may hold thousands of them, and the blocks of feeds that none of
// them concerns are due meanwhile.
#pragma once

#include "Platform/Types.h"

namespace Orv {

// Of one thread. Changes that follow one another leave the pumps as much time as they take themselves: 2 ms of work, 2
// ms of rest. One that comes by itself has no rest before it.
class ChangePace {
public:
    // Around each change. End() may sleep for 2 ms: no lock is held and no turn.
    void Begin() noexcept;
    void End();

private:
    // Steady milliseconds: of the first change since the last rest or gap, and of the end of the last one.
    u64 begin_ = 0;
    u64 end_ = 0;
};

}  // namespace Orv
