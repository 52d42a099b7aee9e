// The random draws of all channels.
#pragma once

#include "Platform/Types.h"

namespace Orv {

// Gives raw 32-bit values, all equally likely.
class IRandomSource {
public:
    virtual ~IRandomSource() = default;
    virtual u32 Next() = 0;
};

// A signed value from a to b, both included, out of one or more values of `source`: the high half of a 32 by 32 bit
// product, where a low half that would favour some results is drawn again. Sums wrap at 32 bits; with a above b the
// range is the wrapped one. Always takes at least one value of the source, also with a equal to b.
i32 UniformFrom(IRandomSource& source, i32 a, i32 b);

// The same from the process's one engine, a Mersenne twister seeded once from the system's random device. Any thread;
// the engine has a lock of its own, held for the draw.
i32 Uniform(i32 a, i32 b);
// Takes that lock for a moment and draws nothing: for who looks whether it can be had. Any thread.
void TakeRandomLock();

// Puts another source in the engine's place, for tests with scripted draws; null puts the engine back. The source is
// called under the engine's lock and must live until it is replaced.
void SetRandomSource(IRandomSource* source);

}  // namespace Orv
