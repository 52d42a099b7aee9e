// Plays a sound file that lies in memory.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <utility>

#include "Projects/Common/VoIPFileEngine/ADPCMDecoder.h"
#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"
#include "Projects/Common/VoIPFileEngine/IMemoryFile.h"

namespace Orv {

// A position of its own in a file that any number of readers share. A frame lies in the file itself if that is PCM and
// locked in memory, else in the reader; the caller's buffer is never used. A short last frame is filled up with zeros,
// and the end is told at the call behind it. Never waits for a disk, never allocates but in Open().
//
// An object whose file cannot be used is not valid.
class MemFileReader : public IMMFileStreamReader {
public:
    // Open() with a null name plays `file`.
    MemFileReader(u32 id, std::shared_ptr<IMemoryFile> file) noexcept
        : IMMFileStreamReader(id), file_(std::move(file)) {}

    // A name that is not null replaces the file. May wait for the disk then.
    bool Open(const char* name, void* buffer, i32 frameBytes) override;
    u64 ReadSamples(const u8** frame) override;
    // A file that has gone bad keeps the reader current, with null frames and an event each time.
    bool GetNextFrame(const u8** frame, ContentEventList& events) override;
    // Of an ADPCM file the rest of the block that is being played comes first, then the file's start.
    void Rewind() override { position_ = 0; }
    std::string GetName() override { return file_ ? file_->name : std::string(); }
    bool IsOpen() override { return TestValid(); }
    // Frames in the file itself end with it.
    void Close() override;
    bool IsFile() override { return true; }

protected:
    bool TestValid() const override { return file_ && file_->IsValid(); }

private:
    // The decoder's source: up to `bytes` bytes of the file, from the position on.
    u64 ReadBlock(const u8** block, u64 bytes);
    // The bytes of the next frame, 0 at the end.
    u64 ReadPcm(const u8** frame);

    std::shared_ptr<IMemoryFile> file_;
    u64 frameBytes_ = 0;
    u64 position_ = 0;  // in the file's audio
    std::array<u8, MaxFrameBytes> block_;
    std::shared_ptr<ADPCMDecoder> decoder_;  // set for ADPCM files only
};

}  // namespace Orv
