// A music file that tells where it is: its first seconds are a high tone, the rest a low one. A level limit, a ramp or
// a gain leaves the tone as it is.
#pragma once

#include <string>

#include "bench/orv-load/Listeners.h"

namespace OrvLoad {

inline constexpr u32 kMarkSeconds = 1;
inline constexpr u32 kMarkedFileSeconds = 300;
inline constexpr u32 kCountedFileSeconds = 400;

void WriteMarkedFile(const std::string& path);
void WriteCountedFile(const std::string& path);
// Whether a block of the stream lies in the high tone.
bool IsMark(const u8* block);

// Holds every block of clients that hear the counted file against the one before it. Must outlive the listeners.
class CountedCheck {
public:
    explicit CountedCheck(u32 clients) : next_(clients, kUnknown) {}
    BlockTap TapFor(u32 client) {
        return [this, client](u64, const u8* data, i64) { Take(client, data); };
    }
    // Blocks that went on where the one before had ended.
    u64 Continued() const { return continued_; }
    // Blocks that did not.
    u64 Broken() const { return broken_; }
    // Clients of which no block at full level has come: the first second and a quarter is a ramp.
    u64 Unsettled() const { return next_.size() - settled_; }

private:
    static constexpr i32 kUnknown = -1;
    void Take(u32 client, const u8* data);

    std::vector<i32> next_;  // first sample of the next block
    std::atomic<u64> continued_{0};
    std::atomic<u64> broken_{0};
    std::atomic<u64> settled_{0};
};

}  // namespace OrvLoad
