// Plays a file from disk while it is being read, without ever waiting for the disk.
#pragma once

#include <array>
#include <string>
#include <utility>

#include "Projects/Common/VoIPFileEngine/ADPCMDecoder.h"
#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"
#include "Projects/Common/VoIPFileEngine/RawFile.h"

namespace Orv {

// The front buffer is handed out while the back buffer is being filled; at the front buffer's end the two change
// places. A disk that is late gives a frame with a run of zeros, never a wait or a short frame, and the frame after it
// goes on where the file was left. A read that failed is not tried again: what is there plays, then a frame of zeros,
// then the stream has finished.
//
// Opening waits for the disk, nothing else does. Within a file the two read records alternate and nothing is allocated.
class RawFileStream : public IMMFileStreamReader {
public:
    explicit RawFileStream(u32 id = 0) noexcept : IMMFileStreamReader(id) {}
    ~RawFileStream() override;
    RawFileStream(const RawFileStream&) = delete;
    RawFileStream& operator=(const RawFileStream&) = delete;

    // May be called again. A stream that is opened again without a read since its last Rewind() keeps the buffers it
    // has.
    bool Open(const char* name, void* buffer, i32 frameBytes) override;
    // A frame that lies whole in one buffer is a pointer into it, any other is put together in the caller's buffer.
    bool GetNextFrame(const u8** frame, ContentEventList& events) override;
    // Gives up the reads under way and reads ahead from the start. Nothing happens if nothing was read since the last
    // time.
    void Rewind() override;
    std::string GetName() override { return name_; }
    bool IsOpen() override { return file_.IsValid(); }
    // Gives the use of the shared file back. Called by Open() and the destructor only.
    void Close() override;
    bool IsFile() override { return true; }
    // The front buffer or the decoder, so that the name and the shared file go with the stream.
    MTObjects::THolder<MTReferencedTypeBase> FrameOwner() override;

private:
    // Counted, as a frame that it made may still be in use when the stream is rewound or gone; then it is never called.
    struct Decoder : MTObjects::MTReferencedTypeBase {
        Decoder(ADPCMDecoder::Source source, u32 frameBytes) : adpcm(std::move(source), frameBytes) {}

        ADPCMDecoder adpcm;

    protected:
        bool TestValid() const override { return true; }
    };

    // Reads on where the front buffer ends, into the back buffer.
    void Prefetch();
    // `count` bytes of the file, put together in `block` if they do not lie in one buffer. Always `count`, filled up
    // with zeros if need be, or 0 and null at the end of the stream.
    u64 ReadRaw(const u8** out, u64 count, u8* block);
    // Moves `have` bytes at `*out`, unless it is null, to `block`, fills up with zeros and hands `block` out.
    u64 FinishBlock(const u8** out, u64 count, u64 have, u8* block, const char* reason);

    std::string name_;
    MTObjects::THolder<IRawFile> file_;
    MTObjects::THolder<IRawFileBuffer> front_;  // being handed out
    MTObjects::THolder<IRawFileBuffer> back_;   // being filled
    u64 blockSize_ = 0;
    u8* block_ = nullptr;                  // the caller's, blockSize_ bytes
    MTObjects::THolder<Decoder> decoder_;  // set for ADPCM files only
    // The caller's block may be smaller than a compressed one.
    std::array<u8, ADPCMDecoder::BlockBytes> compressedBlock_;
    bool rewound_ = false;  // the buffers are fresh and no read has been done since
};

}  // namespace Orv
