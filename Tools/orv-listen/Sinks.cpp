#include "Tools/orv-listen/Sinks.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace Orv {
namespace {

void PutLittleEndian(u8* out, u32 value, u32 bytes) {
    for (u32 i = 0; i < bytes; ++i) out[i] = static_cast<u8>(value >> (8 * i));
}

std::array<u8, 44> WavHeader(u32 dataBytes) {
    std::array<u8, 44> header{};
    std::memcpy(header.data(), "RIFF", 4);
    PutLittleEndian(&header[4], 36 + dataBytes, 4);
    std::memcpy(&header[8], "WAVEfmt ", 8);
    PutLittleEndian(&header[16], 16, 4);
    PutLittleEndian(&header[20], 1, 2);      // PCM
    PutLittleEndian(&header[22], 1, 2);      // one channel
    PutLittleEndian(&header[24], 8000, 4);   // samples a second
    PutLittleEndian(&header[28], 16000, 4);  // bytes a second
    PutLittleEndian(&header[32], 2, 2);      // bytes a sample
    PutLittleEndian(&header[34], 16, 2);     // bits a sample
    std::memcpy(&header[36], "data", 4);
    PutLittleEndian(&header[40], dataBytes, 4);
    return header;
}

class WavSink final : public ISoundSink {
public:
    explicit WavSink(std::FILE* file) : file_(file) {}
    ~WavSink() override {
        if (file_ != nullptr) std::fclose(file_);
    }

    SinkState Write(const u8* bytes, u64 count) override {
        // The length fields hold 32 bits: 37 hours of sound.
        if (written_ + count > 0xFFFFFFFFu - 36) return SinkState::Failed;
        if (std::fwrite(bytes, 1, count, file_) != count) return SinkState::Failed;
        written_ += static_cast<u32>(count);
        return written_ - stated_ < 16000 || StateLength() ? SinkState::Open : SinkState::Failed;
    }

    SinkState Finish() override {
        const bool stated = StateLength();
        const bool closed = std::fclose(file_) == 0;
        file_ = nullptr;
        return stated && closed ? SinkState::Open : SinkState::Failed;
    }

private:
    bool StateLength() {
        const auto header = WavHeader(written_ & ~u32{1});
        stated_ = written_;
        return std::fseek(file_, 0, SEEK_SET) == 0 &&
               std::fwrite(header.data(), 1, header.size(), file_) == header.size() &&
               std::fseek(file_, 0, SEEK_END) == 0 && std::fflush(file_) == 0;
    }

    std::FILE* file_;
    u32 written_ = 0;
    u32 stated_ = 0;
};

}  // namespace

std::unique_ptr<ISoundSink> MakeWavSink(const std::string& path, std::string& reason) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        reason = std::strerror(errno);
        return nullptr;
    }
    const auto header = WavHeader(0);
    if (std::fwrite(header.data(), 1, header.size(), file) != header.size() || std::fflush(file) != 0) {
        reason = std::strerror(errno);
        std::fclose(file);
        return nullptr;
    }
    return std::make_unique<WavSink>(file);
}

}  // namespace Orv
