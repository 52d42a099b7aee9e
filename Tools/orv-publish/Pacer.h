// How fast the sound goes out.
#pragma once

#include "Platform/Types.h"

namespace Orv {

// Gives out the bytes that are due: 8000 samples of 2 bytes a second, counted from the start, so that it never drifts,
// and a quarter of a second at once, which the clients then have in hand. A source that was late may catch up by half a
// second; what it is behind by more than that is given up, and time starts over. One thread.
class Pacer {
public:
    static constexpr u64 BytesPerSecond = 16000;
    static constexpr u64 HeadStartBytes = 4000;
    static constexpr u64 CatchUpBytes = 8000;

    // `now`: nanoseconds of a steady clock.
    explicit Pacer(u64 now) : start_(now) {}

    // Bytes that may go out now, in whole samples: 0 to CatchUpBytes.
    u64 Due(u64 now);
    void Spend(u64 bytes) { spent_ += bytes; }

private:
    const u64 start_;
    u64 spent_ = 0;  // what has gone out or was given up
};

}  // namespace Orv
