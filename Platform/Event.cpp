#include "Platform/Clock.h"
#include "Platform/Sync.h"

namespace Platform {

namespace {
constexpr u64 kNanosecondsPerMillisecond = 1'000'000;
}

bool Event::WaitFor(u32 milliseconds) {
    const u64 end = SteadyNanoseconds() + milliseconds * kNanosecondsPerMillisecond;
    LockGuard<Mutex> guard(mutex_);
    while (!set_) {
        const u64 now = SteadyNanoseconds();
        if (now >= end) return false;
        // Rounded up, so that the whole time is slept.
        const u64 rest = (end - now + kNanosecondsPerMillisecond - 1) / kNanosecondsPerMillisecond;
        changed_.WaitFor(mutex_, static_cast<u32>(rest));
    }
    return true;
}

}  // namespace Platform
