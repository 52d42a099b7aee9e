#include "Projects/Common/VoIPFileEngine/LoadPcmFile.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <new>
#include <optional>
#include <vector>

#include "Platform/Files.h"
#include "Platform/OutOfMemory.h"
#include "Projects/Common/VoIPFileEngine/ContentName.h"
#include "Projects/Common/VoIPFileEngine/ResampleTo8k.h"
#include "Projects/Common/VoIPFileEngine/WaveFormat.h"
#include "ServiceProcess/LogAdapters.h"

namespace Orv {
namespace {

// Samples are read and written as bytes.
static_assert(std::endian::native == std::endian::little);

constexpr char kLogSource[] = "VoIPFileEngine/FileView";

constexpr u64 kLastPosition = 0x7FFFFFFF;  // the last one that a seek can reach

// Reads a file on from where it stands, short pieces through a small window, so that even a file of nothing but empty
// chunks costs few reads.
class FileCursor {
public:
    explicit FileCursor(Platform::IReadFile& file) : file_(file) {}

    u64 Position() const { return position_; }

    // True when all of the bytes came.
    bool Read(void* destination, u64 count) {
        if (count > window_.size()) {
            const u64 got = file_.ReadAt(position_, destination, count);
            position_ += got;
            return got == count;
        }
        if (position_ < begin_ || position_ + count > begin_ + length_) {
            begin_ = position_;
            length_ = file_.ReadAt(begin_, window_.data(), window_.size());
        }
        if (position_ + count > begin_ + length_) return false;
        std::memcpy(destination, window_.data() + (position_ - begin_), count);
        position_ += count;
        return true;
    }
    bool ReadLength(u32& length) {
        u8 bytes[4];
        if (!Read(bytes, sizeof bytes)) return false;
        length = U32At(bytes);
        return true;
    }
    // Positions behind the end of the file can be gone to, but not read at. False, where it stood, for one that no file
    // can have.
    bool Skip(i64 bytes) {
        const i64 target = static_cast<i64>(position_) + bytes;
        if (target < 0 || target > static_cast<i64>(kLastPosition)) return false;
        position_ = static_cast<u64>(target);
        return true;
    }
    // Over a chunk's body, forward only, so that every walk comes to an end.
    void SkipBody(u32 length) { position_ += length; }

private:
    Platform::IReadFile& file_;
    std::array<u8, 4096> window_;
    u64 position_ = 0;
    u64 begin_ = 0;
    u64 length_ = 0;
};

bool ReadsTag(FileCursor& cursor, std::string_view tag) {
    u8 bytes[4];
    return cursor.Read(bytes, sizeof bytes) && HasTag(bytes, tag);
}

bool PassRiffHeader(FileCursor& cursor, u64 fileSize) {
    if (!ReadsTag(cursor, "RIFF")) {
        ORV_ENGINE_LOG(LogWarnSink, "No RIFF marker");
        return false;
    }
    u32 length = 0;
    if (!cursor.ReadLength(length)) return false;
    if (length > fileSize - 4) {
        ORV_ENGINE_LOG(LogWarnSink, "Invalid RIFF length");
        return false;
    }
    if (!ReadsTag(cursor, "WAVE")) {
        ORV_ENGINE_LOG(LogWarnSink, "No WAVE marker");
        return false;
    }
    return true;
}

// Goes to the length field of the first chunk of that tag. `missing` is what the log says when there is none.
bool WalkTo(FileCursor& cursor, std::string_view tag, const char* missing) {
    for (;;) {
        u8 found[4];
        if (!cursor.Read(found, sizeof found)) {
            ORV_ENGINE_LOG(LogWarnSink, missing);
            return false;
        }
        if (HasTag(found, tag)) return true;
        u32 length = 0;
        if (!cursor.ReadLength(length)) return false;
        cursor.SkipBody(length);
    }
}

// Goes behind the "fmt " chunk, or back into it if it calls itself too short. Nothing when the file is refused; `adpcm`
// is true also of one that is refused for where the chunk ends.
std::optional<WaveFormat> ReadFormat(FileCursor& cursor, bool& adpcm) {
    if (!WalkTo(cursor, "fmt ", "No fmt marker")) return std::nullopt;
    u8 chunk[4 + WaveFormat::BodyBytes];
    if (!cursor.Read(chunk, sizeof chunk)) return std::nullopt;
    const u32 length = U32At(chunk);
    const WaveFormat format(chunk + 4);
    const bool plays = length >= WaveFormat::BodyBytes && (format.IsPcm() || format.IsImaAdpcm());
    if (!plays && !format.IsFasterPcm()) {
        ORV_ENGINE_LOG(LogWarnSink, "Unsupported WAV format: " << format);
        return std::nullopt;
    }
    adpcm = format.IsImaAdpcm();
    if (!cursor.Skip(static_cast<i64>(length) - WaveFormat::BodyBytes)) {
        ORV_ENGINE_LOG(LogWarnSink, "Invalid fmt size");
        return std::nullopt;
    }
    return format;
}

PageBytes ReadBytes(FileCursor& cursor, u64 count) {
    PageBytes bytes = AllocatePages(count);
    if (bytes != nullptr && !cursor.Read(bytes.get(), count)) bytes.reset();
    return bytes;
}

// Null when it fails, for whatever reason.
PageBytes Resample(const u8* bytes, u64& byteCount, u32 rate) try {
    const Platform::MemoryMayFail mayFail;  // the file then plays from disk, or not at all
    const std::vector<i16> resampled =
        ResampleTo8k(reinterpret_cast<const i16*>(bytes), static_cast<u32>(byteCount / sizeof(i16)), rate);
    if (resampled.empty()) return nullptr;
    PageBytes result = AllocatePages(resampled.size() * sizeof(i16));
    if (result == nullptr) return nullptr;
    byteCount = resampled.size() * sizeof(i16);
    std::memcpy(result.get(), resampled.data(), byteCount);
    return result;
} catch (const std::bad_alloc&) {
    return nullptr;
}

PageBytes LoadWave(const std::string& path, FileCursor& cursor, u64 fileSize, u64& dataOffset, u64& dataSize,
                   bool& adpcm) {
    if (!PassRiffHeader(cursor, fileSize)) return nullptr;
    const std::optional<WaveFormat> format = ReadFormat(cursor, adpcm);
    if (!format) return nullptr;
    u32 length = 0;
    if (!WalkTo(cursor, "data", "No data marker") || !cursor.ReadLength(length)) return nullptr;
    dataOffset = cursor.Position();
    dataSize = std::min<u64>(length, fileSize - std::min(fileSize, dataOffset));
    if (dataSize < sizeof(i16)) {
        ORV_ENGINE_LOG(LogWarnSink, "Zero 'data' chunk");
        return nullptr;
    }
    PageBytes bytes = ReadBytes(cursor, dataSize);
    if (bytes == nullptr || !format->IsFasterPcm()) return bytes;

    bytes = Resample(bytes.get(), dataSize, format->sampleRate);
    if (bytes == nullptr) {
        ORV_ENGINE_LOG(LogWarnSink, "Failed to resample " << path);
    } else {
        ORV_ENGINE_LOG(LogInfoSink, "File has been resampled " << path);
    }
    return bytes;
}

}  // namespace

PageBytes LoadPcmFile(const std::string& path, u64& fileSize, u64& dataOffset, u64& dataSize, bool& adpcm) {
    fileSize = dataOffset = dataSize = 0;
    adpcm = false;
    Platform::SystemError error = 0;
    const auto file = Platform::OpenReadFile(path, error);
    if (file == nullptr) {
        ORV_ENGINE_LOG(LogErrorSink, "Failed to open file " << path << ", error: " << error);
        return nullptr;
    }
    if (file->Size() > kLastPosition) return nullptr;  // its end cannot be found by seeking
    fileSize = file->Size();
    if (fileSize < WaveLayout::PlainHeader) return nullptr;
    FileCursor cursor(*file);
    if (EndsInWav(path)) return LoadWave(path, cursor, fileSize, dataOffset, dataSize, adpcm);
    dataSize = fileSize;
    return ReadBytes(cursor, dataSize);
}

}  // namespace Orv
