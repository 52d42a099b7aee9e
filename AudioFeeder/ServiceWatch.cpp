#include "AudioFeeder/ServiceWatch.h"

#include <algorithm>

#include "AudioFeeder/SharedLocks.h"
#include "Platform/Clock.h"
#include "Platform/ServiceControl.h"

namespace Orv {

namespace {

constexpr u32 kLookMilliseconds = 1'000;
// A ping that comes late by a whole look is still in time.
constexpr u32 kPingsPerWatchdog = 4;

}  // namespace

ServiceWatch::ServiceWatch()
    : watchdogMilliseconds_(Platform::WatchdogMilliseconds()), watchThread_("watch", [this] { Watch(); }) {
    try {
        lockThread_ = Platform::Thread("watch locks", [this] { TakeLocks(); });
    } catch (...) {
        stop_.Set();
        watchThread_.Join();
        throw;
    }
}

ServiceWatch::~ServiceWatch() {
    stop_.Set();
    lockThread_.Join();
    watchThread_.Join();
}

LockWait ServiceWatch::LockNow(u64 now) const noexcept {
    const u64 since = lockSince_.load(std::memory_order_acquire);
    return {since != 0 && now > since ? now - since : 0, lockName_.load(std::memory_order_relaxed)};
}

void ServiceWatch::Watch() {
    WatchRules rules;
    std::vector<PumpState> pumps;
    std::string told;
    bool pinged = false;
    u64 lastPing = 0;
    const u32 interval = watchdogMilliseconds_ / kPingsPerWatchdog;
    const u32 look = watchdogMilliseconds_ != 0 ? std::clamp(interval / 2, 1u, kLookMilliseconds) : kLookMilliseconds;
    do {
        const u64 now = Platform::SteadyMilliseconds();
        if (PumpPulse::TryAll(pumps)) rules.LookAtPumps(now, pumps);
        const WatchVerdict verdict = rules.Judge(LockNow(now), stopping_.load(std::memory_order_relaxed));
        if (watchdogMilliseconds_ != 0 && !verdict.stuck && (!pinged || now - lastPing >= interval)) {
            Platform::PingWatchdog();
            pinged = true;
            lastPing = now;
        }
        // The plain words are the service's own to say, unless they take others back.
        const bool plain = verdict.text.find(';') == std::string::npos;
        if (verdict.text != told && !(plain && told.find(';') == std::string::npos)) {
            Platform::SetServiceText(verdict.text);
        }
        told = verdict.text;
    } while (!stop_.WaitFor(look));
}

void ServiceWatch::TakeLocks() {
    do {
        for (const SharedLock& lock : SharedLocks()) {
            lockName_.store(lock.name, std::memory_order_relaxed);
            lockSince_.store(Platform::SteadyMilliseconds(), std::memory_order_release);
            lock.take();
            lockSince_.store(0, std::memory_order_relaxed);
        }
    } while (!stop_.WaitFor(kLookMilliseconds));
}

}  // namespace Orv
