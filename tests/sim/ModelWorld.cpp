#include "tests/sim/ModelWorld.h"

#include "Platform/Clock.h"

namespace OrvSim {

void Counts::Add(const Counts& other) {
    // All members are counters.
    constexpr std::size_t members = sizeof(Counts) / sizeof(u64);
    auto* to = reinterpret_cast<u64*>(this);
    const auto* from = reinterpret_cast<const u64*>(&other);
    for (std::size_t i = 0; i < members; ++i) to[i] += from[i];
}

u64 ModelWorld::Now() {
    return Platform::SteadyNanoseconds();
}

void ModelWorld::Fail(const std::string& what) {
    if (Failed()) return;
    failure = what;
    failedAt = Now();
}

i32 ModelWorld::ShuffleKey(u64 thread) {
    std::deque<i32>& keys = shuffleKeys[thread];
    if (keys.empty()) {
        Fail("a key was not drawn");
        return 0;
    }
    const i32 key = keys.front();
    keys.pop_front();
    return key;
}

i32 ModelWorld::Uniform(u64 thread, i32 a, i32 b) {
    std::deque<u32>& raw = draws[thread];
    const u32 range = static_cast<u32>(b) - static_cast<u32>(a) + 1;
    for (;;) {
        if (raw.empty()) {
            Fail("a draw was not made");
            return a;
        }
        const u32 value = raw.front();
        raw.pop_front();
        if (range == 0) return static_cast<i32>(static_cast<u32>(a) + value);
        const u64 product = u64{value} * range;
        const u32 low = static_cast<u32>(product);
        if (low < range && low < (0U - range) % range) continue;
        return static_cast<i32>(static_cast<u32>(a) + static_cast<u32>(product >> 32));
    }
}

}  // namespace OrvSim
