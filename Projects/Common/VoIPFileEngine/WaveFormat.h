// The parts of a RIFF WAVE file that are read. Inside the file engine only.
#pragma once

#include <cstring>
#include <ostream>
#include <string_view>

#include "Platform/Types.h"

namespace Orv {

inline u16 U16At(const u8* bytes) {
    return static_cast<u16>(bytes[0] | bytes[1] << 8);
}
inline u32 U32At(const u8* bytes) {
    return U16At(bytes) | static_cast<u32>(U16At(bytes + 2)) << 16;
}
inline bool HasTag(const u8* bytes, std::string_view tag) {
    return std::memcmp(bytes, tag.data(), tag.size()) == 0;
}

// In bytes.
struct WaveLayout {
    static constexpr u64 FirstChunk = 12;   // behind "RIFF", a length and "WAVE"
    static constexpr u64 ChunkHeader = 8;   // tag and length
    static constexpr u64 PlainHeader = 44;  // all that stands in front of the audio in the plainest file
};

// The first 16 bytes of a "fmt " chunk's body. Written to a stream as a message shows it: 1/2/44100/16.
struct WaveFormat {
    static constexpr u32 BodyBytes = 16;

    explicit WaveFormat(const u8* body)
        : tag(U16At(body)),
          channels(U16At(body + 2)),
          sampleRate(U32At(body + 4)),
          blockAlign(U16At(body + 12)),
          bits(U16At(body + 14)) {}

    // The two forms that play as they are.
    bool IsPcm() const { return IsMonoPcm16() && sampleRate == 8000; }
    bool IsImaAdpcm() const {
        return tag == 17 && channels == 1 && sampleRate == 8000 && bits == 4 && blockAlign == 256;
    }
    // The form that plays once it has been resampled.
    bool IsFasterPcm() const { return IsMonoPcm16() && sampleRate > 8000; }

    u16 tag;
    u16 channels;
    u32 sampleRate;
    u16 blockAlign;
    u16 bits;

private:
    bool IsMonoPcm16() const { return tag == 1 && channels == 1 && bits == 16; }
};

inline std::ostream& operator<<(std::ostream& stream, const WaveFormat& format) {
    return stream << format.tag << '/' << format.channels << '/' << format.sampleRate << '/' << format.bits;
}

}  // namespace Orv
