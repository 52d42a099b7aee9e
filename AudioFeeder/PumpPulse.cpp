#include "AudioFeeder/PumpPulse.h"

#include <map>
#include <utility>

#include "Platform/Sync.h"

namespace Orv {

namespace {

struct Pulses {
    Platform::Mutex mutex;
    std::map<u64, const PumpPulse*> alive ORV_GUARDED_BY(mutex);
    u64 lastId ORV_GUARDED_BY(mutex) = 0;
};

// Never destroyed: a pump may outlive everything else of the process.
Pulses& ThePulses() {
    static Pulses& pulses = *new Pulses;
    return pulses;
}

}  // namespace

PumpPulse::PumpPulse(std::string name) : name_(std::move(name)), wait_(Platform::ThisThreadWait()) {
    Pulses& pulses = ThePulses();
    Platform::LockGuard<Platform::Mutex> guard(pulses.mutex);
    id_ = ++pulses.lastId;
    pulses.alive.emplace(id_, this);
}

PumpPulse::~PumpPulse() {
    Pulses& pulses = ThePulses();
    Platform::LockGuard<Platform::Mutex> guard(pulses.mutex);
    pulses.alive.erase(id_);
}

bool PumpPulse::TryAll(std::vector<PumpState>& all) {
    Pulses& pulses = ThePulses();
    if (!pulses.mutex.TryLock()) return false;
    all.clear();
    all.reserve(pulses.alive.size());
    for (const auto& [id, pulse] : pulses.alive) {
        all.push_back({id, pulse->name_, pulse->passes_.load(std::memory_order_relaxed),
                       pulse->wait_.load(std::memory_order_relaxed)});
    }
    pulses.mutex.Unlock();
    return true;
}

void PumpPulse::TakeLock() {
    Platform::LockGuard<Platform::Mutex> guard(ThePulses().mutex);
}

}  // namespace Orv
