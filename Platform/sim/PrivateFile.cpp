#include "Platform/PrivateFile.h"

#include <cerrno>
#include <utility>

#include "Platform/Path.h"
#include "Platform/sim/SimFileTree.h"
#include "Platform/sim/World.h"

namespace Platform {

namespace {

class SimFileLock final : public IFileLock {
public:
    SimFileLock(std::shared_ptr<Sim::SimFiles::Impl> world, std::string key)
        : world_(std::move(world)), key_(std::move(key)) {}
    ~SimFileLock() override { world_->locks.erase(key_); }

private:
    const std::shared_ptr<Sim::SimFiles::Impl> world_;
    const std::string key_;
};

}  // namespace

bool MakePrivateFile(const std::string& path, SystemError& error) {
    return Sim::OpenSimFile(path, true, error) != nullptr;
}

// Rights and owners are not simulated.
bool ReplaceFile(const std::string& path, const std::string& text, FileReaders, SystemError& error) {
    const auto file = Sim::OpenSimFile(path, true, error);
    if (file == nullptr) return false;
    file->node->bytes = text;
    return true;
}

bool GiveToFolderOwner(const std::string& path, SystemError& error) {
    return Sim::OpenSimFile(path, false, error) != nullptr;
}

std::unique_ptr<IFileLock> TryLockFile(const std::string& path, SystemError& error) {
    if (Sim::OpenSimFile(path, true, error) == nullptr) return nullptr;
    const auto world = Sim::Files().Internals().shared_from_this();
    std::string key = world->Absolute(path);
    error = FileLockedError();
    if (!world->locks.insert(key).second) return nullptr;
    error = 0;
    return std::make_unique<SimFileLock>(world, std::move(key));
}

SystemError FileLockedError() {
    return EWOULDBLOCK;
}

bool ReadWholeFile(const std::string& path, u64 limit, std::string& text, SystemError& error) {
    text.clear();
    error = 0;
    if (path == "-") return true;  // the standard input of a simulated process is empty
    const auto file = Sim::OpenSimFile(path, false, error);
    if (file == nullptr) return false;
    text = file->node->bytes;
    if (text.size() <= limit) return true;
    error = FileTooLargeError();
    return false;
}

SystemError FileTooLargeError() {
    return EFBIG;
}

SystemError NoWriterError() {
    return EPIPE;
}

std::string ReadErrorText(SystemError error) {
    return SystemErrorText(error);
}

}  // namespace Platform
