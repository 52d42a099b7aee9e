#include "AudioFeeder/PipeManager.h"

#include <cstring>
#include <system_error>

#include "AudioFeeder/ContentItems.h"
#include "AudioFeeder/EventTurn.h"
#include "ServiceProcess/Log.h"

namespace Orv {

using MTObjects::THolder;

namespace {

constexpr char kLogSource[] = "PipeManager";

struct Singleton {
    Platform::Mutex creation;
    THolder<IPipeManager> holder;
    std::atomic<bool> made{false};  // orders a reader of `holder` behind its making
};

// Never destroyed: StopAll() is what ends the channels, in time and in order.
Singleton& TheSingleton() {
    static Singleton* const singleton = new Singleton;
    return *singleton;
}

// Whether a change leaves the channel standing.
bool IsSoftUpdate(const FeedRow& newRow, const FeedRow& oldRow) {
    for (const char* text : {Columns::pipename, Columns::thename}) {
        if (std::strcmp(newRow.Text(text), oldRow.Text(text)) != 0) return false;
    }
    for (const char* number : {Columns::feedtype, Columns::playannouncements, Columns::nonstop}) {
        if (newRow.Number(number) != oldRow.Number(number)) return false;
    }
    return true;
}

}  // namespace

THolder<IPipeManager>& IPipeManager::Instance() {
    Singleton& singleton = TheSingleton();
    if (singleton.made.load(std::memory_order_acquire) && singleton.holder.IsValid()) return singleton.holder;
    Platform::LockGuard<Platform::Mutex> guard(singleton.creation);
    if (!singleton.holder.IsValid()) {
        singleton.holder = new IPipeManager;
        singleton.made.store(true, std::memory_order_release);
    }
    return singleton.holder;
}

THolder<IPipeManager> IPipeManager::Existing() {
    const Singleton& singleton = TheSingleton();
    if (!singleton.made.load(std::memory_order_acquire)) return nullptr;
    return singleton.holder;
}

IPipeManager::IPipeManager() : defaultSetReader_(CreateStreamSet()) {
    RegisterDefaultSet();
}

IPipeManager::~IPipeManager() = default;

// Without a thread for the box the other feeds play all the same. Those of the default stream find no box and play each
// for itself what follows it: their own folder, and the default file where that is empty; until there is a box again
// and they are built anew.
void IPipeManager::RegisterDefaultSet() {
    try {
        defaultMusicBox_ = RegisterMusicBox(DefaultSetName, defaultSetReader_, nullptr, 0);
    } catch (const std::system_error&) {
        ORV_LOG(Error) << "Cannot start thread of musicbox '" << DefaultSetName << "'";
    }
}

bool IPipeManager::UpdateFeed(const FeedRow& newRow, const FeedRow& oldRow) {
    EventTurn turn;
    const std::string newPipe = newRow.Text(Columns::pipename);
    const std::string oldPipe = oldRow.Text(Columns::pipename);
    FeedHolder newFeed = FindFeed(newPipe);
    FeedHolder oldFeed = FindFeed(oldPipe);
    if (newFeed && newFeed == oldFeed && IsSoftUpdate(newRow, oldRow)) {
        const FeedRow values(newRow.base);
        newFeed->SetFeedLevel(
            {LevelFromPercent(values.Number(Columns::maxvolume)), values.Number(Columns::autogain) != 0});
        newFeed->TellRow(values);
        newFeed->Start();
        return true;
    }
    if (oldRow.Has(Columns::idaudiofeed)) ORV_LOG(Info) << "Shutdown channel " << oldPipe;
    ShutdownFeed(oldPipe);
    if (newRow.Has(Columns::idaudiofeed)) ORV_LOG(Info) << "Shutdown channel " << newPipe;
    ShutdownFeed(newPipe);
    if (newRow.Has(Columns::idaudiofeed)) ORV_LOG(Info) << "Creating channel " << newPipe;
    // The old channels go here, and their pipes' names with them.
    newFeed = nullptr;
    oldFeed = nullptr;
    FeedHolder feed(new IPipeFeed(newRow));
    Platform::LockGuard<Platform::RecursiveMutex> guard(channelMapMutex_);
    channelMap_[newPipe].Swap(feed);
    return true;
}

bool IPipeManager::ShutdownFeed(const FeedRow& row) {
    EventTurn turn;
    ShutdownFeed(std::string(row.Text(Columns::pipename)));
    return true;
}

// The map's mutex is not held across the shutdown, which joins a thread.
void IPipeManager::ShutdownFeed(const std::string& pipeName) {
    const FeedHolder feed = FindFeed(pipeName);
    if (!feed.IsValid()) return;
    {
        Platform::LockGuard<Platform::RecursiveMutex> guard(channelMapMutex_);
        channelMap_.erase(pipeName);
    }
    feed->Shutdown();
}

bool IPipeManager::ShutdownAll() {
    EventTurn turn;
    FeedHolder previous;  // destroyed only once the next one is in hand
    for (;;) {
        std::string pipeName;
        FeedHolder feed = FirstFeed(pipeName);
        previous = nullptr;
        if (!feed.IsValid()) break;
        feed->Shutdown();
        ShutdownFeed(pipeName);  // shuts down a second time, and the destructor a third: harmless, and the log shows it
        previous.Swap(feed);
    }
    UnregisterMusicBox(DefaultSetName, true);
    defaultMusicBox_ = nullptr;
    return true;
}

IPipeManager::FeedHolder IPipeManager::FindFeed(const std::string& pipeName) {
    Platform::LockGuard<Platform::RecursiveMutex> guard(channelMapMutex_);
    const auto found = channelMap_.find(pipeName);
    return found != channelMap_.end() ? found->second : FeedHolder();
}

IPipeManager::FeedHolder IPipeManager::FirstFeed(std::string& pipeName) {
    Platform::LockGuard<Platform::RecursiveMutex> guard(channelMapMutex_);
    if (channelMap_.empty()) return {};
    pipeName = channelMap_.begin()->first;
    return channelMap_.begin()->second;
}

std::vector<std::shared_ptr<const FeedReport>> IPipeManager::Reports() {
    std::vector<std::shared_ptr<const FeedReport>> reports;
    Platform::LockGuard<Platform::RecursiveMutex> guard(channelMapMutex_);
    reports.reserve(channelMap_.size());
    for (const auto& [pipeName, feed] : channelMap_) {
        if (auto report = feed->Report()) reports.push_back(std::move(report));
    }
    return reports;
}

void IPipeManager::TakeChannelMapLock() {
    Platform::LockGuard<Platform::RecursiveMutex> guard(channelMapMutex_);
}

void IPipeManager::UpdateDefaultSet(const char* file) {
    EventTurn turn;
    if (!defaultSetReader_.IsValid()) return;  // the process is at its end
    if (!defaultMusicBox_.IsValid()) RegisterDefaultSet();
    if (file == nullptr || *file == '\0') return;
    defaultSetReader_->SwitchContent(ContentIds::Ignored, true, {{ContentIds::Ignored, file, false}}, Layers::Main,
                                     MixMasks::None, MixMasks::Both);
}

void IPipeManager::ReleaseDefaultSet() {
    EventTurn turn;
    if (!defaultSetReader_.IsValid()) return;
    defaultSetReader_->SwitchContent(ContentIds::Ignored, true, {}, Layers::Main, MixMasks::None, MixMasks::Both);
    defaultSetReader_ = nullptr;
}

}  // namespace Orv
