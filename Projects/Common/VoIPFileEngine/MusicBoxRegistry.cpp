#include <map>

#include "Platform/Sync.h"
#include "Projects/Common/VoIPFileEngine/StreamMusicBox.h"
#include "ServiceProcess/LogAdapters.h"

namespace Orv {
namespace {

constexpr char kLogSource[] = "VoIPFileEngine/MusicBox";

using BoxHolder = MTObjects::THolder<IMusicBox>;
using Guard = Platform::LockGuard<Platform::RecursiveMutex>;

// The boxes by name. The mutex is held for the map alone: building a box and letting one go take time, and a thread.
class MusicBoxRegistry {
public:
    // Never destroyed, so that whatever is destroyed late still finds it; but no box's thread outlives the static
    // objects that it uses.
    static MusicBoxRegistry& Instance() {
        static MusicBoxRegistry& registry = *new MusicBoxRegistry;
        static struct ProcessEnd {
            ~ProcessEnd() { registry.Clear(); }
        } processEnd;
        return registry;
    }

    BoxHolder Find(const std::string& name) {
        Guard guard(mutex_);
        const auto found = boxes_.find(name);
        return found == boxes_.end() ? BoxHolder() : found->second;
    }

    void Enter(const std::string& name, BoxHolder box) {
        Guard guard(mutex_);
        boxes_[name].Swap(box);
    }

    // Nothing happens when the name has passed to another box. The caller holds `box`.
    void Erase(const std::string& name, const BoxHolder& box) {
        Guard guard(mutex_);
        const auto found = boxes_.find(name);
        if (found != boxes_.end() && found->second == box) boxes_.erase(found);
    }

private:
    void Clear() {
        std::map<std::string, BoxHolder> boxes;
        Guard guard(mutex_);
        boxes.swap(boxes_);
    }

    Platform::RecursiveMutex mutex_;
    std::map<std::string, BoxHolder> boxes_ ORV_GUARDED_BY(mutex_);
};

}  // namespace

BoxHolder RegisterMusicBox(const std::string& name, MTObjects::THolder<IMMStreamManager> source,
                           MTObjects::THolder<IContentPlayListener> listener, i32 shift) {
    if (FindMusicBox(name).IsValid()) {
        ORV_ENGINE_LOG(LogWarnSink, "MusicBox '" << name << "' already registered");
        return nullptr;
    }
    BoxHolder box(new StreamMusicBox(name, std::move(source), std::move(listener), shift));
    if (box.IsValid()) MusicBoxRegistry::Instance().Enter(name, box);
    return box;
}

bool UnregisterMusicBox(const std::string& name, bool shutdown) {
    const BoxHolder box = FindMusicBox(name);
    if (!box.IsValid()) {
        ORV_ENGINE_LOG(LogWarnSink, "MusicBox '" << name << "' is not registered entity");
        return false;
    }
    if (shutdown) box->Shutdown();
    MusicBoxRegistry::Instance().Erase(name, box);
    return true;
}

BoxHolder FindMusicBox(const std::string& name) {
    return MusicBoxRegistry::Instance().Find(name);
}

}  // namespace Orv
