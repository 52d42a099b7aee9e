// When the service as a whole is stuck, and what is told of feeds that wait. Pure logic, one thread.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "AudioFeeder/PumpPulse.h"
#include "Platform/Types.h"

namespace Orv {

// So long without a lock, or without any pump's pass, and the service counts as stuck.
inline constexpr u64 StuckMilliseconds = 20'000;
// So long without a pass, and a feed that waits for somebody is told in the state.
inline constexpr u64 ToldMilliseconds = 5'000;

struct WatchVerdict {
    // A restart is the only help: no ping.
    bool stuck = false;
    // One sentence for the service manager's state.
    std::string text;
};

// The lock that all share and that is being waited for.
struct LockWait {
    u64 milliseconds = 0;  // 0: none is
    const char* name = "";
};

class WatchRules {
public:
    // One look at all pumps, by the steady clock.
    void LookAtPumps(u64 now, const std::vector<PumpState>& pumps);
    // By the last look, and by the lock that is waited for now. Stuck is a service whose lock cannot be had, or none of
    // whose pumps goes on although some have waited neither for a client nor for a disk for as long. A feed alone never
    // makes it stuck, nor do all of them when each one waits for its own.
    WatchVerdict Judge(const LockWait& lock, bool stopping) const;

private:
    struct Seen {
        u32 passes = 0;
        u64 since = 0;        // when that number was new
        u64 lastExcused = 0;  // the last look at which it was new, or the pump waited for somebody
        u64 look = 0;
    };
    std::unordered_map<u64, Seen> seen_;
    u64 looks_ = 0;
    // What the last look found.
    bool noneGoesOn_ = false;
    std::vector<std::string> forClient_;
    std::vector<std::string> forDisk_;
};

}  // namespace Orv
