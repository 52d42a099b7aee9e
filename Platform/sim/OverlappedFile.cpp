#include "Platform/OverlappedFile.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Platform/Path.h"
#include "Platform/sim/SimFileTree.h"
#include "Platform/sim/World.h"

namespace Platform {

namespace {

using Sim::OpenFile;

class SimRead final : public OverlappedRead {
public:
    explicit SimRead(std::shared_ptr<Sim::SimFiles::Impl> world) : world_(std::move(world)) {
        ++world_->counters.readRecordsAlive;
    }
    ~SimRead() override { --world_->counters.readRecordsAlive; }

    const u8* Data() const override { return data_; }

    ReadState Poll() override {
        if (state_ != ReadState::Pending) return state_;
        Complete();
        // Whoever only polls must let time and the others go on.
        if (state_ == ReadState::Pending) Sim::SchedulingPoint();
        return state_;
    }

    u32 Bytes() const override { return bytes_; }
    SystemError Error() const override { return error_; }

    ReadState Start(const std::shared_ptr<OpenFile>& file, u64 position, u32 length) {
        ++world_->counters.reads;
        file_ = file;
        position_ = position;
        length_ = std::min(length, Capacity);
        bytes_ = 0;
        error_ = 0;
        state_ = ReadState::Pending;
        dueTime_ = Sim::Clock().SteadyNanoseconds() + file->ReadDelay() * Sim::kNanosecondsPerMillisecond;
        Complete();
        return state_;
    }

private:
    // Ends the read if its time has come. The file is read as it is then.
    void Complete() {
        if (file_->faults->hang || Sim::Clock().SteadyNanoseconds() < dueTime_) return;
        if (file_->faults->FailsRead(position_, length_)) {
            error_ = file_->faults->readError;
            state_ = ReadState::Failed;
        } else if (Sim::Failures().Fails(Sim::Operation::Read, file_->node->name)) {
            error_ = EIO;
            state_ = ReadState::Failed;
        } else {
            bytes_ = static_cast<u32>(file_->Copy(position_, data_, length_));
            state_ = bytes_ == 0 ? ReadState::EndOfFile : ReadState::Done;
        }
        file_.reset();
    }

    const std::shared_ptr<Sim::SimFiles::Impl> world_;
    std::shared_ptr<OpenFile> file_;  // only while the read is pending
    u64 position_ = 0;
    u32 length_ = 0;
    u64 dueTime_ = 0;
    ReadState state_ = ReadState::EndOfFile;
    u32 bytes_ = 0;
    SystemError error_ = 0;
    u8 data_[Capacity] = {};
};

class SimOverlappedFile final : public IOverlappedFile {
public:
    explicit SimOverlappedFile(std::shared_ptr<OpenFile> file) : file_(std::move(file)) {}

    std::shared_ptr<OverlappedRead> MakeRead() override { return std::make_shared<SimRead>(file_->world); }

    ReadState StartRead(const std::shared_ptr<OverlappedRead>& read, u64 position, u32 length) override {
        return static_cast<SimRead&>(*read).Start(file_, position, length);
    }

private:
    const std::shared_ptr<OpenFile> file_;
};

}  // namespace

std::shared_ptr<IOverlappedFile> OpenOverlappedFile(const std::string& path, SystemError& error) {
    auto file = Sim::OpenSimFile(FindOnDisk(path), false, error);
    return file == nullptr ? nullptr : std::make_shared<SimOverlappedFile>(std::move(file));
}

}  // namespace Platform
