// One client of a channel: its pipe, and the blocks on their way to it.
#pragma once

#include <memory>

#include "Platform/NamedPipe.h"
#include "ServiceProcess/MTReferencedTypeBase.h"

namespace Orv {

// A channel's unit: 125 ms of sound.
inline constexpr u32 BlockSamples = 1000;
inline constexpr u32 BlockBytes = 2 * BlockSamples;

// Owns one pipe to one client; letting it go disconnects the client. Belongs to the channel's pump thread.
class BufferTransportImpl : public MTObjects::MTReferencedTypeBase {
public:
    explicit BufferTransportImpl(std::unique_ptr<Platform::IPipeInstance> pipe) : pipe_(std::move(pipe)) {}

    // The connection's ID in the log.
    Platform::PipeId Id() const { return pipe_->Id(); }
    // As IPipeInstance::Write. Blocks while the client's buffer is full, until the deadline at most.
    i64 Write(const void* data, u64 size, u64 deadline) { return pipe_->Write(data, size, deadline); }

protected:
    bool TestValid() const override { return pipe_ != nullptr; }

private:
    std::unique_ptr<Platform::IPipeInstance> pipe_;
};

// A connected client with its staging block, through which whatever comes in leaves in blocks of BlockBytes.
class ChannelConnection {
public:
    // A client that has taken nothing for `stallMilliseconds` counts as gone; 0: it is waited for. That time begins
    // with the last byte that it took, or when it came, and not with a write: one that begins behind it still tries,
    // once.
    explicit ChannelConnection(MTObjects::THolder<BufferTransportImpl> transport, u32 stallMilliseconds = 0);

    // Adds samples, and writes each block that becomes full. Blocks while the client takes nothing. False when the
    // client is gone.
    bool Send(const u8* samples, u64 count);
    // Whether the client is gone because it has taken nothing for too long.
    bool Stalled() const noexcept { return stalled_; }
    // The ID for the log; 0 without a valid pipe.
    Platform::PipeId Id() const { return transport_.IsValid() ? transport_->Id() : 0; }

private:
    bool WriteStaged();
    bool StillTakes(i64 taken);
    u64 Deadline() const noexcept;

    const u32 stallMilliseconds_;
    bool stalled_ = false;
    u64 lastTaken_;  // on the steady clock: when the pipe last had room, or the client came
    u8 data_[BlockBytes] = {};
    u64 fill_ = 0;  // samples that wait in data_, below BlockSamples
    MTObjects::THolder<BufferTransportImpl> transport_;
};

}  // namespace Orv
