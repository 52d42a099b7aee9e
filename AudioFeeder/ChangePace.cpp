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
    if (now - end_ >= kRestMilliseconds) begin_ = now;
}

void ChangePace::End() {
    end_ = Platform::SteadyMilliseconds();
    if (end_ - begin_ < kWorkMilliseconds) return;
    Platform::SleepMilliseconds(kRestMilliseconds);
    begin_ = end_ = Platform::SteadyMilliseconds();
}

}  // namespace Orv
