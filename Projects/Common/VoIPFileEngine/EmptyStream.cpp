#include "Projects/Common/VoIPFileEngine/EmptyStream.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace Orv {
namespace {

// Shared by all gaps of real silence.
constexpr u8 kSilence[MaxFrameBytes] = {};

i32 LeadingNumber(const char* text) {
    const long number = std::strtol(text, nullptr, 10);
    return static_cast<i32>(std::clamp<i64>(number, std::numeric_limits<i32>::min(), std::numeric_limits<i32>::max()));
}

}  // namespace

bool EmptyStream::Open(const char* name, void* buffer, i32 frameBytes) {
    if (name == nullptr || name[0] != '#' || name[std::strlen(name) - 1] != '#') return false;
    realSilence_ = name[1] == '#';
    const i32 seconds = LeadingNumber(name + (realSilence_ ? 2 : 1));
    totalBytes_ = static_cast<u32>(seconds) * BytesPerSecond;
    remainingBytes_ = static_cast<i32>(totalBytes_);
    frameBytes_ = frameBytes;
    buffer_ = buffer;
    return true;
}

bool EmptyStream::GetNextFrame(const u8** frame, ContentEventList& events) {
    *frame = nullptr;
    if (remainingBytes_ < 1) {
        AppendFinished(events);
        return false;
    }
    if (realSilence_) {
        *frame = kSilence;
        if (frameBytes_ > static_cast<i32>(MaxFrameBytes)) {
            std::memset(buffer_, 0, static_cast<u32>(frameBytes_));
            *frame = static_cast<const u8*>(buffer_);
        }
    }
    remainingBytes_ = static_cast<i32>(static_cast<u32>(remainingBytes_) - static_cast<u32>(frameBytes_));
    return true;
}

}  // namespace Orv
