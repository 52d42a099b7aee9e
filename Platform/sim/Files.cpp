#include "Platform/Files.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Platform/Path.h"
#include "Platform/ThreadWait.h"
#include "Platform/sim/SimFileTree.h"
#include "Platform/sim/World.h"

namespace Platform {

namespace {

using Sim::OpenFile;

class SimReadFile final : public IReadFile {
public:
    explicit SimReadFile(std::shared_ptr<OpenFile> file) : file_(std::move(file)), size_(file_->node->bytes.size()) {}

    u64 Size() const override { return size_; }

    u64 ReadAt(u64 position, void* destination, u64 count) override {
        ++file_->world->counters.reads;
        Sim::SchedulingPoint();
        if (const u32 delay = file_->ReadDelay(); delay != 0) {
            const ThreadWaitScope waiting(ThreadWait::Disk);
            Sim::SleepUntil(Sim::Clock().SteadyNanoseconds() + delay * Sim::kNanosecondsPerMillisecond);
        }
        if (Sim::Failures().Fails(Sim::Operation::Read, file_->node->name)) return 0;
        Sim::PathFaults& faults = *file_->faults;
        while (faults.hang) Sim::BlockOrThrow(faults.hanging, Sim::kNever, {"a read that hangs"});
        if (faults.FailsRead(position, count)) {
            // What lies in front of the bad byte still comes.
            count = position >= faults.firstBad ? 0 : faults.firstBad - position;
        }
        return file_->Copy(position, destination, count);
    }

private:
    const std::shared_ptr<OpenFile> file_;
    const u64 size_;
};

class SimWriteFile final : public IWriteFile {
public:
    explicit SimWriteFile(std::shared_ptr<OpenFile> file) : file_(std::move(file)) {}

    bool Write(const void* data, u64 size) override {
        Sim::SchedulingPoint();
        Sim::SimFiles::Impl& world = *file_->world;
        if (Sim::Failures().Fails(Sim::Operation::Write, file_->node->name)) return false;
        const u64 taken = std::min(size, world.freeSpace);
        if (world.freeSpace != Sim::SimFiles::End) world.freeSpace -= taken;
        std::string& bytes = file_->node->bytes;
        const u64 end = position_ + taken;
        if (position_ == bytes.size()) {
            bytes.append(static_cast<const char*>(data), taken);
        } else {
            // Somebody else has changed the length meanwhile: zeros fill a gap.
            if (bytes.size() < end) bytes.resize(end);
            bytes.replace(position_, taken, static_cast<const char*>(data), taken);
        }
        position_ = end;
        world.counters.bytesWritten += taken;
        if (world.writeHook) world.writeHook(file_->node->name, {static_cast<const char*>(data), taken});
        return taken == size;
    }

    u64 Position() const override { return position_; }

    void TakeBack(u64 position) override {
        Sim::SchedulingPoint();
        Sim::SimFiles::Impl& world = *file_->world;
        if (world.freeSpace != Sim::SimFiles::End) world.freeSpace += position_ - position;
        file_->node->bytes.resize(position);
        position_ = position;
    }

private:
    const std::shared_ptr<OpenFile> file_;
    u64 position_ = 0;
};

Sim::SimFiles::Impl& World() {
    return Sim::Files().Internals();
}

}  // namespace

std::unique_ptr<IReadFile> OpenReadFile(const std::string& path, SystemError& error) {
    auto file = Sim::OpenSimFile(FindOnDisk(path), false, error);
    return file == nullptr ? nullptr : std::make_unique<SimReadFile>(std::move(file));
}

std::unique_ptr<IWriteFile> CreateWriteFile(const std::string& path, SystemError& error) {
    auto file = Sim::OpenSimFile(path, true, error);
    if (file == nullptr) return nullptr;
    file->node->bytes.clear();
    return std::make_unique<SimWriteFile>(std::move(file));
}

bool PathExists(const std::string& path) {
    Sim::SchedulingPoint();
    SystemError error = 0;
    return !Sim::Failures().Fails(Sim::Operation::Path, path) && World().Find(path, error) != nullptr;
}

bool CreateFolder(const std::string& path, SystemError& error) {
    Sim::SimFiles::Impl& world = World();
    if (!world.Reach(path, error)) return false;
    if (world.Find(path, error) != nullptr) {
        error = EEXIST;
        return false;
    }
    auto made = std::make_shared<Sim::FileNode>();
    made->kind = Sim::FileKind::Folder;
    const auto parent = world.FindParent(path, made->name, error);
    if (parent == nullptr) return false;
    parent->Add(std::move(made));
    error = 0;
    return true;
}

SystemError PathExistsError() {
    return EEXIST;
}

bool MoveFileTo(const std::string& from, const std::string& to) {
    Sim::SimFiles::Impl& world = World();
    SystemError error = 0;
    if (!world.Reach(from, error) || !world.Reach(to, error)) return false;
    std::string oldName;
    std::string newName;
    const auto node = world.Find(from, error);
    const auto oldParent = world.FindParent(from, oldName, error);
    const auto newParent = world.FindParent(to, newName, error);
    if (node == nullptr || oldParent == nullptr || newParent == nullptr) return false;
    if (newParent->Child(newName) != nullptr) return false;
    oldParent->Remove(oldName);
    node->name = newName;
    newParent->Add(node);
    return true;
}

}  // namespace Platform
