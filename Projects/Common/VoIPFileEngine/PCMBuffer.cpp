#include "Projects/Common/VoIPFileEngine/PCMBuffer.h"

#include "Platform/Memory.h"
#include "Projects/Common/VoIPFileEngine/LoadPcmFile.h"

namespace Orv {

PCMBuffer::PCMBuffer(const std::string& path, bool lock) {
    name = path;
    u64 fileSize = 0;
    u64 dataOffset = 0;
    data = LoadPcmFile(path, fileSize, dataOffset, size, adpcm).release();
    if (data == nullptr) size = 0;
    if (lock && data != nullptr) locked = Platform::LockMemory(data, size);
}

PCMBuffer::~PCMBuffer() {
    if (locked) Platform::UnlockMemory(data, size);
    FreeBytes()(const_cast<u8*>(data));
}

}  // namespace Orv
