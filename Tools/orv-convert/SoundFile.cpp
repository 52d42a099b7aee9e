#include "Tools/orv-convert/SoundFile.h"

#include <sndfile.h>

#include <algorithm>
#include <cstdio>

namespace Orv {
namespace {

// What the decoder asks of a file.
class FileAccess {
public:
    explicit FileAccess(Platform::IReadFile& file) : file_(file) {}

    static SF_VIRTUAL_IO Operations() {
        return {[](void* self) { return static_cast<sf_count_t>(Self(self).file_.Size()); },
                [](sf_count_t offset, int whence, void* self) { return Self(self).Seek(offset, whence); },
                [](void* to, sf_count_t count, void* self) { return Self(self).Read(to, count); },
                [](const void*, sf_count_t, void*) { return sf_count_t{0}; },
                [](void* self) { return static_cast<sf_count_t>(Self(self).position_); }};
    }

private:
    static FileAccess& Self(void* self) { return *static_cast<FileAccess*>(self); }

    sf_count_t Seek(sf_count_t offset, int whence) {
        const auto size = static_cast<sf_count_t>(file_.Size());
        const auto from = whence == SEEK_SET   ? sf_count_t{0}
                          : whence == SEEK_CUR ? static_cast<sf_count_t>(position_)
                                               : size;
        position_ = static_cast<u64>(std::clamp<sf_count_t>(from + std::clamp(offset, -size, size), 0, size));
        return static_cast<sf_count_t>(position_);
    }

    sf_count_t Read(void* to, sf_count_t count) {
        if (count <= 0) return 0;
        const u64 taken = file_.ReadAt(position_, to, static_cast<u64>(count));
        position_ += taken;
        return static_cast<sf_count_t>(taken);
    }

    Platform::IReadFile& file_;
    u64 position_ = 0;
};

const char* FormatName(int format) {
    switch (format & SF_FORMAT_TYPEMASK) {
        case SF_FORMAT_WAV:
        case SF_FORMAT_WAVEX:
        case SF_FORMAT_RF64:
            return "WAV";
        case SF_FORMAT_FLAC:
            return "FLAC";
        case SF_FORMAT_OGG:
            return (format & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS ? "Opus" : "Ogg";
        case SF_FORMAT_MPEG:
            return "MP3";
        default:
            return nullptr;
    }
}

class SoundFile final : public ISoundFile {
public:
    explicit SoundFile(Platform::IReadFile& file) : access_(file) {
        if (file.Size() == 0) throw Refusal("is empty");
        SF_VIRTUAL_IO operations = FileAccess::Operations();
        handle_.reset(sf_open_virtual(&operations, SFM_READ, &info_, &access_));
        if (handle_ == nullptr) {
            throw Refusal(std::string("is no sound file that can be read (WAV, FLAC, Ogg, Opus, MP3): ") +
                          sf_strerror(nullptr));
        }
        format_ = FormatName(info_.format);
        if (format_ == nullptr) throw Refusal("is a sound file of another kind than WAV, FLAC, Ogg, Opus and MP3");
        if (info_.channels < 1 || info_.channels > 2) {
            throw Refusal("has " + std::to_string(info_.channels) + " channels; mix it down to one or two first");
        }
        if (info_.samplerate < 1000 || info_.samplerate > 768'000) {
            throw Refusal("has a rate of " + std::to_string(info_.samplerate) + " Hz, which no sound has");
        }
    }

    const char* Format() const override { return format_; }
    u32 Rate() const override { return static_cast<u32>(info_.samplerate); }
    u32 Channels() const override { return static_cast<u32>(info_.channels); }
    u64 StatedFrames() const override {
        // A stream that does not know its length states the largest there is.
        constexpr sf_count_t kNobodyKnows = sf_count_t{1} << 50;
        return info_.frames > 0 && info_.frames < kNobodyKnows ? static_cast<u64>(info_.frames) : 0;
    }

    const std::vector<float>& Read(u64 frames) override {
        samples_.resize(frames * Channels());
        const sf_count_t got = sf_readf_float(handle_.get(), samples_.data(), static_cast<sf_count_t>(frames));
        samples_.resize(static_cast<u64>(std::max<sf_count_t>(got, 0)) * Channels());
        read_ += samples_.size() / Channels();
        if (samples_.empty() && sf_error(handle_.get()) != SF_ERR_NO_ERROR) {
            char text[160];
            std::snprintf(text, sizeof text, "is damaged after %.1f s: %s",
                          static_cast<double>(read_) / info_.samplerate, sf_strerror(handle_.get()));
            throw Refusal(text);
        }
        return samples_;
    }

private:
    struct Close {
        void operator()(SNDFILE* handle) const { sf_close(handle); }
    };

    FileAccess access_;
    SF_INFO info_{};
    std::unique_ptr<SNDFILE, Close> handle_;
    const char* format_ = nullptr;
    std::vector<float> samples_;
    u64 read_ = 0;
};

}  // namespace

std::unique_ptr<ISoundFile> OpenSoundFile(Platform::IReadFile& file) {
    return std::make_unique<SoundFile>(file);
}

}  // namespace Orv
