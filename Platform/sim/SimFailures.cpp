#include "Platform/sim/SimFailures.h"

#include <utility>

#include "Platform/sim/Scheduler.h"
#include "Platform/sim/World.h"

namespace Platform::Sim {

void SimFailures::Begin(u64 number, std::set<std::string> exempt) {
    counts_ = true;
    number_ = number;
    exempt_ = std::move(exempt);
    operations_.clear();
}

bool SimFailures::Fails(Operation kind, const std::string& what) {
    if (!counts_) return false;
    const std::string& thread = CurrentFiber().name;
    if (exempt_.count(thread) != 0) return false;
    operations_.push_back({kind, what, thread});
    return operations_.size() - 1 == number_;
}

SimFailures& Failures() noexcept {
    return CurrentWorld().failures;
}

}  // namespace Platform::Sim
