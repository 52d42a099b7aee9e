#include "AudioFeeder/SharedLocks.h"

#include <string>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/ContentItems.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/Preload.h"
#include "AudioFeeder/PumpPulse.h"
#include "AudioFeeder/RandomDraw.h"
#include "AudioFeeder/SharedValues.h"
#include "Projects/Common/VoIPFileEngine/FileMapping.h"
#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"
#include "Projects/Common/VoIPFileEngine/MusicBox.h"
#include "Projects/Common/VoIPFileEngine/PipeStorage.h"
#include "Projects/Common/VoIPFileEngine/RawFile.h"
#include "ServiceProcess/Log.h"

namespace Orv {

namespace {

void TakeLogLock() {
    LogWriter& log = LogWriter::Instance();
    log.Lock();
    log.Unlock();
}
void TakeRootPathLock() {
    RootPath();
}
void TakeDefaultFileLock() {
    std::string file;
    GetDefaultAudioFile(file);
}
void TakeAnnouncementLock() {
    FeedRow row;
    AnnouncementTable::Instance().RowAt(0, row);
}
void TakeChannelMapLock() {
    const auto manager = IPipeManager::Existing();
    if (manager.IsValid()) manager->TakeChannelMapLock();
}
void TakePreloadLock() {
    PreloadWanted();
}
void TakeFileCacheLock() {
    MemoryFileCache::Instance().TakeLock();
}
void TakeMusicBoxesLock() {
    FindMusicBox(std::string());  // there is none of that name, so that nothing is held
}
// Nobody is subscribed as null, so that the lock is all that is taken.
void TakeDefaultStreamLock() {
    const auto box = FindMusicBox(DefaultSetName);
    if (box.IsValid()) box->Unsubscribe(nullptr);
}

constexpr SharedLock kSharedLocks[] = {
    {"log", TakeLogLock},
    {"root path", TakeRootPathLock},
    {"default audio file", TakeDefaultFileLock},
    {"announcements", TakeAnnouncementLock},
    {"feeds", TakeChannelMapLock},
    {"pumps", PumpPulse::TakeLock},
    {"random numbers", TakeRandomLock},
    {"preload settings", TakePreloadLock},
    {"preloaded files", TakeFileCacheLock},
    {"file mappings", FileMapping::TakeRegistryLock},
    {"open files", TakeSharedRawFileLock},
    {"live sources", TakePipeBoxLock},
    {"music boxes", TakeMusicBoxesLock},
    {"default stream", TakeDefaultStreamLock},
};

}  // namespace

std::span<const SharedLock> SharedLocks() {
    return kSharedLocks;
}

}  // namespace Orv
