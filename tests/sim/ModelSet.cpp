#include "tests/sim/ModelSet.h"

#include <cstring>

#include "tests/sim/ModelBox.h"

namespace OrvSim {

namespace {
constexpr i32 kFull = 10000;
constexpr i32 kDucked = 1250;
}  // namespace

void SetModel::Switch(bool main, u32 listId, bool loop, const std::vector<std::pair<u32, std::string>>& items,
                      u64 now) {
    if (box_ != nullptr) box_->CatchUp(now);
    List& list = main ? main_ : overlay_;
    list.id = listId;
    list.loop = loop;
    list.cursor = 0;
    list.items.clear();
    list.items.reserve(items.size());
    for (const auto& [id, name] : items) list.items.emplace_back(id, name, files_, box_, now);
    mask_ = 3;
}

bool SetModel::Step(List& list, u64 now, i16* frame, Events& events, Lines& lines) {
    if (list.cursor >= list.items.size()) return false;
    std::size_t skips = 0;
    for (;;) {
        ItemModel& item = list.items[list.cursor];
        bool sounds = false;
        if (item.Next(now, reinterpret_cast<u8*>(frame), frameBytes_, sounds, lines)) return sounds;
        events.push_back(item.Id());
        if (++list.cursor == list.items.size()) {
            events.push_back(list.id);
            if (!list.loop || skips >= list.items.size()) return false;
            list.cursor = 0;
        }
        list.items[list.cursor].Rewind(now);
        ++skips;
    }
}

i16 SetModel::Scale(i16 sample, i32 target) {
    ramp_ += ramp_ < target ? 1 : -1;
    if (ramp_ == target) {
        gain_ = target == kFull ? 1.0F : 0.125F;
    } else if (target == kDucked && ramp_ > target) {
        gain_ = gain_ - 0.0001F;
    } else {
        gain_ = gain_ + 0.0001F;
    }
    return static_cast<i16>(static_cast<i32>(static_cast<float>(sample) * gain_));
}

bool SetModel::Next(u64 now, i16* out, Events& events, Lines& lines) {
    inRing_ = {};
    isLive_ = false;
    if (mask_ == 0) return false;
    i16 main[kBlockSamples];
    i16 overlay[kBlockSamples];
    bool mainSounds = false;
    bool overlaySounds = false;
    if ((mask_ & 1) != 0) {
        mainSounds = Step(main_, now, main, events, lines);
    } else {
        ramp_ = 0;
        gain_ = 0.0F;
    }
    if ((mask_ & 2) != 0) overlaySounds = Step(overlay_, now, overlay, events, lines);
    if (mainSounds) isLive_ = main_.items[main_.cursor].IsLive();
    if (overlaySounds) isLive_ = isLive_ || overlay_.items[overlay_.cursor].IsLive();
    if (!mainSounds) {
        if (overlaySounds) inRing_ = overlay_.items[overlay_.cursor].InRing();
        if (overlaySounds) std::memcpy(out, overlay, frameBytes_);
        return overlaySounds;
    }
    if (!overlaySounds && ramp_ == kFull) inRing_ = main_.items[main_.cursor].InRing();
    const u32 samples = frameBytes_ / 2;
    for (u32 i = 0; i < samples; ++i) {
        if (overlaySounds) {
            // Rounded towards minus infinity at rest, towards zero on the way.
            const i32 under = ramp_ == kDucked ? (main[i] - (main[i] & 7)) / 8 : Scale(main[i], kDucked);
            out[i] = static_cast<i16>(static_cast<u16>(under + overlay[i]));
        } else {
            out[i] = ramp_ == kFull ? main[i] : Scale(main[i], kFull);
        }
    }
    return true;
}

}  // namespace OrvSim
