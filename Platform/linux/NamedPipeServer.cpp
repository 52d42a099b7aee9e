#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <optional>
#include <utility>

#include "Platform/Clock.h"
#include "Platform/NamedPipe.h"
#include "Platform/Thread.h"
#include "Platform/ThreadWait.h"
#include "Platform/linux/Descriptor.h"
#include "Platform/linux/PipeAddress.h"
#include "Platform/linux/PipeListener.h"

namespace Platform {
namespace {

// A client's socket holds two blocks of 2000 bytes, as a pipe with a buffer of 4096 bytes does. The kernel calls a
// socket writable, and wakes who waits for that, while a quarter of its buffer at most is in use. The buffer is twice
// this number, and a block takes between 2304 and 4352 bytes of it, by the kernel's version: one waiting block leaves
// the socket writable and two do not. So whoever asks for that before each write has two blocks taken and no more, and
// a client that takes one of the two wakes the writer, which costs nothing until then however many clients are full.
constexpr int kSendBufferBytes = 8960;
// No more in one write, so that two of them is what a socket holds, whoever writes.
constexpr u64 kLargestWriteBytes = 2000;
// A kernel that has no memory for a block is asked again at this pace.
constexpr u32 kMemoryRetryMilliseconds = 4;

class PipeInstance final : public IPipeInstance {
public:
    explicit PipeInstance(std::shared_ptr<PipeListener> listener) : listener_(std::move(listener)) {}
    ~PipeInstance() override { DropReceived(); }

    PipeId Id() const override { return id_; }
    ConnectState PollConnect(SystemError& error) override;
    i64 Write(const void* data, u64 size, u64 deadline) override;
    i64 TryWrite(const void* data, u64 size) override;

private:
    // Whether the client can take a block within so many milliseconds; 0: now, -1: without limit.
    bool WaitForRoom(int milliseconds) const;
    // The count that the client has taken, 0 when that is nothing, or -1 when it is gone.
    i64 Send(const void* data, u64 size);
    void DropReceived();

    const PipeId id_ = NextPipeId();
    std::shared_ptr<PipeListener> listener_;  // until the client has come
    Descriptor client_;
};

ConnectState PipeInstance::PollConnect(SystemError& error) {
    error = 0;
    if (client_.IsOpen()) return ConnectState::Connected;
    // An accept that finds nobody costs ten times as much as this question.
    pollfd waiting{listener_->Get(), POLLIN, 0};
    const int ready = ::poll(&waiting, 1, 0);
    if (ready == 0 || (ready < 0 && errno == EINTR)) return ConnectState::Pending;
    if (ready < 0) {
        error = static_cast<SystemError>(errno);
        return ConnectState::Failed;
    }
    Descriptor client(::accept4(listener_->Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!client.IsOpen()) {
        if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return ConnectState::Pending;
        error = static_cast<SystemError>(errno);
        return ConnectState::Failed;
    }
    if (::setsockopt(client.Get(), SOL_SOCKET, SO_SNDBUF, &kSendBufferBytes, sizeof kSendBufferBytes) != 0) {
        error = static_cast<SystemError>(errno);
        return ConnectState::Failed;
    }
    // The pipe goes one way: a client's write fails.
    ::shutdown(client.Get(), SHUT_RD);
    client_ = std::move(client);
    listener_.reset();
    return ConnectState::Connected;
}

i64 PipeInstance::Write(const void* data, u64 size, u64 deadline) {
    std::optional<ThreadWaitScope> waiting;
    for (;;) {
        const bool hasRoom = WaitForRoom(0);
        const i64 taken = hasRoom ? Send(data, size) : 0;
        if (taken != 0 || size == 0) return taken;
        const u64 now = deadline != NoDeadline ? SteadyMilliseconds() : 0;
        if (now >= deadline) return 0;
        if (!waiting) waiting.emplace(ThreadWait::Client);
        if (hasRoom) {
            SleepMilliseconds(kMemoryRetryMilliseconds);
        } else {
            WaitForRoom(deadline != NoDeadline ? static_cast<int>(std::min<u64>(deadline - now, INT_MAX)) : -1);
        }
    }
}

i64 PipeInstance::TryWrite(const void* data, u64 size) {
    return size == 0 || WaitForRoom(0) ? Send(data, size) : 0;
}

// Also true when the client has gone, which the write then tells.
bool PipeInstance::WaitForRoom(int milliseconds) const {
    pollfd room{client_.Get(), POLLOUT, 0};
    return ::poll(&room, 1, milliseconds) > 0;
}

i64 PipeInstance::Send(const void* data, u64 size) {
    for (;;) {
        const ssize_t taken =
            ::send(client_.Get(), data, std::min(size, kLargestWriteBytes), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (taken >= 0) return taken;
        if (errno == EINTR) continue;
        return errno == EAGAIN || errno == ENOBUFS || errno == ENOMEM ? 0 : -1;
    }
}

// What a client sent before it was accepted would turn the end it sees into a reset.
void PipeInstance::DropReceived() {
    if (!client_.IsOpen()) return;
    char dropped[4096];
    while (::recv(client_.Get(), dropped, sizeof dropped, MSG_DONTWAIT) > 0) {
    }
}

class PipeEndpoint final : public IPipeEndpoint {
public:
    explicit PipeEndpoint(std::string name) : name_(std::move(name)) {}
    ~PipeEndpoint() override {
        // Also when an instance still holds it: the name ends here.
        if (listener_) listener_->Close();
    }

    std::unique_ptr<IPipeInstance> CreateInstance(SystemError& error) override {
        error = 0;
        if (!listener_) listener_ = PipeListener::Bind(name_, error);
        if (!listener_) return nullptr;
        return std::make_unique<PipeInstance>(listener_);
    }

private:
    const std::string name_;
    std::shared_ptr<PipeListener> listener_;
};

}  // namespace

std::unique_ptr<IPipeEndpoint> CreatePipeEndpoint(const std::string& name) {
    return std::make_unique<PipeEndpoint>(name);
}

}  // namespace Platform
