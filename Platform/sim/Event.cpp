#include <new>

#include "Platform/Clock.h"
#include "Platform/Sync.h"

namespace Platform {

namespace {

constexpr u64 kNanosecondsPerMillisecond = 1'000'000;

struct EventState {
    Mutex mutex;
    CondVar changed;
    bool set ORV_GUARDED_BY(mutex) = false;
};
static_assert(sizeof(EventState) <= sizeof(Event));

EventState& StateIn(unsigned char* storage) noexcept {
    return *std::launder(reinterpret_cast<EventState*>(storage));
}

}  // namespace

Event::Event() noexcept {
    new (storage_) EventState;
}
Event::~Event() {
    StateIn(storage_).~EventState();
}

void Event::Set() {
    EventState& state = StateIn(storage_);
    LockGuard<Mutex> guard(state.mutex);
    state.set = true;
    state.changed.NotifyAll();
}

void Event::Reset() {
    EventState& state = StateIn(storage_);
    LockGuard<Mutex> guard(state.mutex);
    state.set = false;
}

bool Event::WaitFor(u32 milliseconds) {
    EventState& state = StateIn(storage_);
    const u64 end = SteadyNanoseconds() + milliseconds * kNanosecondsPerMillisecond;
    LockGuard<Mutex> guard(state.mutex);
    while (!state.set) {
        const u64 now = SteadyNanoseconds();
        if (now >= end) return false;
        // Rounded up, so that the whole time is slept.
        const u64 rest = (end - now + kNanosecondsPerMillisecond - 1) / kNanosecondsPerMillisecond;
        state.changed.WaitFor(state.mutex, static_cast<u32>(rest));
    }
    return true;
}

}  // namespace Platform
