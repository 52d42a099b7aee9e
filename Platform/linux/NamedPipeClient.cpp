#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
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
    u64 Write(const void* data, u64 size) override;

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

u64 PipeClient::Write(const void* data, u64 size) {
    u64 done = 0;
    while (done < size) {
        const ssize_t count =
            ::send(socket_.Get(), static_cast<const char*>(data) + done, size - done, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count >= 0) {
            done += static_cast<u64>(count);
            continue;
        }
        if (errno == EINTR) continue;
        if (errno != EAGAIN) break;
        pollfd writable{socket_.Get(), POLLOUT, 0};
        ::poll(&writable, 1, -1);
    }
    return done;
}

// At least one millisecond, since none would mean without end.
u64 LeftUntil(u64 deadline) {
    const u64 now = SteadyMilliseconds();
    return now < deadline ? deadline - now : 1;
}

bool SetSendTimeout(const Descriptor& socket, u64 milliseconds) {
    const timeval time{static_cast<time_t>(milliseconds / 1000), static_cast<suseconds_t>(milliseconds % 1000 * 1000)};
    return ::setsockopt(socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time) == 0;
}

}  // namespace

std::unique_ptr<IPipeClient> ConnectPipe(const std::string& name, SystemError& error) {
    return ConnectPipeWithin(name, 0, error);
}

std::unique_ptr<IPipeClient> ConnectPipeWithin(const std::string& name, u32 milliseconds, SystemError& error) {
    PipeAddress address;
    if (!PipeAddress::Make(name, address, error)) return nullptr;
    const int flags = milliseconds == 0 ? SOCK_NONBLOCK : 0;
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
    const u64 deadline = milliseconds == 0 ? 0 : SteadyMilliseconds() + milliseconds;
    for (u64 left = milliseconds;; left = LeftUntil(deadline)) {
        // With a full queue a local socket waits as long as a send may, and then answers what PipeBusyError() tells;
        // that time is also the only end of such a wait. Everything else is decided at once.
        if (socket.IsOpen() && (deadline == 0 || SetSendTimeout(socket, left)) &&
            ::connect(socket.Get(), address.Get(), sizeof address.address) == 0) {
            error = 0;
            return std::make_unique<PipeClient>(std::move(socket));
        }
        error = static_cast<SystemError>(errno);
        if (error != EINTR) return nullptr;
    }
}

SystemError PipeBusyError() {
    return EAGAIN;
}

SystemError PipeBrokenError() {
    return EPIPE;
}

}  // namespace Platform
