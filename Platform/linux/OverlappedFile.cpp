#include "Platform/OverlappedFile.h"

#include <fcntl.h>

#include <atomic>
#include <cerrno>
#include <limits>
#include <utility>

#include "Platform/Path.h"
#include "Platform/linux/PositionalRead.h"
#include "Platform/linux/ReaderGroup.h"
#include "Platform/linux/RegularFile.h"

namespace Platform {
namespace {

class OverlappedFile final : public IOverlappedFile, public std::enable_shared_from_this<OverlappedFile> {
public:
    explicit OverlappedFile(RegularFile file)
        : descriptor_(std::move(file.descriptor)),
          sizeAtOpen_(file.size),
          readers_(ReaderGroup::ForDevice(file.device)) {
        readers_.EnsureThread();
    }

    std::shared_ptr<OverlappedRead> MakeRead() override;
    ReadState StartRead(const std::shared_ptr<OverlappedRead>& read, u64 position, u32 length) override;

    int Get() const { return descriptor_.Get(); }
    u64 SizeAtOpen() const { return sizeAtOpen_; }
    ReaderGroup& Readers() const { return readers_; }
    bool HasCachedReads() const { return hasCachedReads_.load(std::memory_order_relaxed); }
    void SetNoCachedReads() { hasCachedReads_.store(false, std::memory_order_relaxed); }

private:
    const Descriptor descriptor_;
    const u64 sizeAtOpen_;
    ReaderGroup& readers_;
    // Until the file system has said that it cannot tell what is in the cache.
    std::atomic<bool> hasCachedReads_{true};
};

class ReadRecord final : public OverlappedRead, public WaitingRead {
public:
    explicit ReadRecord(std::shared_ptr<OverlappedFile> file) : file_(std::move(file)) {}
    ~ReadRecord() override {
        if (state_.load(std::memory_order_acquire) == ReadState::Pending) file_->Readers().Withdraw(*this);
    }

    const u8* Data() const override { return data_; }
    u32 Bytes() const override { return bytes_; }
    SystemError Error() const override { return error_; }

    ReadState Poll() override {
        const ReadState state = state_.load(std::memory_order_acquire);
        if (state == ReadState::Pending && !begun_.load(std::memory_order_relaxed)) {
            file_->Readers().StartMissingThread();
        }
        return state;
    }

    ReadState Start(u64 position, u32 length) {
        position_ = position;
        length_ = length;
        bytes_ = 0;
        error_ = 0;
        begun_.store(false, std::memory_order_relaxed);
        const ReadState state = ReadFromCache();
        state_.store(state, std::memory_order_release);
        if (state == ReadState::Pending) file_->Readers().Submit(*this);
        return state;
    }

    void CarryOut() noexcept override {
        begun_.store(true, std::memory_order_relaxed);
        // The last touch of this object: from here on it may be started anew.
        state_.store(ReadFromDisk(), std::memory_order_release);
    }

private:
    // Pending when the disk has to be asked; the bytes that were there are kept.
    ReadState ReadFromCache() {
        constexpr u64 kLastPosition = std::numeric_limits<off_t>::max() - Capacity;
        if (position_ > kLastPosition) return ReadState::EndOfFile;
        const auto fromCache = CurrentReadCalls().fromCache;
        while (file_->HasCachedReads()) {
            const ssize_t count = fromCache(file_->Get(), data_ + bytes_, length_ - bytes_, NextPosition());
            if (count > 0) {
                bytes_ += static_cast<u32>(count);
                if (bytes_ == length_) return ReadState::Done;
            } else if (count == 0) {
                // Believed only where the end was known to be: there have been kernels that gave 0 for "not cached".
                return position_ + bytes_ >= file_->SizeAtOpen() ? StateAtEnd() : ReadState::Pending;
            } else if (errno == EOPNOTSUPP || errno == ENOSYS) {
                file_->SetNoCachedReads();
            } else if (errno != EINTR) {
                break;
            }
        }
        return ReadState::Pending;
    }

    ReadState ReadFromDisk() {
        const auto fromDisk = CurrentReadCalls().fromDisk;
        while (bytes_ < length_) {
            const ssize_t count = fromDisk(file_->Get(), data_ + bytes_, length_ - bytes_, NextPosition());
            if (count == 0) return StateAtEnd();
            if (count > 0) {
                bytes_ += static_cast<u32>(count);
            } else if (errno != EINTR) {
                error_ = static_cast<SystemError>(errno);
                bytes_ = 0;
                return ReadState::Failed;
            }
        }
        return ReadState::Done;
    }

    off_t NextPosition() const { return static_cast<off_t>(position_ + bytes_); }
    ReadState StateAtEnd() const { return bytes_ > 0 ? ReadState::Done : ReadState::EndOfFile; }

    const std::shared_ptr<OverlappedFile> file_;
    // Written by one side at a time: the caller up to Submit(), the reader thread until the state is final.
    u64 position_ = 0;
    u32 length_ = 0;
    u32 bytes_ = 0;
    SystemError error_ = 0;
    std::atomic<bool> begun_{false};
    std::atomic<ReadState> state_{ReadState::EndOfFile};
    u8 data_[Capacity];
};

std::shared_ptr<OverlappedRead> OverlappedFile::MakeRead() {
    return std::make_shared<ReadRecord>(shared_from_this());
}

ReadState OverlappedFile::StartRead(const std::shared_ptr<OverlappedRead>& read, u64 position, u32 length) {
    return static_cast<ReadRecord&>(*read).Start(position, length);
}

}  // namespace

std::shared_ptr<IOverlappedFile> OpenOverlappedFile(const std::string& path, SystemError& error) {
    RegularFile file;
    if (!OpenRegularFile(FindOnDisk(path), O_RDONLY, file, error)) return nullptr;
    return std::make_shared<OverlappedFile>(std::move(file));
}

}  // namespace Platform
