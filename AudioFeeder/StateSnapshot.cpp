#include "AudioFeeder/StateSnapshot.h"

#include <atomic>

#include "AudioFeeder/AnnouncementTable.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/SharedValues.h"
#include "Platform/Clock.h"

namespace Orv {

namespace {

std::atomic<u64> serviceStart{0};

u64 Since(u64 then, u64 now) {
    return now > then ? now - then : 0;
}

}  // namespace

void MarkServiceStart() {
    serviceStart.store(Platform::SteadyMilliseconds(), std::memory_order_relaxed);
}

StateSnapshot TakeStateSnapshot() {
    StateSnapshot state;
    state.version = ORV_VERSION;
    state.process = Platform::ReadProcessFigures();
    const ConfigurationState configuration = GetConfigurationState();
    state.link = configuration.link;
    GetDefaultAudioFile(state.defaultFile);
    state.rootPath = RootPath();
    state.level = GlobalLevelSetting();
    state.announcements = AnnouncementTable::Instance().Size();
    const MTObjects::THolder<IPipeManager> manager = IPipeManager::Existing();
    if (manager.IsValid()) {
        for (auto& report : manager->Reports()) {
            FeedFigures figures = report->Read();
            state.feeds.push_back({std::move(report), std::move(figures)});
        }
    }
    const u64 now = Platform::SteadyMilliseconds();
    state.uptimeMilliseconds = Since(serviceStart.load(std::memory_order_relaxed), now);
    state.linkMilliseconds = Since(configuration.since, now);
    return state;
}

const char* LinkWord(ConfigurationLink link) {
    switch (link) {
        case ConfigurationLink::Waiting:
            return "waiting";
        case ConfigurationLink::Up:
            return "up";
        case ConfigurationLink::Lost:
            break;
    }
    return "lost";
}

const char* LinkText(ConfigurationLink link) {
    switch (link) {
        case ConfigurationLink::Waiting:
            return "not connected yet, trying each ten seconds";
        case ConfigurationLink::Up:
            return "up";
        case ConfigurationLink::Lost:
            break;
    }
    return "configuration lost, playing on";
}

const char* FeedWord(const FeedFigures& figures) {
    if (!figures.hasThread) return "dead";
    if (figures.pipeError != 0) return "unserved";
    return figures.clients != 0 || figures.nonstop ? "playing" : "idle";
}

}  // namespace Orv
