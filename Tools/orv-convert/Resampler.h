// From any rate to the feeds' 8000 Hz.
#pragma once

#include <memory>
#include <vector>

#include "Platform/Types.h"

namespace Orv {

inline constexpr u32 kFeedRate = 8000;

// One channel, 1.0 is full scale; the filter is of the best quality that there is, with linear phase, and its delay is
// taken out: the result begins with the sound and has as many samples as its length asks for, rounded.
class IResampler {
public:
    virtual ~IResampler() = default;
    // Appends what is ready to `out`.
    virtual void Add(const float* samples, u64 count, std::vector<float>& out) = 0;
    // Appends the rest.
    virtual void Finish(std::vector<float>& out) = 0;
};

// Throws std::bad_alloc when it cannot be made.
std::unique_ptr<IResampler> MakeResampler(u32 fromRate);

}  // namespace Orv
