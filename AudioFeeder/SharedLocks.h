// The locks that all feeds share, for who looks whether each can be had.
#pragma once

#include <span>

namespace Orv {

struct SharedLock {
    const char* name;  // for people
    void (*take)();    // takes it and gives it back; waits for nothing else. Any thread
};

// Each lock that the process has once, that feeds want in order to be built, to change or to play, and that nobody
// holds for longer than moments, whatever disk, network or client hangs. docs/architecture.md tells which locks are
// not among them, and why.
std::span<const SharedLock> SharedLocks();

}  // namespace Orv
