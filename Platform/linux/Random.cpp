#include "Platform/Random.h"

#include <sys/random.h>

#include <cerrno>
#include <cstdlib>
#include <random>

namespace Platform {
namespace {

// The state of rand() itself, one per thread. Of this size it gives the very numbers that rand() gives for a seed.
struct Generator {
    random_data data;
    char state[128];
    bool seeded;
};
constinit thread_local Generator generator{};

}  // namespace

u32 RandomSeed() {
    u32 seed = 0;
    ssize_t count;
    do {
        count = ::getrandom(&seed, sizeof seed, 0);
    } while (count < 0 && errno == EINTR);
    if (count == static_cast<ssize_t>(sizeof seed)) return seed;
    return std::random_device{}();
}

void SeedThreadRand(u32 seed) noexcept {
    generator.data = {};
    ::initstate_r(seed, generator.state, sizeof generator.state, &generator.data);
    generator.seeded = true;
}

i32 ThreadRand() noexcept {
    if (!generator.seeded) SeedThreadRand(1);
    i32 value = 0;
    ::random_r(&generator.data, &value);
    return value;
}

}  // namespace Platform
