#include "AudioFeeder/ChannelConnection.h"

#include <cstring>

#include "Platform/Clock.h"

namespace Orv {

namespace {

constexpr u64 kSampleBytes = 2;

}  // namespace

ChannelConnection::ChannelConnection(MTObjects::THolder<BufferTransportImpl> transport, u32 stallMilliseconds)
    : stallMilliseconds_(stallMilliseconds),
      lastTaken_(stallMilliseconds == 0 ? 0 : Platform::SteadyMilliseconds()),
      transport_(std::move(transport)) {}

bool ChannelConnection::Send(const u8* samples, u64 count) {
    while (fill_ + count >= BlockSamples) {
        const u64 taken = BlockSamples - fill_;
        std::memcpy(data_ + fill_ * kSampleBytes, samples, taken * kSampleBytes);
        samples += taken * kSampleBytes;
        count -= taken;
        if (!WriteStaged()) return false;
        fill_ = 0;
    }
    std::memcpy(data_ + fill_ * kSampleBytes, samples, count * kSampleBytes);
    fill_ += count;
    return true;
}

bool ChannelConnection::WriteStaged() {
    if (!transport_.IsValid()) return false;
    for (u64 written = 0; written < BlockBytes;) {
        const i64 taken = transport_->Write(data_ + written, BlockBytes - written, Deadline());
        if (taken < 0 || !StillTakes(taken)) return false;
        written += static_cast<u64>(taken);  // 0 just repeats the call
    }
    return true;
}

// Counted from the last byte and not from this write: several clients that stall together are all gone after one such
// time, and so is the wait of whoever waits for the channel.
u64 ChannelConnection::Deadline() const noexcept {
    return stallMilliseconds_ == 0 ? Platform::IPipeInstance::NoDeadline : lastTaken_ + stallMilliseconds_;
}

bool ChannelConnection::StillTakes(i64 taken) {
    if (stallMilliseconds_ == 0) return true;
    const u64 now = Platform::SteadyMilliseconds();
    if (taken > 0) lastTaken_ = now;
    stalled_ = now - lastTaken_ >= stallMilliseconds_;
    return !stalled_;
}

}  // namespace Orv
