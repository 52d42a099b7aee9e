#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "Platform/Clock.h"
#include "Platform/LocalServer.h"
#include "Platform/Thread.h"
#include "Platform/linux/Descriptor.h"
#include "Platform/linux/PipeAddress.h"

namespace Platform {
namespace {

constexpr u32 kBusyRetryMilliseconds = 10;

// One exchange with a deadline. Each step is false with errno set.
class Asking {
public:
    explicit Asking(u32 milliseconds) : deadline_(SteadyMilliseconds() + milliseconds) {}

    bool Connect(const PipeAddress& address) {
        socket_ = Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        if (!socket_.IsOpen()) return false;
        while (::connect(socket_.Get(), address.Get(), sizeof address.address) != 0) {
            if (errno != EAGAIN || Left() == 0) return false;
            SleepMilliseconds(kBusyRetryMilliseconds);  // the queue of those who wait is full
        }
        return true;
    }

    bool Send(const std::string& request) {
        for (std::size_t sent = 0; sent < request.size();) {
            const ssize_t taken = ::send(socket_.Get(), request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
            if (taken > 0) {
                sent += static_cast<std::size_t>(taken);
            } else if (!Wait(POLLOUT)) {
                return false;
            }
        }
        return true;
    }

    bool ReceiveAll(std::string& answer, u64 limit) {
        answer.clear();
        for (;;) {
            char bytes[16384];
            const ssize_t got = ::recv(socket_.Get(), bytes, sizeof bytes, 0);
            if (got == 0) return true;
            if (got > 0) {
                answer.append(bytes, static_cast<std::size_t>(got));
                if (answer.size() > limit) {
                    errno = EMSGSIZE;
                    return false;
                }
            } else if (!Wait(POLLIN)) {
                return false;
            }
        }
    }

private:
    u32 Left() const {
        const u64 now = SteadyMilliseconds();
        return now < deadline_ ? static_cast<u32>(deadline_ - now) : 0;
    }
    // Behind a call that took or gave nothing: whether it may be tried again.
    bool Wait(short events) {
        if (errno != EAGAIN && errno != EINTR) return false;
        pollfd waiting{socket_.Get(), events, 0};
        const u32 left = Left();
        if (left == 0 || ::poll(&waiting, 1, static_cast<int>(left)) == 0) {
            errno = ETIMEDOUT;
            return false;
        }
        return true;
    }

    const u64 deadline_;
    Descriptor socket_;
};

}  // namespace

bool AskLocalServer(const std::string& path, const std::string& request, u32 milliseconds, u64 limit,
                    std::string& answer, SystemError& error) {
    PipeAddress address;
    if (!PipeAddress::OfPath(path, address, error)) return false;
    Asking asking(milliseconds);
    if (asking.Connect(address) && asking.Send(request) && asking.ReceiveAll(answer, limit)) {
        error = 0;
        return true;
    }
    error = static_cast<SystemError>(errno);
    return false;
}

}  // namespace Platform
