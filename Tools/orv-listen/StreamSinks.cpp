#include "Tools/orv-listen/StreamSinks.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "Tools/orv-listen/Samples.h"

namespace Orv {
namespace {

constexpr u32 kWaitMs = 100;

// Sends sound in writes of one size.
class PieceWriter {
public:
    PieceWriter(const StreamFormat& format, const std::atomic<bool>& stop)
        : format_(format), stop_(stop), pieceBytes_(Bytes(format.writeMs)) {}

    // Forgets what was left of a reader, and sends the silence in front.
    SinkState Begin(Platform::IOutputStream& stream) {
        piece_.assign(Bytes(format_.prefillMs), format_.ulaw ? EncodeUlaw(0) : u8{0});
        return SendWhole(stream);
    }

    SinkState Write(Platform::IOutputStream& stream, const u8* samples, u64 count) {
        if (format_.ulaw) {
            AppendUlaw(samples, count, piece_);
        } else {
            piece_.insert(piece_.end(), samples, samples + count);
        }
        return SendWhole(stream);
    }

    // What is left is less than a piece.
    SinkState Finish(Platform::IOutputStream& stream) {
        const SinkState state = piece_.empty() ? SinkState::Open : Send(stream, 0, piece_.size());
        piece_.clear();
        return state;
    }

private:
    u64 Bytes(u32 milliseconds) const { return milliseconds * kBytesPerMillisecond / (format_.ulaw ? 2 : 1); }

    SinkState SendWhole(Platform::IOutputStream& stream) {
        u64 sent = 0;
        for (; piece_.size() - sent >= pieceBytes_; sent += pieceBytes_) {
            const SinkState state = Send(stream, sent, pieceBytes_);
            if (state != SinkState::Open) return state;
        }
        piece_.erase(piece_.begin(), piece_.begin() + static_cast<std::ptrdiff_t>(sent));
        return SinkState::Open;
    }

    SinkState Send(Platform::IOutputStream& stream, u64 begin, u64 size) {
        for (u64 done = 0; done < size;) {
            u64 taken = 0;
            Platform::SystemError error = 0;
            const auto outcome = stream.Write(piece_.data() + begin + done, size - done, kWaitMs, taken, error);
            done += taken;
            if (outcome == Platform::IOutputStream::Outcome::Closed) return SinkState::ReaderGone;
            if (outcome == Platform::IOutputStream::Outcome::Failed) return SinkState::Failed;
            const bool waits = outcome == Platform::IOutputStream::Outcome::TimedOut;
            if (waits && stop_.load(std::memory_order_relaxed)) return SinkState::Failed;
        }
        return SinkState::Open;
    }

    const StreamFormat format_;
    const std::atomic<bool>& stop_;
    const u64 pieceBytes_;
    std::vector<u8> piece_;
};

class StreamSink final : public ISoundSink {
public:
    StreamSink(std::unique_ptr<Platform::IOutputStream> stream, const StreamFormat& format,
               const std::atomic<bool>& stop)
        : stream_(std::move(stream)), writer_(format, stop) {}

    SinkState Begin() override { return writer_.Begin(*stream_); }
    SinkState Write(const u8* bytes, u64 count) override { return writer_.Write(*stream_, bytes, count); }
    SinkState Finish() override { return writer_.Finish(*stream_); }
    bool ReaderGone() const override { return stream_->ReaderGone(); }

private:
    const std::unique_ptr<Platform::IOutputStream> stream_;
    PieceWriter writer_;
};

class FifoSink final : public ISoundSink {
public:
    FifoSink(std::string path, const StreamFormat& format, const std::atomic<bool>& stop)
        : path_(std::move(path)), writer_(format, stop) {}

    SinkState Begin() override { return Reach(); }

    SinkState Write(const u8* bytes, u64 count) override {
        const SinkState state = Reach();
        if (state != SinkState::Open || stream_ == nullptr) return state;
        return Outcome(writer_.Write(*stream_, bytes, count));
    }

    SinkState Finish() override { return stream_ == nullptr ? SinkState::Open : Outcome(writer_.Finish(*stream_)); }

private:
    // Opens it when a reader is there.
    SinkState Reach() {
        if (stream_ != nullptr) return SinkState::Open;
        Platform::SystemError error = 0;
        stream_ = Platform::OpenFifo(path_, error);
        if (stream_ != nullptr) return Outcome(writer_.Begin(*stream_));
        return error == Platform::NoReaderError() ? SinkState::Open : SinkState::Failed;
    }

    // The next reader may come at any time.
    SinkState Outcome(SinkState state) {
        if (state != SinkState::ReaderGone) return state;
        stream_.reset();
        return SinkState::Open;
    }

    const std::string path_;
    std::unique_ptr<Platform::IOutputStream> stream_;
    PieceWriter writer_;
};

}  // namespace

std::unique_ptr<ISoundSink> MakeStreamSink(std::unique_ptr<Platform::IOutputStream> stream, const StreamFormat& format,
                                           const std::atomic<bool>& stop) {
    return std::make_unique<StreamSink>(std::move(stream), format, stop);
}

std::unique_ptr<ISoundSink> MakeFifoSink(const std::string& path, const StreamFormat& format,
                                         const std::atomic<bool>& stop, std::string& reason) {
    Platform::SystemError error = 0;
    if (Platform::MakeFifo(path, error)) return std::make_unique<FifoSink>(path, format, stop);
    reason = error == Platform::NotAFifoError() ? "something that is no FIFO stands there"
                                                : Platform::SystemErrorText(error);
    return nullptr;
}

}  // namespace Orv
