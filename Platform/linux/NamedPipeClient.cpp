#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <limits>
#include <utility>

#include "Platform/Clock.h"
#include "Platform/NamedPipe.h"
#include "Platform/linux/Descriptor.h"
#include "Platform/linux/PipeAddress.h"

namespace Platform {
namespace {

class PipeClient final : public IPipeClient {
public:
    explicit PipeClient(Descriptor socket) : socket_(std::move(socket)) {}

    PipeId Id() const override { return id_; }
    Outcome Read(void* destination, u64 size, u32 timeoutMilliseconds, u64& taken, SystemError& error) override;
    bool Available(u64& bytes) override;

private:
    // Sleeps until something can be read. False when the time is over.
    bool WaitUntil(u64 deadline) const;

    const PipeId id_ = NextPipeId();
    const Descriptor socket_;
};

IPipeClient::Outcome PipeClient::Read(void* destination, u64 size, u32 timeoutMilliseconds, u64& taken,
                                      SystemError& error) {
    taken = 0;
    error = 0;
    const u64 deadline = timeoutMilliseconds == 0 ? 0 : SteadyMilliseconds() + timeoutMilliseconds;
    for (;;) {
        const ssize_t count = ::recv(socket_.Get(), destination, size, MSG_DONTWAIT);
        if (count > 0) {
            taken = static_cast<u64>(count);
            return Outcome::Data;
        }
        if (count == 0) return Outcome::Closed;
        if (errno == EINTR) continue;
        if (errno != EAGAIN) {
            error = static_cast<SystemError>(errno);
            return Outcome::Closed;
        }
        if (deadline == 0 || !WaitUntil(deadline)) return Outcome::TimedOut;
    }
}

bool PipeClient::WaitUntil(u64 deadline) const {
    for (;;) {
        const u64 now = SteadyMilliseconds();
        if (now >= deadline) return false;
        constexpr u64 kLongest = std::numeric_limits<int>::max();
        pollfd readable{socket_.Get(), POLLIN, 0};
        if (::poll(&readable, 1, static_cast<int>(std::min(deadline - now, kLongest))) > 0) return true;
    }
}

bool PipeClient::Available(u64& bytes) {
    int queued = 0;
    bytes = 0;
    if (::ioctl(socket_.Get(), FIONREAD, &queued) != 0) return false;
    if (queued == 0) {
        // Nothing yet, or nothing ever again.
        char byte;
        const ssize_t count = ::recv(socket_.Get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
        if (count == 0) return false;
        if (count < 0) return errno == EAGAIN || errno == EINTR;
        if (::ioctl(socket_.Get(), FIONREAD, &queued) != 0) return false;
    }
    bytes = static_cast<u64>(queued);
    return true;
}

}  // namespace

std::unique_ptr<IPipeClient> ConnectPipe(const std::string& name, SystemError& error) {
    PipeAddress address;
    if (!PipeAddress::Make(name, address, error)) return nullptr;
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    // A local socket is connected at once or not at all; with a full queue it answers what PipeBusyError() tells.
    if (!socket.IsOpen() || ::connect(socket.Get(), address.Get(), sizeof address.address) != 0) {
        error = static_cast<SystemError>(errno);
        return nullptr;
    }
    return std::make_unique<PipeClient>(std::move(socket));
}

SystemError PipeBusyError() {
    return EAGAIN;
}

}  // namespace Platform
