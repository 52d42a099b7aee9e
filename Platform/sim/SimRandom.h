// The random device of a simulated world. The generator of each thread (SeedThreadRand, ThreadRand) needs no control:
// it is std::minstd_rand, seeded with 1 at the thread's start. Its values can be seen.
#pragma once

#include <deque>
#include <functional>
#include <initializer_list>
#include <random>
#include <utility>

#include "Platform/Types.h"

namespace Platform::Sim {

class SimRandom {
public:
    explicit SimRandom(u64 seed) : engine_(seed) {}

    // The next values of RandomSeed(), in order; then the engine goes on.
    void Script(std::initializer_list<u32> seeds) { script_.insert(script_.end(), seeds); }
    // One more scripted value.
    void Script(u32 seed) { script_.push_back(seed); }
    // What RandomSeed() calls.
    u32 NextSeed();
    // How often RandomSeed() was called.
    u64 SeedsGiven() const noexcept { return given_; }
    // Is told each value that ThreadRand() gives, on the thread that gets it. One at most; empty for none.
    void SetDrawHook(std::function<void(i32)> hook) { drawHook_ = std::move(hook); }
    void TellDraw(i32 value) const {
        if (drawHook_) drawHook_(value);
    }

private:
    std::mt19937_64 engine_;
    std::deque<u32> script_;
    u64 given_ = 0;
    std::function<void(i32)> drawHook_;
};

}  // namespace Platform::Sim
