// The reader on a music box.
#pragma once

#include "Projects/Common/VoIPFileEngine/MusicBox.h"

namespace Orv {

// Plays what is on in a box: silence until the next second of it has been filled, then its chunks, in place. Finished
// when the box has dropped it; a box never ends by itself.
class MMFileStreamReaderMusicBox : public IMMFileStreamReader {
public:
    explicit MMFileStreamReaderMusicBox(u32 id = 0) noexcept : IMMFileStreamReader(id) {}
    ~MMFileStreamReaderMusicBox() override;
    MMFileStreamReaderMusicBox(const MMFileStreamReaderMusicBox&) = delete;
    MMFileStreamReaderMusicBox& operator=(const MMFileStreamReaderMusicBox&) = delete;

    // `name` is that of a registered box, exactly. May be called again.
    bool Open(const char* name, void* buffer, i32 frameBytes) override;
    // A reader that is not open tells its end at every call and still answers true.
    bool GetNextFrame(const u8** frame, ContentEventList& events) override;
    void Rewind() override {}
    // Always empty: the name of the box is not kept.
    std::string GetName() override { return {}; }
    bool IsOpen() override { return box_.IsValid(); }
    // May wait for the end of the box's thread, if this was the box's last holder.
    void Close() override;
    MTObjects::THolder<MTReferencedTypeBase> FrameOwner() override;

private:
    MTObjects::THolder<IMusicBoxConsumer> consumer_;
    MTObjects::THolder<IMusicBox> box_;
};

}  // namespace Orv
