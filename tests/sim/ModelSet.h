// Two lists played at once: the main one at its level, ducked to one eighth under the overlay.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/sim/ModelReaders.h"

namespace OrvSim {

// The ids of what has ended, in order.
using Events = std::vector<u32>;

class SetModel {
public:
    SetModel(SharedFiles& files, BoxModel* box, u32 frameSamples)
        : files_(files), box_(box), frameBytes_(2 * frameSamples) {}

    // Items are pairs of id and name. `main`: which of the two lists.
    void Switch(bool main, u32 listId, bool loop, const std::vector<std::pair<u32, std::string>>& items, u64 now);
    void SetMask(u32 mask) { mask_ = mask; }
    // The next frame; false when there is none.
    bool Next(u64 now, i16* out, Events& events, Lines& lines);
    i32 Ramp() const { return ramp_; }
    // Where the last frame lies, if it was handed out just as it lies in a ring; and whether live sound was in it.
    const LiveFrame& InRing() const { return inRing_; }
    bool IsLive() const { return isLive_; }

private:
    struct List {
        std::vector<ItemModel> items;
        std::size_t cursor = 0;
        bool loop = false;
        u32 id = 0;
    };

    bool Step(List& list, u64 now, i16* frame, Events& events, Lines& lines);
    i16 Scale(i16 sample, i32 target);

    SharedFiles& files_;
    BoxModel* const box_;
    const u32 frameBytes_;
    List main_;
    List overlay_;
    u32 mask_ = 0;
    i32 ramp_ = 0;  // in steps of one ten-thousandth
    float gain_ = 0.0F;
    LiveFrame inRing_;
    bool isLive_ = false;
};

}  // namespace OrvSim
