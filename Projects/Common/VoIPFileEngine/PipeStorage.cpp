#include "Projects/Common/VoIPFileEngine/PipeStorage.h"

#include <system_error>

#include "Projects/Common/VoIPFileEngine/ContentName.h"
#include "Projects/Common/VoIPFileEngine/ReferenceStorage.h"
#include "ServiceProcess/LogAdapters.h"

namespace Orv {
namespace {

constexpr char kLogSource[] = "VoIPFileEngine/PipeStream";

using BoxHolder = MTObjects::THolder<IPipeMusicBox>;

// Never destroyed: a stream in a static object may give its box back later than any other static object goes.
ReferenceStorage<std::string, BoxHolder>& PipeStorage() {
    static ReferenceStorage<std::string, BoxHolder>& storage = *new ReferenceStorage<std::string, BoxHolder>;
    return storage;
}

// Not valid when there is no thread for it.
BoxHolder BuildBox(const std::string& name) {
    try {
        return new IPipeMusicBox(name);
    } catch (const std::system_error&) {
        return nullptr;
    }
}

}  // namespace

BoxHolder AcquirePipeBox(const char* name) {
    const std::string key = name != nullptr ? name : "";
    if (key.size() < LocalPipes.size() || !key.starts_with("\\\\")) {
        ORV_ENGINE_LOG(LogWarnSink, key << " is not a pipe");
        return nullptr;
    }
    BoxHolder box;
    if (PipeStorage().Acquire(key, box)) {
        ORV_ENGINE_LOG(LogTraceSink, key << " taken from shared pipe storage");
        return box;
    }
    if (box.IsValid()) {  // a miss leaves the holder empty, so this does not come to pass
        ORV_ENGINE_LOG(LogTraceSink, key << " taken from shared storage");
        return box;
    }
    box = BuildBox(key);
    if (!box.IsValid()) {
        ORV_ENGINE_LOG(LogWarnSink, key << " not created");
        return nullptr;
    }
    if (PipeStorage().Acquire(key, box)) {
        ORV_ENGINE_LOG(LogTraceSink, key << " was shared by other entity");
    } else {
        ORV_ENGINE_LOG(LogTraceSink, key << " put to shared storage");
    }
    return box;
}

void ReleasePipeBox(const char* name) {
    const std::string key = name != nullptr ? name : "";
    if (PipeStorage().Release(key)) {
        ORV_ENGINE_LOG(LogTraceSink, key << " file is used by other entity(ies)");
    } else {
        ORV_ENGINE_LOG(LogTraceSink, key << " removed from shared storage");
    }
}

void TakePipeBoxLock() {
    PipeStorage().TakeLock();
}

}  // namespace Orv
