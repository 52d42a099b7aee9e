// Two lists of content played at once.
#pragma once

#include <array>
#include <atomic>
#include <vector>

#include "Platform/Sync.h"
#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"
#include "Projects/Common/VoIPFileEngine/Mixer.h"

namespace Orv {

// A main list and an overlay list, each a sequence of readers played one after the other. The main list alone plays at
// full level; under the overlay list it goes down to one eighth. Ends are told by events, one with the item's id and
// one with the list's id when a list has run out; the answer of GetNextFrame is of no use to an owner.
//
// One thread pulls frames, any other may change the content: replacing a list holds the mutex while it opens the items,
// so a puller waits for that. A frame that has been handed out stays valid until the next one is pulled, whatever
// happens to the lists meanwhile.
class MMStreamSetReader : public IMMFileStreamReader, public IMMStreamManager {
public:
    MMStreamSetReader() = default;

    // IMMFileStreamReader. A new frame size empties both lists and clears the mix mask; one below 0 or above
    // MaxFrameBytes is refused with false and changes nothing. Not while another thread pulls frames.
    bool Open(const char* name, void* buffer, i32 frameBytes) override;
    bool GetNextFrame(const u8** frame, ContentEventList& events) override;
    // Both lists to their first item; the ramp stays where it is.
    void Rewind() override;
    // Name and id of the overlay list's current reader; empty and 0 if it has none. The main list's is never told. Both
    // take the mutex: from any thread, while the list may be replaced.
    std::string GetName() override;
    u32 GetContentId() override;
    bool IsOpen() override { return true; }
    void Close() override;

    // IMMStreamManager.
    bool SetMainContent(u32 id, const std::list<StreamItem>& items, bool loop) override;
    bool SetOverlayContent(u32 id, const std::list<StreamItem>& items, bool loop) override;
    bool SetMixMask(u8 mask) override;
    bool Prepare(void* buffer, i32 frameBytes) override { return Open(nullptr, buffer, frameBytes); }
    MTObjects::THolder<IMMFileStreamReader> GetReader() override { return this; }
    void SwitchContent(u32 id, bool loop, const std::list<StreamItem>& items, u8 layer, u8 maskBefore,
                       u8 maskAfter) override;

protected:
    bool TestValid() const override { return true; }

private:
    struct ReaderList {
        std::vector<MTObjects::THolder<IMMFileStreamReader>> readers;
        u64 cursor = 0;  // the current reader; the number of readers when the list has run out
        bool loop = false;

        IMMFileStreamReader* Current() const { return cursor < readers.size() ? readers[cursor].Get() : nullptr; }
    };
    using FrameBlock = std::array<u8, MaxFrameBytes>;
    // What one list gave for a tick, and what keeps that alive.
    struct ListFrame {
        const u8* samples = nullptr;
        MTObjects::THolder<MTReferencedTypeBase> owner;
    };

    void Replace(ReaderList& list, FrameBlock& block, const std::list<StreamItem>& items, bool loop)
        ORV_REQUIRES(mutex_);
    bool Step(ReaderList& list, u32 listId, ListFrame& frame, ContentEventList& events) ORV_REQUIRES(mutex_);
    static bool StepReaders(ReaderList& list, u32 listId, const u8** frame, ContentEventList& events);
    static void RewindList(ReaderList& list);
    const u8* HandOut(ListFrame& frame);

    MainGain mainGain_;  // the pulling thread's
    std::atomic<u8> mixMask_{0};
    Platform::RecursiveMutex mutex_;
    // Constant once frames are pulled.
    u8* outBuffer_ = nullptr;
    i32 frameBytes_ = 0;
    std::string name_ = "NONAME";
    ReaderList overlay_ ORV_GUARDED_BY(mutex_);
    ReaderList main_ ORV_GUARDED_BY(mutex_);
    u32 mainId_ ORV_GUARDED_BY(mutex_) = 0;
    u32 overlayId_ ORV_GUARDED_BY(mutex_) = 0;
    // The pulling thread's: keeps the frame alive that was handed out as it is.
    MTObjects::THolder<MTReferencedTypeBase> handedOut_;
    // All readers of a list write their frames here: only the current one is read, and its frame is used up before the
    // next one is.
    FrameBlock mainFrame_;
    FrameBlock overlayFrame_;
};

}  // namespace Orv
