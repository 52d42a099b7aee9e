#include "Platform/ThreadWait.h"

#include "Platform/sim/Scheduler.h"

namespace Platform {

std::atomic<ThreadWait>& ThisThreadWait() noexcept {
    return Sim::CurrentFiber().wait;
}

}  // namespace Platform
