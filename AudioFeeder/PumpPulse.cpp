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

ContentGiver::Scope::Scope(ContentGiver& giver) : giver_(giver) {
    Platform::LockGuard<Platform::Mutex> guard(ThePulses().mutex);
    giver_.wait_ = &Platform::ThisThreadWait();
}

ContentGiver::Scope::~Scope() {
    Platform::LockGuard<Platform::Mutex> guard(ThePulses().mutex);
    giver_.wait_ = nullptr;
}

PumpPulse::PumpPulse(std::string name, const ContentGiver& giver)
    : name_(std::move(name)), wait_(Platform::ThisThreadWait()), giver_(giver) {
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
        all.push_back({id, pulse->name_, pulse->passes_.load(std::memory_order_relaxed), pulse->Wait()});
    }
    pulses.mutex.Unlock();
    return true;
}

Platform::ThreadWait PumpPulse::Wait() const {
    const Platform::ThreadWait own = wait_.load(std::memory_order_relaxed);
    if (own != Platform::ThreadWait::None || giver_.wait_ == nullptr) return own;
    return giver_.wait_->load(std::memory_order_relaxed);
}

void PumpPulse::TakeLock() {
    Platform::LockGuard<Platform::Mutex> guard(ThePulses().mutex);
}

}  // namespace Orv
