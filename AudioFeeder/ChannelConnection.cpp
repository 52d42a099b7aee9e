#include "AudioFeeder/ChannelConnection.h"

#include <cstring>

namespace Orv {

namespace {

constexpr u64 kSampleBytes = 2;

}  // namespace

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
        const i64 taken = transport_->Write(data_ + written, BlockBytes - written);
        if (taken < 0) return false;
        written += static_cast<u64>(taken);  // 0 just repeats the call
    }
    return true;
}

}  // namespace Orv
