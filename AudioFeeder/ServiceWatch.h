// Gives the service manager its sign of life and tells it of feeds that wait.
#pragma once

#include <atomic>
#include <string>

#include "AudioFeeder/WatchRules.h"
#include "Platform/Sync.h"
#include "Platform/Thread.h"
#include "Platform/Types.h"

namespace Orv {

// Two threads while it lives: "watch" looks at the pumps each second, pings the watchdog if the manager wants that and
// nothing is stuck, and tells the state when it changes; "watch locks" takes the SharedLocks(), one by one, so that
// one that cannot be had is seen. Nothing here ever waits for a pump.
class ServiceWatch {
public:
    // Throws std::system_error when a thread cannot be started.
    ServiceWatch();
    // Ends both threads, as soon as the lock that is being taken can be had.
    ~ServiceWatch();
    ServiceWatch(const ServiceWatch&) = delete;
    ServiceWatch& operator=(const ServiceWatch&) = delete;

    // From here on the state is that of a service that stops. Any thread.
    void SetStopping() noexcept { stopping_.store(true, std::memory_order_relaxed); }

private:
    void Watch();
    void TakeLocks();
    // The lock of this moment, and for how long it has been waited for.
    LockWait LockNow(u64 now) const noexcept;

    const u32 watchdogMilliseconds_;
    std::atomic<bool> stopping_{false};
    // Which lock is being taken, and since when (0: none). Written one after the other by one thread; whoever reads an
    // old time beside a new name sees a lock that was had after all.
    std::atomic<const char*> lockName_{""};
    std::atomic<u64> lockSince_{0};
    Platform::Event stop_;
    Platform::Thread watchThread_;
    Platform::Thread lockThread_;
};

}  // namespace Orv
