// Where what a test draws comes from.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <random>

namespace OrvTest {

// Another one at each run, and printed; ORV_SEED in the environment repeats one.
inline unsigned SeedOfRun() {
    const char* const given = std::getenv("ORV_SEED");
    const unsigned seed =
        given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device{}();
    std::printf("ORV_SEED=%u repeats what is drawn\n", seed);
    std::fflush(stdout);
    return seed;
}

}  // namespace OrvTest
