// Music boxes: one source, played once, for any number of listeners, who all hear the same audio at about the same
// moment. A box has a name that ends in a colon; CreateStreamReader() opens a listener on it by that name.
#pragma once

#include <string>

#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"
#include "Projects/Common/VoIPFileEngine/MusicBoxChunk.h"

namespace Orv {

class IMusicBoxConsumer;

// Any thread. Locks are taken in the order box, then consumer.
class IMusicBox : public virtual MTObjects::MTReferencedTypeBase {
public:
    IMusicBox() noexcept;
    ~IMusicBox() override;
    IMusicBox(const IMusicBox&) = delete;
    IMusicBox& operator=(const IMusicBox&) = delete;

    // The consumer gets every chunk that is finished from now on; a second subscription changes nothing. A consumer
    // holds the box for as long as it is subscribed.
    virtual void Subscribe(MTObjects::THolder<IMusicBoxConsumer> consumer) = 0;
    // Tells the consumer by OnSubscriptionRemoved(). Nothing happens for one that is not subscribed.
    virtual void Unsubscribe(MTObjects::THolder<IMusicBoxConsumer> consumer) = 0;
    // Unsubscribes everybody.
    virtual void Shutdown() = 0;

    // How many boxes the process has now.
    static u32 Living() noexcept;

protected:
    bool TestValid() const override { return true; }
};

// The listener's side: a queue of chunks and a position of its own.
class IMusicBoxConsumer : public virtual MTObjects::MTReferencedTypeBase {
public:
    // On the box's thread, with the box's lock held.
    virtual void AddChunk(MTObjects::THolder<IMusicBox> box, MTObjects::THolder<IMusicBoxSoundChunk> chunk) = 0;
    // The box has dropped the consumer; with the box's lock held. `box` is null when the box is being destroyed.
    virtual void OnSubscriptionRemoved(MTObjects::THolder<IMusicBox> box) = 0;

    // The rest is the reader's, on its one thread, and never with a lock held that a box's thread could want.
    virtual void Connect(MTObjects::THolder<IMusicBox> box) = 0;
    // May wait for the end of the box's thread, if this was the box's last holder.
    virtual void Disconnect() = 0;
    // The next frame: a pointer into a chunk, or the reader's buffer when the frame lies in two chunks or is short of
    // audio, then with zeros behind. False when the consumer is connected to no box and has nothing left.
    virtual bool ReadFrame(const u8** frame) = 0;
    // The chunk that the last frame lies in; null when it lies in the reader's buffer.
    virtual MTObjects::THolder<IMusicBoxSoundChunk> FrameChunk() = 0;

protected:
    bool TestValid() const override { return true; }
};

// Makes a box of that name, which plays `source` (not null) on a thread of its own, in frames of 160 bytes, one each
// 10 ms while there are consumers. `listener`, if any, gets the source's events on that thread. `shift`: bits by which
// samples are moved, positive to the left. Null when the name is taken; the box that has it stays as it is. Any thread.
// Throws std::system_error when no thread can be started.
MTObjects::THolder<IMusicBox> RegisterMusicBox(const std::string& name, MTObjects::THolder<IMMStreamManager> source,
                                               MTObjects::THolder<IContentPlayListener> listener, i32 shift);

// Takes the name away; with `shutdown` all readers of the box finish. The box goes with its last holder, which waits
// for its thread. False when there is no box of that name. Any thread.
bool UnregisterMusicBox(const std::string& name, bool shutdown);

// The box of that name, or null. Any thread.
MTObjects::THolder<IMusicBox> FindMusicBox(const std::string& name);

}  // namespace Orv
