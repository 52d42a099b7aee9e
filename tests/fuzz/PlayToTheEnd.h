// Plays a reader that has been opened with id 7 and a frame of 2000 bytes, and reads every byte that it gives.
#pragma once

#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"
#include "tests/fuzz/FuzzTarget.h"

namespace Fuzz {

inline constexpr i32 PlayedFrameBytes = 2000;
inline constexpr u32 PlayedId = 7;

// The file behind it has `fileBytes` of audio at most.
inline void PlayToTheEnd(Orv::IMMFileStreamReader& reader, u64 fileBytes) {
    // A compressed byte gives at most four bytes; what ends two stretches or blocks adds a frame each.
    const u64 most = fileBytes * 4 / PlayedFrameBytes + 4;
    Orv::ContentEventList events;
    const u8* frame = nullptr;
    u32 sum = 0;
    for (u64 frames = 0; reader.GetNextFrame(&frame, events);) {
        Require(frame != nullptr, "a file that plays gives a frame");
        for (i32 index = 0; index < PlayedFrameBytes; ++index) sum += frame[index];
        Require(++frames <= most, "a file ends");
    }
    Require(events.size() == 1 && events.front().id == PlayedId, "the end is told once");
    volatile u32 used = sum;
    static_cast<void>(used);
}

}  // namespace Fuzz
