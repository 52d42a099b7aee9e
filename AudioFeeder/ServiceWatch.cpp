#include "AudioFeeder/ServiceWatch.h"

#include <algorithm>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/SharedValues.h"
#include "AudioFeeder/WatchRules.h"
#include "Platform/Clock.h"
#include "Platform/ServiceControl.h"
#include "Projects/Common/VoIPFileEngine/MusicBox.h"
#include "ServiceProcess/Log.h"

namespace Orv {

namespace {

constexpr u32 kLookMilliseconds = 1'000;
// A ping that comes late by a whole look is still in time.
constexpr u32 kPingsPerWatchdog = 4;

// Each takes one lock for a moment.
void TakeLogLock() {
    LogWriter& log = LogWriter::Instance();
    log.Lock();
    log.Unlock();
}
void TakeRootPathLock() {
    RootPath();
}
void TakeDefaultFileLock() {
    std::string file;
    GetDefaultAudioFile(file);
}
void TakeAnnouncementLock() {
    FeedRow row;
    AnnouncementTable::Instance().RowAt(0, row);
}
void TakeMusicBoxLock() {
    FindMusicBox(std::string());  // there is none of that name, so that nothing is held
}
void TakeChannelMapLock() {
    const auto manager = IPipeManager::Existing();
    if (manager.IsValid()) manager->HoldChannelMap([] {});
}

constexpr void (*kSharedLocks[])() = {TakeLogLock,          TakeRootPathLock, TakeDefaultFileLock,
                                      TakeAnnouncementLock, TakeMusicBoxLock, TakeChannelMapLock};

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

u64 ServiceWatch::LockMilliseconds(u64 now) const noexcept {
    const u64 since = lockSince_.load(std::memory_order_relaxed);
    return since != 0 && now > since ? now - since : 0;
}

void ServiceWatch::Watch() {
    WatchRules rules;
    std::string told;
    bool pinged = false;
    u64 lastPing = 0;
    const u32 interval = watchdogMilliseconds_ / kPingsPerWatchdog;
    const u32 look = watchdogMilliseconds_ != 0 ? std::clamp(interval / 2, 1u, kLookMilliseconds) : kLookMilliseconds;
    do {
        const u64 now = Platform::SteadyMilliseconds();
        const WatchVerdict verdict =
            rules.Look(now, PumpPulse::All(), LockMilliseconds(now), stopping_.load(std::memory_order_relaxed));
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
        for (const auto take : kSharedLocks) {
            lockSince_.store(Platform::SteadyMilliseconds(), std::memory_order_relaxed);
            take();
            lockSince_.store(0, std::memory_order_relaxed);
        }
    } while (!stop_.WaitFor(kLookMilliseconds));
}

}  // namespace Orv
