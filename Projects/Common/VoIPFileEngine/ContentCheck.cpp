#include "Projects/Common/VoIPFileEngine/ContentCheck.h"

#include "Platform/Files.h"
#include "Projects/Common/VoIPFileEngine/ContentName.h"
#include "Projects/Common/VoIPFileEngine/IMemoryFile.h"
#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"
#include "Projects/Common/VoIPFileEngine/WaveFormat.h"

namespace Orv {
namespace {

// A file of nothing but empty chunks must not keep anybody.
constexpr u32 kMostChunks = 10'000;

// The position of the body of the first chunk with that tag, from `position` on; its length by the file's own word.
// False when there is none.
bool FindChunk(Platform::IReadFile& file, const char* tag, u64& position, u32& length) {
    for (u32 i = 0; i < kMostChunks && position < file.Size(); ++i) {
        u8 header[WaveLayout::ChunkHeader];
        if (file.ReadAt(position, header, sizeof header) != sizeof header) return false;
        length = U32At(header + 4);
        position += WaveLayout::ChunkHeader;
        if (HasTag(header, tag)) return true;
        position += length;
    }
    return false;
}

std::string WhyFormatNotPlayed(const WaveFormat& format) {
    if (format.IsPcm() || format.IsImaAdpcm()) return {};
    std::string why;
    const auto add = [&why](const std::string& text) { why += (why.empty() ? "" : ", ") + text; };
    if (format.tag != 1 && format.tag != 17) {
        add("its coding is number " + std::to_string(format.tag) +
            "; only 16-bit PCM (1) and IMA ADPCM (17) are played");
    }
    if (format.channels == 2) {
        add("it is stereo; only mono is played");
    } else if (format.channels != 1) {
        add("it has " + std::to_string(format.channels) + " channels; only mono is played");
    }
    if (format.sampleRate != 8000) {
        add("its rate is " + std::to_string(format.sampleRate) + " Hz; only 8000 Hz is played");
    }
    if (format.tag == 1 && format.bits != 16) {
        add("its samples have " + std::to_string(format.bits) + " bits; only 16 are played");
    }
    if (why.empty()) add("its compressed blocks are not of 256 bytes with 4 bits a sample");
    return why;
}

std::string WhyWaveNotPlayable(Platform::IReadFile& file) {
    const u64 size = file.Size();
    if (size <= WaveLayout::PlainHeader) return "it is too short for a WAV file with sound";
    u8 riff[WaveLayout::FirstChunk] = {};
    if (file.ReadAt(0, riff, sizeof riff) != sizeof riff) return "it cannot be read";
    if (!HasTag(riff, "RIFF") || !HasTag(riff + 8, "WAVE")) return "it is no WAV file, whatever its name says";
    if (U32At(riff + 4) > size) return "it is cut off: its header tells of more than there is";

    u64 position = WaveLayout::FirstChunk;
    u32 length = 0;
    u8 body[WaveFormat::BodyBytes] = {};
    if (!FindChunk(file, "fmt ", position, length)) return "it does not say what its sound is like";
    if (length < sizeof body) return "it does not say what its sound is like";
    file.ReadAt(position, body, sizeof body);
    const std::string why = WhyFormatNotPlayed(WaveFormat(body));
    if (!why.empty()) return why;
    position += length;
    // A length of 0 is that of a program which did not know it yet: all that follows plays.
    if (!FindChunk(file, "data", position, length) || position >= size) return "there is no sound in it";
    return {};
}

}  // namespace

std::string WhyFileNotPlayable(const std::string& path) {
    Platform::SystemError error = 0;
    const auto file = Platform::OpenReadFile(path, error);
    if (file == nullptr) {
        const std::string text = Platform::SystemErrorText(error);
        return "it cannot be opened: " + (text.empty() ? "error " + std::to_string(error) : text);
    }
    if (EndsInWav(path)) return WhyWaveNotPlayable(*file);
    return file->Size() == 0 ? "there is no sound in it" : "";
}

std::string WhyNotPlayable(const std::string& name) {
    if (name.empty()) return "no file is named";
    if (IsGapName(name)) return {};
    if (IsLinkName(name)) return "http: and mms: links are not played";
    if (IsPipePath(name) || IsMusicBoxName(name)) return {};
    if (const auto cached = MemoryFileCache::Instance().Find(name.c_str()); cached != nullptr) {
        return cached->IsValid() ? "" : "it is held in memory, but cannot be used";
    }
    const std::string file = NormaliseFileName(name);
    if (IsSoundFileName(file)) return WhyFileNotPlayable(file);
    if (IsPipeFileName(file)) return {};
    return "its name ends neither in .wav nor in .raw nor in .pipe";
}

}  // namespace Orv
