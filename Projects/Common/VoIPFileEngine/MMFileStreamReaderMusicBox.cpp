#include "Projects/Common/VoIPFileEngine/MMFileStreamReaderMusicBox.h"

#include "Projects/Common/VoIPFileEngine/MusicBoxConsumer.h"

namespace Orv {

MMFileStreamReaderMusicBox::~MMFileStreamReaderMusicBox() {
    MMFileStreamReaderMusicBox::Close();
}

bool MMFileStreamReaderMusicBox::Open(const char* name, void* buffer, i32 frameBytes) {
    Close();
    box_ = FindMusicBox(name);
    if (!box_.IsValid()) return false;
    consumer_ = new IMusicBoxConsumerImpl(buffer, frameBytes);
    consumer_->Connect(box_);
    return true;
}

bool MMFileStreamReaderMusicBox::GetNextFrame(const u8** frame, ContentEventList& events) {
    *frame = nullptr;
    if (!consumer_.IsValid()) {
        AppendFinished(events);
        return true;
    }
    if (consumer_->ReadFrame(frame)) return true;
    AppendFinished(events);
    return false;
}

void MMFileStreamReaderMusicBox::Close() {
    if (consumer_.IsValid()) consumer_->Disconnect();
    consumer_ = nullptr;
    box_ = nullptr;
}

MTObjects::THolder<MTObjects::MTReferencedTypeBase> MMFileStreamReaderMusicBox::FrameOwner() {
    if (!consumer_) return nullptr;
    return consumer_->FrameChunk();
}

}  // namespace Orv
