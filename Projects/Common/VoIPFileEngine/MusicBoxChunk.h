// One second of a music box's audio, shared by all who listen.
#pragma once

#include "Platform/Types.h"
#include "ServiceProcess/MTReferencedTypeBase.h"

namespace Orv {

// Does not change once a consumer has it, so any thread may read it without a lock.
class IMusicBoxSoundChunk : public virtual MTObjects::MTReferencedTypeBase {
public:
    // In samples.
    static constexpr u64 Size = 8000;

    // Points `*samples` at sample `position`, into the chunk, and returns how many of `count` are there. Null and 0
    // when `position` lies at or behind the end.
    virtual u64 GetSamples(const i16** samples, u64 position, u64 count) = 0;

protected:
    bool TestValid() const override { return true; }
};

// A chunk that a music box fills. Append() and Clear() belong to the box's thread and end when a consumer has it.
class RealChunk : public IMusicBoxSoundChunk {
public:
    // `shift`: bits by which samples are moved on their way in; positive to the left, negative to the right,
    // arithmetically.
    explicit RealChunk(i32 shift) noexcept : shift_(shift), writeCursor_(samples_) {}
    RealChunk(const RealChunk&) = delete;
    RealChunk& operator=(const RealChunk&) = delete;

    u64 GetSamples(const i16** samples, u64 position, u64 count) override;

    // Takes as many of `count` samples (16-bit little-endian, at any address) as there is room for; how many that was.
    u64 Append(const u8* samples, u64 count);
    bool Full() const noexcept { return writeCursor_ == samples_ + Size; }
    void Clear() noexcept { writeCursor_ = samples_; }

private:
    const i32 shift_;
    i16* writeCursor_;
    i16 samples_[Size];
};

}  // namespace Orv
