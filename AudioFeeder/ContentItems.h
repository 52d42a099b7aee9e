// The words that the channels and their stream sets speak: content ids, layers and masks, the default set's name, gaps.
#pragma once

#include "Projects/Common/VoIPFileEngine/IMMFileStreamReader.h"

namespace Orv {

// The ids of content events.
namespace ContentIds {
inline constexpr u32 Ignored = 0;           // a pause item, an announcement's file, the default set: no effect
inline constexpr u32 MusicFile = 1;         // a playlist file or the default audio file: no effect
inline constexpr u32 MusicList = 2;         // the main list has ended: next music
inline constexpr u32 PauseList = 3;         // a pause has ended: next announcement
inline constexpr u32 AnnouncementList = 4;  // an announcement has ended: next pause
inline constexpr u32 LeadIn = 10;           // an announcement's lead-in has ended: its mix mask
}  // namespace ContentIds

// The lists of a stream set, as SwitchContent() numbers them.
namespace Layers {
inline constexpr u8 Main = 1;
inline constexpr u8 Overlay = 2;
}  // namespace Layers

// Which lists of a stream set play.
namespace MixMasks {
inline constexpr u8 None = 0;
inline constexpr u8 MainOnly = 1;
inline constexpr u8 OverlayOnly = 2;
inline constexpr u8 Both = 3;
}  // namespace MixMasks

// The music box on which all channels without a playlist listen.
inline constexpr char DefaultSetName[] = "defaultset:";

// A gap as a content item. As a lead-in it gives frames of zeros, so that the music is lowered beneath it; otherwise
// it gives nothing, and the other list plays as if alone.
StreamItem MakeSilenceItem(i32 seconds, u32 id, bool leadIn);

}  // namespace Orv
