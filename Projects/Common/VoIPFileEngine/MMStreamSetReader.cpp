#include "Projects/Common/VoIPFileEngine/MMStreamSetReader.h"

#include "Projects/Common/VoIPFileEngine/MMTextStreamReader.h"
#include "ServiceProcess/LogAdapters.h"

namespace Orv {
namespace {

constexpr char kLogSource[] = "VoIPFileEngine/MMStreamSetReader";

constexpr u8 kMainPlays = 1;
constexpr u8 kOverlayPlays = 2;
constexpr u8 kMainLayer = 1;

using Guard = Platform::LockGuard<Platform::RecursiveMutex>;

}  // namespace

bool MMStreamSetReader::Open(const char* name, void* buffer, i32 frameBytes) {
    if (frameBytes < 0 || frameBytes > static_cast<i32>(MaxFrameBytes)) return false;
    // All readers were opened with the old size.
    if (frameBytes != frameBytes_) Close();
    name_ = name != nullptr ? name : "NONAME";
    outBuffer_ = static_cast<u8*>(buffer);
    frameBytes_ = frameBytes;
    return true;
}

bool MMStreamSetReader::GetNextFrame(const u8** frame, ContentEventList& events) {
    *frame = nullptr;
    handedOut_ = nullptr;
    const u8 mask = mixMask_.load(std::memory_order_acquire);
    if (mask == 0) return true;

    bool mainResult = true;
    bool overlayResult = true;
    ListFrame main;
    ListFrame overlay;
    if ((mask & kMainPlays) != 0) {
        Guard guard(mutex_);
        mainResult = Step(main_, mainId_, main, events);
    } else {
        mainGain_ = {};  // the main list that comes back fades in from silence
    }
    if ((mask & kOverlayPlays) != 0) {
        Guard guard(mutex_);
        overlayResult = Step(overlay_, overlayId_, overlay, events);
    }

    if (main.samples == nullptr) {
        *frame = HandOut(overlay);
        return overlayResult;
    }
    const u32 samples = static_cast<u32>(frameBytes_) / 2;
    if (overlay.samples != nullptr) {
        DuckAndMix(mainGain_, main.samples, overlay.samples, outBuffer_, samples);
    } else if (mainGain_.rampCounter == MainGain::Full) {
        *frame = HandOut(main);
        return mainResult;
    } else {
        FadeMain(mainGain_, main.samples, outBuffer_, samples);
    }
    *frame = outBuffer_;
    return true;
}

const u8* MMStreamSetReader::HandOut(ListFrame& frame) {
    handedOut_.Swap(frame.owner);
    return frame.samples;
}

bool MMStreamSetReader::Step(ReaderList& list, u32 listId, ListFrame& frame, ContentEventList& events) {
    const bool result = StepReaders(list, listId, &frame.samples, events);
    if (frame.samples != nullptr) frame.owner = list.Current()->FrameOwner();
    return result;
}

bool MMStreamSetReader::StepReaders(ReaderList& list, u32 listId, const u8** frame, ContentEventList& events) {
    *frame = nullptr;
    if (list.cursor >= list.readers.size()) return true;
    u64 skips = 0;
    while (!list.readers[list.cursor]->GetNextFrame(frame, events)) {
        *frame = nullptr;
        ++list.cursor;
        if (list.cursor >= list.readers.size()) {
            events.push_back(ContentEvent{ContentEvent::ContentFinished, listId});
            // A looping list whose items all fail is left at its end, instead of spinning.
            if (!list.loop || skips >= list.readers.size()) return false;
            list.cursor = 0;
            ORV_ENGINE_LOG(LogTraceSink, "Content is finished. Reset to first file in list");
        }
        list.readers[list.cursor]->Rewind();
        ++skips;
    }
    return true;
}

void MMStreamSetReader::RewindList(ReaderList& list) {
    list.cursor = 0;
    if (!list.readers.empty()) list.readers.front()->Rewind();
}

void MMStreamSetReader::Rewind() {
    {
        Guard guard(mutex_);
        RewindList(overlay_);
    }
    Guard guard(mutex_);
    RewindList(main_);
}

std::string MMStreamSetReader::GetName() {
    Guard guard(mutex_);
    IMMFileStreamReader* reader = overlay_.Current();
    return reader != nullptr ? reader->GetName() : std::string();
}

u32 MMStreamSetReader::GetContentId() {
    Guard guard(mutex_);
    IMMFileStreamReader* reader = overlay_.Current();
    return reader != nullptr ? reader->GetContentId() : 0;
}

void MMStreamSetReader::Close() {
    {
        Guard guard(mutex_);
        main_ = {};
    }
    {
        Guard guard(mutex_);
        overlay_ = {};
    }
    SetMixMask(0);
}

bool MMStreamSetReader::SetMainContent(u32 id, const std::list<StreamItem>& items, bool loop) {
    Guard guard(mutex_);
    mainId_ = id;
    Replace(main_, mainFrame_, items, loop);
    return true;
}

bool MMStreamSetReader::SetOverlayContent(u32 id, const std::list<StreamItem>& items, bool loop) {
    Guard guard(mutex_);
    overlayId_ = id;
    Replace(overlay_, overlayFrame_, items, loop);
    return true;
}

void MMStreamSetReader::Replace(ReaderList& list, FrameBlock& block, const std::list<StreamItem>& items, bool loop) {
    list.loop = loop;
    list.cursor = 0;
    list.readers.clear();
    list.readers.reserve(items.size());
    for (const StreamItem& item : items) {
        MTObjects::THolder<IMMFileStreamReader> reader;
        if (item.isText) {
            reader = new MMTextStreamReader(item.id);
            reader->Open(item.name.c_str(), block.data(), frameBytes_);
        } else {
            reader = CreateStreamReader(item.id, item.name.c_str(), block.data(), static_cast<u32>(frameBytes_));
        }
        list.readers.push_back(std::move(reader));
    }
}

bool MMStreamSetReader::SetMixMask(u8 mask) {
    mixMask_.store(mask, std::memory_order_release);
    return true;
}

void MMStreamSetReader::SwitchContent(u32 id, bool loop, const std::list<StreamItem>& items, u8 layer, u8 maskBefore,
                                      u8 maskAfter) {
    SetMixMask(maskBefore);
    if (layer == kMainLayer) {
        SetMainContent(id, items, loop);
    } else {
        SetOverlayContent(id, items, loop);
    }
    SetMixMask(maskAfter);
}

MTObjects::THolder<IMMStreamManager> CreateStreamSet() {
    return new MMStreamSetReader;
}

}  // namespace Orv
