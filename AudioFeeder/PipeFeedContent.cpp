// What a channel plays and when. There are no timers here: each list tells its end, and then gets its next content.
#include <utility>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/ContentItems.h"
#include "AudioFeeder/PipeFeed.h"
#include "AudioFeeder/RandomDraw.h"
#include "AudioFeeder/SharedValues.h"
#include "Platform/Random.h"
#include "ServiceProcess/Log.h"

namespace Orv {

namespace {

constexpr char kLogSource[] = "PipeManager";

constexpr i32 kLeadInSeconds = 1;
constexpr i32 kReplacesMusic = 1;  // `thetype` of an announcement for which the music stops

}  // namespace

StreamItem MakeSilenceItem(i32 seconds, u32 id, bool leadIn) {
    return {id, (leadIn ? "##" : "#") + std::to_string(seconds) + "#", false};
}

void IPipeFeed::Start() {
    const ContentGiver::Scope giving(contentGiver_);
    switch (static_cast<FeedType>(feedType_)) {
        case FeedType::LineIn:
            ORV_LOG(Info) << logPrefix_ << "LINEIN is not available. Play as default stream";
            break;
        case FeedType::DefaultSet:
        case FeedType::Shuffled:
        case FeedType::Sorted:
            break;
        default:
            return;
    }
    // Only ever true inside the constructor, before the pump exists: a set is always valid.
    if (!streamManager_.IsValid()) {
        streamManager_ = CreateStreamSet();
        streamManager_->Prepare(blockBuffer_, BlockBytes);
    }
    announcementMask_.store(MixMasks::Both, std::memory_order_relaxed);
    std::list<StreamItem> music;
    if (feedType_ == static_cast<i32>(FeedType::Shuffled) || IsSorted()) {
        BuildPlaylist(IsSorted());
        music = TakeMusicItems();
    } else {
        music.push_back({ContentIds::Ignored, DefaultSetName, false});
    }
    if (playAnnouncements_) {
        const i32 seconds = DrawPause();
        ORV_LOG(Trace) << logPrefix_ << "Pause announcement: for " << seconds << " seconds";
        PlayPause(seconds);
    }
    SwitchMusic(music);
}

bool IPipeFeed::BuildPlaylist(bool sorted) {
    Platform::LockGuard<Platform::RecursiveMutex> guard(playlistLock_);
    playlist_.Clear();
    const std::string name = row_.Text(Columns::thename);
    if (name.empty()) return false;
    PathList paths = FindPlaylistFiles(JoinPath(JoinPath(RootPath(), "Playlist"), name));
    if (sorted) {
        SortPlaylist(paths);
    } else {
        ShufflePlaylist(paths, &Platform::ThreadRand, [this](i32 key, const std::string& path) {
            ORV_LOG(Info) << logPrefix_ << "r:" << key << "<->" << path;
        });
    }
    playlist_.Assign(std::move(paths));
    return true;
}

void IPipeFeed::OnContentEvent(const ContentEvent& event) {
    if (event.kind != ContentEvent::ContentFinished || !streamManager_.IsValid()) return;
    if (event.error != 0 && report_) report_->OnBroken(event.name, event.error);
    if (event.id == ContentIds::LeadIn) {
        streamManager_->SetMixMask(announcementMask_.load(std::memory_order_relaxed));
    }
    if (event.id == ContentIds::PauseList && playAnnouncements_) NextAnnouncement();
    if (event.id == ContentIds::AnnouncementList && playAnnouncements_) NextPause();
    if (event.id == ContentIds::MusicList) NextMusic();
}

void IPipeFeed::NextMusic() {
    volume_.OnEndOfFile();
    Platform::LockGuard<Platform::RecursiveMutex> guard(playlistLock_);
    if (playlist_.Empty()) {
        ORV_LOG(Trace) << logPrefix_ << "Build playlist";
        BuildPlaylist(IsSorted());
    }
    SwitchMusic(TakeMusicItems());
}

std::list<StreamItem> IPipeFeed::TakeMusicItems() {
    std::string name;
    if (playlist_.TakeFront(name)) {
        ORV_LOG(Trace) << logPrefix_ << "Start next audio file " << name;
    } else {
        GetDefaultAudioFile(name);
        ORV_LOG(Warn) << logPrefix_ << "PlayList is empty. Start default audio file - " << name;
    }
    return {{ContentIds::MusicFile, std::move(name), false}};
}

void IPipeFeed::NextPause() {
    const i32 seconds = DrawPause();
    ORV_LOG(Trace) << logPrefix_ << "Pause announcement: for " << seconds << " seconds";
    announcementMask_.store(MixMasks::Both, std::memory_order_relaxed);
    PlayPause(seconds);
}

void IPipeFeed::NextAnnouncement() {
    // One outcome more than there are announcements: the last one is a pause.
    const u32 count = AnnouncementTable::Instance().Size();
    const u32 index = static_cast<u32>(Uniform(0, static_cast<i32>(count)));
    FeedRow announcement;
    AnnouncementTable::Instance().RowAt(index, announcement);
    if (!announcement.Has(Columns::idannouncement)) {
        const i32 seconds = DrawPause();
        ORV_LOG(Trace) << logPrefix_ << "Invalid announcement: pause for " << seconds << " seconds";
        announcementMask_.store(MixMasks::Both, std::memory_order_relaxed);
        PlayPause(seconds);
        return;
    }
    ORV_LOG(Trace) << logPrefix_ << "Play announcement: " << DescribeAnnouncement(announcement);
    const bool alone = announcement.Number(Columns::thetype) == kReplacesMusic;
    announcementMask_.store(alone ? MixMasks::OverlayOnly : MixMasks::Both, std::memory_order_relaxed);
    SwitchOverlay(ContentIds::AnnouncementList, {MakeSilenceItem(kLeadInSeconds, ContentIds::LeadIn, true),
                                                 {ContentIds::Ignored, announcement.Text(Columns::thefile), false}});
    if (report_) report_->OnAnnouncement(announcement.Text(Columns::thefile));
}

i32 IPipeFeed::DrawPause() const {
    return Uniform(row_.Number(Columns::minannouncementpause), row_.Number(Columns::maxannouncementpause));
}

void IPipeFeed::PlayPause(i32 seconds) {
    SwitchOverlay(ContentIds::PauseList, {MakeSilenceItem(seconds, ContentIds::Ignored, false)});
    if (report_) report_->OnPause();
}

void IPipeFeed::SwitchMusic(const std::list<StreamItem>& items) {
    streamManager_->SwitchContent(ContentIds::MusicList, false, items, Layers::Main, MixMasks::OverlayOnly,
                                  MixMasks::Both);
    if (report_) report_->OnMusic(items.front().name);
}

void IPipeFeed::SwitchOverlay(u32 id, const std::list<StreamItem>& items) {
    streamManager_->SwitchContent(id, false, items, Layers::Overlay, MixMasks::MainOnly, MixMasks::Both);
}

}  // namespace Orv
