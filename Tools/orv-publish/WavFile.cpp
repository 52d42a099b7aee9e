#include "Tools/orv-publish/WavFile.h"

#include <algorithm>
#include <cstring>

namespace Orv {
namespace {

constexpr u64 kRiffHeader = 12;
constexpr u64 kChunkHeader = 8;
constexpr u64 kFormatBytes = 26;  // as far as the format that an extensible one carries
constexpr u32 kPcm = 1;
constexpr u32 kExtensible = 0xFFFE;
constexpr u32 kUnknownLength = 0xFFFFFFFF;

u32 LittleEndian(const u8* bytes, u32 count) {
    u32 value = 0;
    for (u32 i = count; i > 0; --i) value = value << 8 | bytes[i - 1];
    return value;
}

// Whether the format is the pipe's own; otherwise what it is.
bool IsRightFormat(const u8 (&format)[kFormatBytes], u64 length, std::string& whatItIs) {
    if (length < 16) {
        whatItIs = "a WAV file without a whole format";
        return false;
    }
    u32 tag = LittleEndian(format, 2);
    if (tag == kExtensible && length >= kFormatBytes) tag = LittleEndian(format + 24, 2);
    const u32 channels = LittleEndian(format + 2, 2);
    const u32 rate = LittleEndian(format + 4, 4);
    const u32 bits = LittleEndian(format + 14, 2);
    whatItIs = std::to_string(rate) + " Hz, " +
               (channels == 1 ? std::string("mono") : std::to_string(channels) + " channels") + ", " +
               std::to_string(bits) + "-bit " + (tag == kPcm ? "PCM" : "of format " + std::to_string(tag));
    return tag == kPcm && channels == 1 && rate == 8000 && bits == 16;
}

}  // namespace

bool FindWavSound(Platform::IReadFile& file, WavSound& sound, std::string& whatItIs) {
    u8 header[kRiffHeader];
    if (file.ReadAt(0, header, sizeof header) != sizeof header || std::memcmp(header, "RIFF", 4) != 0 ||
        std::memcmp(header + 8, "WAVE", 4) != 0) {
        whatItIs = "no WAV file";
        return false;
    }
    bool haveFormat = false;
    u8 chunk[kChunkHeader];
    for (u64 at = kRiffHeader; file.ReadAt(at, chunk, sizeof chunk) == sizeof chunk;) {
        const u64 length = LittleEndian(chunk + 4, 4);
        at += kChunkHeader;
        if (std::memcmp(chunk, "fmt ", 4) == 0) {
            u8 format[kFormatBytes] = {};
            const u64 got = file.ReadAt(at, format, std::min(length, kFormatBytes));
            if (!IsRightFormat(format, got, whatItIs)) return false;
            haveFormat = true;
        } else if (std::memcmp(chunk, "data", 4) == 0) {
            const u64 rest = file.Size() > at ? file.Size() - at : 0;
            sound = {at, (length == kUnknownLength ? rest : std::min(length, rest)) & ~u64{1}};
            whatItIs = haveFormat ? "a WAV file that holds no sound" : "a WAV file without a format before its sound";
            return haveFormat && sound.length != 0;
        }
        at += length + (length & 1);
    }
    whatItIs = "a WAV file that holds no sound";
    return false;
}

}  // namespace Orv
