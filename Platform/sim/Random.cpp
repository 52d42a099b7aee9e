#include "Platform/Random.h"

#include "Platform/sim/Scheduler.h"
#include "Platform/sim/World.h"

namespace Platform {

u32 Sim::SimRandom::NextSeed() {
    ++given_;
    if (script_.empty()) return static_cast<u32>(engine_() >> 32);
    const u32 seed = script_.front();
    script_.pop_front();
    return seed;
}

u32 RandomSeed() {
    return Sim::Random().NextSeed();
}

void SeedThreadRand(u32 seed) noexcept {
    Sim::CurrentFiber().rand.seed(seed);
}

i32 ThreadRand() noexcept {
    const i32 value = static_cast<i32>(Sim::CurrentFiber().rand());
    Sim::Random().TellDraw(value);
    return value;
}

}  // namespace Platform
