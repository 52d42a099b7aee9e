#include "AudioFeeder/ChangePace.h"

#include "Platform/Clock.h"
#include "Platform/Thread.h"

namespace Orv {

namespace {

constexpr u64 kWorkMilliseconds = 2;
constexpr u32 kRestMilliseconds = 2;

}  // namespace

void ChangePace::Begin() noexcept {
    const u64 now = Platform::SteadyMilliseconds();
    // Unsigned: an end that lies ahead, of another thread, is a gap like any other.
    if (now - end_.load(std::memory_order_relaxed) >= kRestMilliseconds) begin_.store(now, std::memory_order_relaxed);
}

void ChangePace::End() {
    u64 now = Platform::SteadyMilliseconds();
    if (now - begin_.load(std::memory_order_relaxed) >= kWorkMilliseconds) {
        Platform::SleepMilliseconds(kRestMilliseconds);
        now = Platform::SteadyMilliseconds();
        begin_.store(now, std::memory_order_relaxed);
    }
    end_.store(now, std::memory_order_relaxed);
}

void ChangePace::Reset() noexcept {
    begin_.store(0, std::memory_order_relaxed);
    end_.store(0, std::memory_order_relaxed);
}

}  // namespace Orv
