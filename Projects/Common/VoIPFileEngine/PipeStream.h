// The reader of a live source.
#pragma once

#include <string>

#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"
#include "Projects/Common/VoIPFileEngine/PipeMusicBox.h"

namespace Orv {

// Plays what another process sends through a pipe, and silence while nothing comes: a source that is missing, stalls or
// goes is waited for and never an end. Runs up to 16384 bytes, about a second, behind the source; a reader that is
// further behind, that is new or that was rewound goes on 8192 bytes, 512 ms, behind. Across a loss it plays 8192 bytes
// of silence and then the new connection from its start.
class IPipeStream : public IMMFileStreamReader {
public:
    explicit IPipeStream(u32 id = 0) noexcept : IMMFileStreamReader(id) {}
    // Gives the name back. May wait for the end of the box's thread, see there, if this was its last user.
    ~IPipeStream() override;
    IPipeStream(const IPipeStream&) = delete;
    IPipeStream& operator=(const IPipeStream&) = delete;

    // `name` is a pipe path. True also when nobody serves it yet. May be called again; the old name is given back.
    bool Open(const char* name, void* buffer, i32 frameBytes) override;
    // Takes no lock and allocates nothing. A frame lies in the ring, for at least 3 seconds, or in the caller's buffer.
    bool GetNextFrame(const u8** frame, ContentEventList& events) override;
    void Rewind() override { position_ = 0; }
    std::string GetName() override { return name_; }
    // True from a successful Open() on, connected or not.
    bool IsOpen() override { return box_.IsValid(); }
    // Gives the name back and plays on.
    void Close() override;
    MTObjects::THolder<MTReferencedTypeBase> FrameOwner() override;

private:
    static constexpr u64 LongestLag = 16384;
    static constexpr u64 RejoinLag = 8192;

    std::string name_;
    MTObjects::THolder<IPipeMusicBox> box_;
    i32 frameBytes_ = 0;
    u8* frameBuffer_ = nullptr;
    u64 position_ = 0;  // in bytes of the stream; wraps, as differences to it do
};

}  // namespace Orv
