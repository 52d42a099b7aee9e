#include "AudioFeeder/SharedValues.h"

#include "AudioFeeder/PipeManager.h"
#include "Platform/Sync.h"
#include "ServiceProcess/Log.h"

namespace Orv {

namespace {

constexpr char kLogSource[] = "PipeManager";

struct DefaultAudioFile {
    Platform::RecursiveMutex mutex;
    std::string value ORV_GUARDED_BY(mutex);
};

// A text cannot be read while it is written, so it has a lock of its own, held for a copy and never with another.
struct RootPathValue {
    Platform::Mutex mutex;
    std::string value ORV_GUARDED_BY(mutex) = "./";
};

// Never destroyed, like everything that pumps read.
DefaultAudioFile& TheDefaultAudioFile() {
    static DefaultAudioFile* const file = new DefaultAudioFile;
    return *file;
}

RootPathValue& TheRootPath() {
    static RootPathValue* const path = new RootPathValue;
    return *path;
}

// One value each and nothing that hangs on them: a pump sees a change at its next block, in whatever order.
std::atomic<i16> globalMaxLevel{0};
std::atomic<bool> globalAutogain{false};
std::atomic<u32> clientStallSeconds{0};
std::atomic<i32> channelInstanceCounter{0};

}  // namespace

std::atomic<i32> runningPumpThreads{0};
std::atomic<bool> channelsStopping{false};

void SetDefaultAudioFile(const char* file) {
    if (file != nullptr && *file != '\0') {
        DefaultAudioFile& current = TheDefaultAudioFile();
        Platform::LockGuard<Platform::RecursiveMutex> guard(current.mutex);
        current.value = file;
    }
    MTObjects::THolder<IPipeManager>& manager = IPipeManager::Instance();
    if (manager.IsValid()) manager->UpdateDefaultSet(file);
}

void GetDefaultAudioFile(std::string& file) {
    DefaultAudioFile& current = TheDefaultAudioFile();
    Platform::LockGuard<Platform::RecursiveMutex> guard(current.mutex);
    file = current.value;
}

void SetRootPath(const char* path) {
    if (path == nullptr) {
        ORV_LOG(Info) << "Root path is not specified";
        return;
    }
    ORV_LOG(Info) << "Root path updated: " << path;
    RootPathValue& root = TheRootPath();
    Platform::LockGuard<Platform::Mutex> guard(root.mutex);
    root.value = path;
}

std::string RootPath() {
    RootPathValue& root = TheRootPath();
    Platform::LockGuard<Platform::Mutex> guard(root.mutex);
    return root.value;
}

void SetMaxVolume(i32 percent) {
    globalMaxLevel.store(LevelFromPercent(percent), std::memory_order_relaxed);
}

void SetAutogain(bool on) {
    globalAutogain.store(on, std::memory_order_relaxed);
}

void SetClientStallSeconds(u32 seconds) {
    clientStallSeconds.store(seconds, std::memory_order_relaxed);
}

u32 ClientStallSeconds() noexcept {
    return clientStallSeconds.load(std::memory_order_relaxed);
}

LevelSetting GlobalLevelSetting() noexcept {
    return {globalMaxLevel.load(std::memory_order_relaxed), globalAutogain.load(std::memory_order_relaxed)};
}

i32 NextInstanceId() noexcept {
    return channelInstanceCounter.fetch_add(1, std::memory_order_relaxed) + 1;
}

}  // namespace Orv
