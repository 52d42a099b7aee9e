// The locks that all feeds share, for who looks whether each can be had.
#pragma once

#include <span>

namespace Orv {

struct SharedLock {
    const char* name;  // for people
    // Takes it and gives it back. Any thread. That of the default stream may be left as the last holder of a box that
    // has been taken off the air, and waits for the end of its thread then.
    void (*take)();
};

// Each lock that the process has once, that feeds want in order to be built, to change or to play, and that nobody
// holds for longer than moments, whatever disk, network or client hangs. The log's is held while a line is written:
// where its disk takes nothing, every feed stands at its next line. docs/architecture.md tells which locks are not
// among them, and why.
std::span<const SharedLock> SharedLocks();

}  // namespace Orv
