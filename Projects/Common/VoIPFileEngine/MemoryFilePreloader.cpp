#include "Projects/Common/VoIPFileEngine/MemoryFilePreloader.h"

#include "Platform/Files.h"
#include "Projects/Common/VoIPFileEngine/ContentName.h"
#include "Projects/Common/VoIPFileEngine/MemoryFileCache.h"
#include "Projects/Common/VoIPFileEngine/OpenMemoryFile.h"
#include "ServiceProcess/LogAdapters.h"

namespace Orv {
namespace {

constexpr char kLogSource[] = "VoIPFileEngine/MemoryFileCache";

// 0 with the error in the log.
u64 LengthOnDisk(const std::string& name) {
    Platform::SystemError error = 0;
    const auto file = Platform::OpenReadFile(name, error);
    if (file != nullptr && file->Size() != 0) return file->Size();
    ORV_ENGINE_LOG(LogWarnSink, name << " cannot be preloaded, error: " << error);
    return 0;
}

}  // namespace

bool MemoryFilePreloader::Load(const std::string& path) {
    const std::string name = NormaliseFileName(path);
    MemoryFileCache& cache = MemoryFileCache::Instance();
    if (cache.Find(name.c_str()) != nullptr) return true;
    if (!IsSoundFileName(name)) {
        ORV_ENGINE_LOG(LogWarnSink, name << " is not preloaded: only .wav and .raw files are");
        return false;
    }
    u64 bytes = 0;
    const std::shared_ptr<IMemoryFile> file = Open(name, bytes);
    if (file == nullptr || !cache.Add(name, file)) return false;
    ORV_ENGINE_LOG(LogTraceSink, name << " preloaded, " << bytes << " bytes" << (file->locked ? ", locked" : ""));
    bytes_ += bytes;
    ++files_;
    if (file->locked) ++locked_;
    return true;
}

std::shared_ptr<IMemoryFile> MemoryFilePreloader::Open(const std::string& name, u64& bytes) const {
    bytes = LengthOnDisk(name);
    if (bytes == 0 || !Fits(name, bytes)) return nullptr;
    std::shared_ptr<IMemoryFile> file = OpenMemoryFile(name, true, true);
    if (file->IsValid()) return file;
    file = OpenMemoryFile(name, false, true);
    if (!file->IsValid()) {
        ORV_ENGINE_LOG(LogWarnSink, name << " cannot be preloaded, it plays from disk if it plays");
        return nullptr;
    }
    bytes = file->size;
    return Fits(name, bytes) ? file : nullptr;
}

bool MemoryFilePreloader::Fits(const std::string& name, u64 bytes) const {
    if (bytes <= limit_ - bytes_) return true;
    ORV_ENGINE_LOG(LogWarnSink, name << " is not preloaded and plays from disk: " << bytes << " bytes do not fit, "
                                     << limit_ - bytes_ << " of " << limit_ << " are left");
    return false;
}

}  // namespace Orv
