#include "AudioFeeder/ConfigurationState.h"

#include <atomic>

#include "Platform/Clock.h"

namespace Orv {

namespace {

// Milliseconds in the upper bits and the link in the lowest two, so that the two change together.
std::atomic<u64> state{0};

}  // namespace

void SetConfigurationLink(ConfigurationLink link) {
    state.store(Platform::SteadyMilliseconds() << 2 | static_cast<u64>(link), std::memory_order_relaxed);
}

ConfigurationState GetConfigurationState() {
    const u64 value = state.load(std::memory_order_relaxed);
    return {static_cast<ConfigurationLink>(value & 3), value >> 2};
}

}  // namespace Orv
