// Fakes and helpers for tests of readers and of what pulls them.
#pragma once

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"

namespace Orv::TestData {

// Events as (kind, id), to be compared as a whole.
using Events = std::vector<std::pair<u32, u32>>;

inline Events ToVector(const ContentEventList& events) {
    Events result;
    for (const ContentEvent& event : events) result.emplace_back(event.kind, event.id);
    return result;
}

// The events of ends with these ids.
inline Events Finished(std::initializer_list<u32> ids) {
    Events result;
    for (const u32 id : ids) result.emplace_back(1, id);
    return result;
}

// What one GetNextFrame() gave.
struct Pulled {
    const u8* frame;
    bool result;
    Events events;

    i16 Sample(u64 index) const {
        i16 sample = 0;
        std::memcpy(&sample, frame + index * 2, 2);
        return sample;
    }
    std::vector<i16> Samples(u64 count) const {
        std::vector<i16> samples(count);
        std::memcpy(samples.data(), frame, count * 2);
        return samples;
    }
};

inline Pulled Pull(IMMFileStreamReader& reader) {
    static const u8 untouched = 0;
    Pulled pulled{&untouched, false, {}};
    ContentEventList events;
    pulled.result = reader.GetNextFrame(&pulled.frame, events);
    pulled.events = ToVector(events);
    return pulled;
}

inline bool AllZero(const u8* bytes, u64 count) {
    for (u64 i = 0; i < count; ++i) {
        if (bytes[i] != 0) return false;
    }
    return true;
}

}  // namespace Orv::TestData
