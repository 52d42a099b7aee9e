#include "Projects/Common/VoIPFileEngine/MemFileReader.h"

#include <cassert>
#include <cstring>

#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"
#include "Projects/Common/VoIPFileEngine/OpenMemoryFile.h"

namespace Orv {

bool MemFileReader::Open(const char* name, void*, i32 frameBytes) {
    assert(frameBytes >= 0 && static_cast<u32>(frameBytes) <= MaxFrameBytes);
    if (name != nullptr) file_ = OpenMemoryFile(name, true, true);
    frameBytes_ = static_cast<u64>(frameBytes);
    position_ = 0;
    decoder_ = nullptr;
    if (!TestValid()) return false;
    if (file_->adpcm) {
        decoder_ = std::make_shared<ADPCMDecoder>(
            [this](const u8** block, u64 bytes) { return ReadBlock(block, bytes); }, static_cast<u32>(frameBytes_));
    }
    return true;
}

void MemFileReader::Close() {
    file_ = nullptr;
    decoder_ = nullptr;
}

u64 MemFileReader::ReadBlock(const u8** block, u64 bytes) {
    const u64 got = file_->GetData(block, position_, bytes);
    position_ += got;
    return got;
}

u64 MemFileReader::ReadSamples(const u8** frame) {
    *frame = nullptr;
    if (file_ == nullptr) return 0;
    if (decoder_ != nullptr) return decoder_->Decode(frame, static_cast<u32>(frameBytes_ / 2));
    return ReadPcm(frame) / 2;
}

// Only locked memory is handed out by pointer: any other may have to be fetched by whoever reads it.
u64 MemFileReader::ReadPcm(const u8** frame) {
    const u8* bytes = nullptr;
    const u64 got = file_->locked ? file_->GetData(&bytes, position_, frameBytes_)
                                  : file_->Read(block_.data(), position_, frameBytes_);
    if (got == 0) return 0;
    position_ += got;
    if (file_->locked && got == frameBytes_) {
        *frame = bytes;
        return got;
    }
    if (file_->locked) std::memcpy(block_.data(), bytes, got);
    std::memset(block_.data() + got, 0, frameBytes_ - got);
    *frame = block_.data();
    return got;
}

bool MemFileReader::GetNextFrame(const u8** frame, ContentEventList& events) {
    if (ReadSamples(frame) > 0) return true;
    AppendFinished(events);
    return file_ != nullptr && !file_->IsValid();
}

MTObjects::THolder<IMMFileStreamReader> CreateMemFileReader(u32 id, const char* name, void* buffer, u32 frameBytes) {
    std::shared_ptr<IMemoryFile> file = MemoryFileCache::Instance().Find(name);
    if (file == nullptr) return nullptr;
    MTObjects::THolder<IMMFileStreamReader> reader(new MemFileReader(id, std::move(file)));
    reader->Open(nullptr, buffer, static_cast<i32>(frameBytes));
    return reader;
}

}  // namespace Orv
