// The level as a person sees it.
#pragma once

#include <string>

#include "Platform/Types.h"
#include "Tools/orv-listen/Level.h"

namespace Orv {

// Shows the level on standard error: a live bar on a terminal, a plain line a second elsewhere. One thread.
class MeterDisplay {
public:
    explicit MeterDisplay(std::string name);

    // `count` bytes (even) of 16-bit samples.
    void Add(const u8* samples, u64 count);
    void ShowWhenDue();
    void End();

private:
    const std::string name_;
    const bool live_;
    LevelMeter meter_;
    u64 last_;
};

}  // namespace Orv
