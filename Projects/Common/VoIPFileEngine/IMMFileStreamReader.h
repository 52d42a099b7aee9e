// The one reader interface of the file engine, the events by which a reader tells its owner that something ended, and
// the factory that turns a content name into a reader.
//
// Audio everywhere: 8000 Hz, signed 16-bit little-endian, mono; 2 bytes a sample, 16000 bytes a second. Frames are
// counted in bytes here and are never larger than MaxFrameBytes.
#pragma once

#include <list>
#include <string>

#include "Platform/SystemError.h"
#include "Platform/Types.h"
#include "ServiceProcess/MTReferencedTypeBase.h"

namespace Orv {

inline constexpr u32 BytesPerSecond = 16000;
inline constexpr u32 MaxFrameBytes = 2048;

// Something ended. The ids' meaning belongs to the owner.
struct ContentEvent {
    static constexpr u32 ContentFinished = 1;  // the only kind

    u32 kind;
    u32 id;
    // Of the read that ended the content before its end; 0: none failed. Only the event of a file's own reader has one,
    // also when already the first read fails; that of a list has none, nor that of a file that could not be opened.
    Platform::SystemError error = 0;
    // Beside an error: the file's name as its reader has it, whatever the owner plays by now. Otherwise empty.
    std::string name{};
};

// Owned by the caller of GetNextFrame, who makes it empty and walks it afterwards; readers only append.
using ContentEventList = std::list<ContentEvent>;

// A source of audio frames. Driven by one thread at a time, unless a class says otherwise. Never blocks on its source:
// a source that is short of data yields silence or a null frame.
class IMMFileStreamReader : public virtual MTObjects::MTReferencedTypeBase {
public:
    explicit IMMFileStreamReader(u32 id = 0) noexcept : id_(id) {}

    // Binds the reader to its source. `buffer` has at least `frameBytes` bytes, is the caller's and outlives the
    // reader, which may write frames into it. True when the source is usable. May wait for the disk.
    virtual bool Open(const char* name, void* buffer, i32 frameBytes) = 0;
    // At most one frame without end-of-content handling: the samples read, and where they lie.
    virtual u64 ReadSamples(const u8** frame);
    // Sets `*frame` on every call: null when there is nothing for this tick, otherwise exactly the frame size in bytes,
    // valid until the next call on this reader; it may lie in the caller's buffer, in the reader, or in memory that
    // other readers see too, at any address. True while the reader is still current; false when it has finished and
    // the owner should move on. A finished reader has appended one event with its id.
    // In the steady state, between two ends of content: no allocation, no blocking, no formatting below the log level.
    virtual bool GetNextFrame(const u8** frame, ContentEventList& events) = 0;
    // Back to the start of the content.
    virtual void Rewind() = 0;
    // The source's name.
    virtual std::string GetName() = 0;
    // True when the source is usable.
    virtual bool IsOpen() = 0;
    // Drops the source.
    virtual void Close() = 0;
    // True for readers of a real file.
    virtual bool IsFile();
    // The id given at construction, 0 by default.
    virtual u32 GetContentId();
    // What keeps the last frame as it is when the reader is rewound, or goes, before the frame has been used: the
    // reader itself, unless a class knows of something smaller. Null when that memory is the caller's or never freed.
    // To be asked on the thread that drives the reader, before its next frame or rewind.
    virtual MTObjects::THolder<MTReferencedTypeBase> FrameOwner();

protected:
    bool TestValid() const override { return true; }
    void AppendFinished(ContentEventList& events, Platform::SystemError error = 0) {
        events.push_back(
            ContentEvent{ContentEvent::ContentFinished, GetContentId(), error, error != 0 ? GetName() : std::string()});
    }

private:
    const u32 id_;
};

// Whoever pulls frames passes the events on through this.
class IContentPlayListener : public virtual MTObjects::MTReferencedTypeBase {
public:
    // Operations of a player that has more to tell; nobody here calls them.
    virtual void OnContentStarted() {}
    virtual void OnContentPaused() {}
    virtual void OnContentResumed() {}
    // On the thread that pulls the frames.
    virtual void OnContentEvent(const ContentEvent& event) = 0;
};

// One entry of a content list.
struct StreamItem {
    u32 id;            // becomes the reader's id
    std::string name;  // a content name as CreateStreamReader takes it, or the text of a text item
    bool isText;
};

// Decides what plays. Operations may come from another thread than the one that pulls frames.
class IMMStreamManager : public virtual MTObjects::MTReferencedTypeBase {
public:
    // Each replaces one list; true. Opens the items, and so may wait for the disk.
    virtual bool SetMainContent(u32 id, const std::list<StreamItem>& items, bool loop) = 0;
    virtual bool SetOverlayContent(u32 id, const std::list<StreamItem>& items, bool loop) = 0;
    // Bit 0: the main list plays. Bit 1: the overlay list plays. True.
    virtual bool SetMixMask(u8 mask) = 0;
    // The frame buffer, which outlives the manager. Must come before any content.
    virtual bool Prepare(void* buffer, i32 frameBytes) = 0;
    // The reader side of the same object.
    virtual MTObjects::THolder<IMMFileStreamReader> GetReader() = 0;
    // `maskBefore`, then the main list when `layer` is 1 and the overlay list otherwise, then `maskAfter`.
    virtual void SwitchContent(u32 id, bool loop, const std::list<StreamItem>& items, u8 layer, u8 maskBefore,
                               u8 maskAfter) = 0;

protected:
    bool TestValid() const override { return true; }
};

// Turns a content name into an opened reader. Never fails visibly: whatever goes wrong, the result carries `id` and
// reports itself finished. `buffer` and `frameBytes` go to the reader's Open. Any thread; may wait for the disk.
MTObjects::THolder<IMMFileStreamReader> CreateStreamReader(u32 id, const char* name, void* buffer, u32 frameBytes);

// A new, empty stream set: a main list and an overlay list, mixed.
MTObjects::THolder<IMMStreamManager> CreateStreamSet();

}  // namespace Orv
