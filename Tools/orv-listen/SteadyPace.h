// Keeps a reader supplied while the feed is late or away.
#pragma once

#include "Platform/Types.h"

namespace Orv {

// Compares what was delivered with what real time asks for. A feed sends 125 ms at a time, so that a reader may run
// behind by SlackBytes before silence takes the place of what is missing; what the feed sent too much counts for at
// most AheadBytes. Pure, bytes of 16-bit samples at 8000 Hz.
class SteadyPace {
public:
    static constexpr i64 SlackBytes = 4000;    // 250 ms
    static constexpr i64 AheadBytes = 8000;    // 500 ms
    static constexpr i64 LongestGap = 32'000;  // 2 s; more comes from a machine that slept, and is not made up for

    explicit SteadyPace(u64 nowMilliseconds) : last_(nowMilliseconds) {}

    void Delivered(u64 bytes);
    // The silence that is due now, which then counts as delivered. Even.
    u64 TakeMissing(u64 nowMilliseconds);

private:
    i64 balance_ = 0;  // delivered, less what was due
    u64 last_;
};

}  // namespace Orv
