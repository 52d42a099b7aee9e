// A channel's door: the pipe instance that waits for the next client.
#pragma once

#include <memory>
#include <string>

#include "AudioFeeder/ChannelConnection.h"
#include "Platform/NamedPipe.h"

namespace Orv {

// Serves one pipe name, with at most one instance waiting at any time. Belongs to the channel's pump thread. The name
// is served from the first step until the listener is destroyed.
class PipeListener {
public:
    // `logPrefix` stands in front of each of its log lines.
    PipeListener(const std::string& pipeName, const std::string& logPrefix);

    // One step, never blocking: opens a new instance, or looks whether a client has come to the one that waits. The
    // client's pipe when one has been taken, else an empty holder. Failures are logged; the next step tries again.
    MTObjects::THolder<BufferTransportImpl> Service();
    // Why the pipe could not be served when that was last tried; 0 when it is served.
    Platform::SystemError LastError() const noexcept { return lastError_; }
    // Takes the waiting instance out, null when there is none.
    std::unique_ptr<Platform::IPipeInstance> TakeWaiting() { return std::move(waiting_); }

private:
    std::unique_ptr<Platform::IPipeInstance> PollWaiting();
    std::unique_ptr<Platform::IPipeInstance> OpenNew();

    const std::string logPrefix_;
    std::unique_ptr<Platform::IPipeEndpoint> endpoint_;  // the name; outlives its instances
    std::unique_ptr<Platform::IPipeInstance> waiting_;
    Platform::SystemError lastError_ = 0;
};

// A pipe's ID as the log prints it: in the stream's pointer format.
const void* PipeIdAsPointer(Platform::PipeId id);

}  // namespace Orv
