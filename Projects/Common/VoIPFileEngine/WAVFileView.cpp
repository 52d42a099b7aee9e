#include "Projects/Common/VoIPFileEngine/WAVFileView.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "Projects/Common/VoIPFileEngine/WaveFormat.h"
#include "ServiceProcess/LogAdapters.h"

namespace Orv {
namespace {

constexpr char kLogSource[] = "VoIPFileEngine/FileView";
}  // namespace

// The file through a small window, so that even a file of nothing but empty chunks costs few reads.
class WaveBytes {
public:
    explicit WaveBytes(FileView& view) : view_(view) {}

    // Copies `count` bytes from `position`; what lies behind the end of the file is zeros. Returns the real bytes.
    u64 Copy(u64 position, u8* destination, u64 count) {
        if (position < begin_ || position + count > begin_ + length_) {
            begin_ = position;
            length_ = view_.Read(window_.data(), position, window_.size());
        }
        const u64 real = std::min(count, begin_ + length_ - position);
        std::memcpy(destination, window_.data() + (position - begin_), real);
        std::memset(destination + real, 0, count - real);
        return real;
    }

private:
    FileView& view_;
    std::array<u8, 4096> window_;
    u64 begin_ = 0;
    u64 length_ = 0;
};

namespace {

// A chunk's header; one that is cut by the end of the file is none. The length is the file's word and proves nothing.
struct ChunkHeader {
    bool Read(WaveBytes& bytes, u64 position) { return bytes.Copy(position, raw, sizeof raw) == sizeof raw; }
    bool Is(std::string_view tag) const { return HasTag(raw, tag); }
    std::string_view Tag() const { return {reinterpret_cast<const char*>(raw), 4}; }
    u32 Length() const { return U32At(raw + 4); }
    // Odd lengths are not rounded. 64 bits: the sum never wraps.
    u64 Next(u64 position) const { return position + WaveLayout::ChunkHeader + Length(); }

    u8 raw[WaveLayout::ChunkHeader];
};

}  // namespace

WAVFileView::WAVFileView(const std::string& path, bool prefetch, bool lock) : FileView(path, prefetch, lock) {
    if (IsValid() && !ParseWave()) Close();
}

// Runs before `offset` is set, so that positions count from the start of the file and `size` is the whole file's.
bool WAVFileView::ParseWave() {
    if (size <= WaveLayout::PlainHeader) return false;
    WaveBytes bytes(*this);
    u8 riff[WaveLayout::FirstChunk];
    bytes.Copy(0, riff, sizeof riff);
    if (!HasTag(riff, "RIFF")) {
        ORV_ENGINE_LOG(LogWarnSink, "No RIFF marker");
        return false;
    }
    if (U32At(riff + 4) > size) {
        ORV_ENGINE_LOG(LogWarnSink, "Invalid RIFF length");
        return false;
    }
    if (!HasTag(riff + 8, "WAVE")) {
        ORV_ENGINE_LOG(LogWarnSink, "No WAVE marker");
        return false;
    }
    u64 position = WaveLayout::FirstChunk;
    return ParseFormat(bytes, position) && FindData(bytes, position);
}

bool WAVFileView::ParseFormat(WaveBytes& bytes, u64& position) {
    ChunkHeader chunk;
    for (;; position = chunk.Next(position)) {
        if (position >= size || !chunk.Read(bytes, position)) {
            ORV_ENGINE_LOG(LogWarnSink, "No fmt marker");
            return false;
        }
        if (chunk.Is("fmt ")) break;
    }
    u8 body[WaveFormat::BodyBytes];
    bytes.Copy(position + WaveLayout::ChunkHeader, body, sizeof body);
    const WaveFormat format(body);
    if (chunk.Length() < WaveFormat::BodyBytes || !(format.IsPcm() || format.IsImaAdpcm())) {
        ORV_ENGINE_LOG(LogWarnSink, "Unsupported WAV format: " << format);
        return false;
    }
    adpcm = format.IsImaAdpcm();
    position = chunk.Next(position);
    if (position >= size) {
        ORV_ENGINE_LOG(LogWarnSink, "Invalid fmt size");
        return false;
    }
    return true;
}

bool WAVFileView::FindData(WaveBytes& bytes, u64 position) {
    ChunkHeader chunk;
    for (;; position = chunk.Next(position)) {
        if (position >= size || !chunk.Read(bytes, position)) {
            ORV_ENGINE_LOG(LogWarnSink, "No data marker");
            return false;
        }
        if (chunk.Is("data")) break;
        ORV_ENGINE_LOG(LogDebugSink, "Skipping chunk '" << chunk.Tag() << "' of size " << chunk.Length());
    }
    offset = position + WaveLayout::ChunkHeader;
    size = std::min<u64>(chunk.Length(), size - offset);
    return true;
}

}  // namespace Orv
