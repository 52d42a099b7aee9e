// A timed gap in the audio.
#pragma once

#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"

namespace Orv {

// Lasts a number of whole seconds, counted down by frames; a rest shorter than a frame still takes a whole frame. Gives
// null frames, or frames of zeros when the gap is real silence. Can be rewound without limit.
class EmptyStream : public IMMFileStreamReader {
public:
    explicit EmptyStream(u32 id = 0) noexcept : IMMFileStreamReader(id) {}

    // "#5#" is a gap of five seconds, "##5#" one of real silence. A gap without digits, or one of less than a second,
    // ends at once, and so does one whose bytes do not fit in 31 bits. False, and nothing is stored, when the name does
    // not begin and end with "#".
    bool Open(const char* name, void* buffer, i32 frameBytes) override;
    bool GetNextFrame(const u8** frame, ContentEventList& events) override;
    void Rewind() override { remainingBytes_ = static_cast<i32>(totalBytes_); }
    std::string GetName() override { return {}; }
    bool IsOpen() override { return true; }
    void Close() override {}
    // Zeros are the caller's or the process's.
    MTObjects::THolder<MTReferencedTypeBase> FrameOwner() override { return nullptr; }

private:
    u32 totalBytes_ = 0;
    i32 remainingBytes_ = 0;
    i32 frameBytes_ = 0;
    void* buffer_ = nullptr;
    bool realSilence_ = false;
};

}  // namespace Orv
