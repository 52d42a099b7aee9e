// The ring that a pipe thread fills and the readers of that pipe play from.
#pragma once

#include <atomic>

#include "Platform/Types.h"
#include "ServiceProcess/MTReferencedTypeBase.h"

namespace Orv {

// One writer, the pipe thread; any number of readers, each with a position of its own. No lock, and nobody waits.
//
// A frame is handed out as a plain pointer into `data`. That is sound as long as the writer does not come round to a
// frame that is still in use, which takes 3 seconds of sound (a reader lags by a quarter of the ring at most):
// - the writer's bytes are atomic, and come before `written` (release), which a reader takes first (acquire);
// - a reader that asks for its next frame is done with the one before, and says so in `returned` (release), which the
//   writer takes before it writes (acquire).
// A reader that sits on a frame for longer, or is caught by Reset(), may find any mixture of old bytes, new ones and
// zeros in it: that moment of wrong sound is tolerated, and no index and no length ever depends on those bytes.
class ILoopBuffer : public MTObjects::MTReferencedTypeBase {
public:
    static constexpr u32 Size = 65536;

    // Pipe thread: adds bytes behind `written`.
    void Append(const u8* bytes, u64 count) noexcept;
    // Pipe thread: a new stream begins at byte 0, in a ring of zeros.
    void Reset() noexcept;

    // Readers: gives back the frame taken before, if any. The end of what may be read: `written` without its lowest
    // bit, so that a sample of which one byte has come waits for the other.
    u64 TakeHead() noexcept {
        returned.fetch_add(1, std::memory_order_release);
        return written.load(std::memory_order_acquire) & ~u64{1};
    }
    // Readers: `count` bytes of the stream from `position`, across the end of `data`.
    void CopyOut(u64 position, u8* out, u32 count) noexcept;

    // Bytes written since the last reset. Only the pipe thread writes it.
    std::atomic<u64> written{0};
    // Byte n of the stream lies at n modulo Size.
    alignas(64) u8 data[Size] = {};
    // Counts frames given back. Its value means nothing: each addition carries on the release of all before it.
    std::atomic<u64> returned{0};

protected:
    bool TestValid() const override { return true; }
};

}  // namespace Orv
