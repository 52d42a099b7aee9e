#include "Platform/LocalServer.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <list>
#include <system_error>
#include <utility>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/Thread.h"
#include "Platform/linux/Descriptor.h"
#include "Platform/linux/PipeAddress.h"
#include "Platform/linux/PipeListener.h"

namespace Platform {
namespace {

constexpr u32 kRetryMilliseconds = 1000;
constexpr SystemError kNotTriedYet = ~SystemError{0};

// One who asks: sends its request, then takes its answer.
struct Client {
    Descriptor socket;
    u64 deadline = 0;
    std::string request;
    std::string answer;
    std::size_t sent = 0;
    bool answering = false;
};

// What has not been read would turn the end that the client sees into a reset.
void Drain(const Descriptor& socket) {
    char dropped[4096];
    for (int i = 0; i < 16 && ::recv(socket.Get(), dropped, sizeof dropped, MSG_DONTWAIT) > 0; ++i) {
    }
}

bool IsForLater() {
    return errno == EAGAIN || errno == EINTR || errno == ENOBUFS || errno == ENOMEM;
}

}  // namespace

struct LocalServer::Impl {
    Impl(const std::string& thePath, LocalAnswer theAnswer, LocalServerEvent theEvent, LocalServerLimits theLimits)
        : path(thePath), answer(std::move(theAnswer)), event(std::move(theEvent)), limits(theLimits) {
        wake = Descriptor(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
        if (!wake.IsOpen()) throw std::system_error(errno, std::generic_category());
    }

    void Run();
    void Bind();
    void Accept();
    // Both false when the client is done with.
    bool Read(Client& client);
    bool Write(Client& client);
    bool Step(Client& client);
    int Timeout() const;

    const std::string path;
    const LocalAnswer answer;
    const LocalServerEvent event;
    const LocalServerLimits limits;
    Descriptor wake;
    std::atomic<bool> stop{false};
    // The thread's own.
    std::shared_ptr<PipeListener> listener;
    SystemError lastOutcome = kNotTriedYet;
    std::list<Client> clients;  // the oldest first
    Thread thread;
};

void LocalServer::Impl::Run() {
    while (!stop.load(std::memory_order_acquire)) {
        if (listener == nullptr) Bind();
        std::vector<pollfd> waiting{{wake.Get(), POLLIN, 0}};
        for (const Client& client : clients) {
            waiting.push_back({client.socket.Get(), static_cast<short>(client.answering ? POLLOUT : POLLIN), 0});
        }
        if (listener != nullptr) waiting.push_back({listener->Get(), POLLIN, 0});
        ::poll(waiting.data(), waiting.size(), Timeout());
        const u64 now = SteadyMilliseconds();
        for (auto client = clients.begin(); client != clients.end();) {
            client = now < client->deadline && Step(*client) ? std::next(client) : clients.erase(client);
        }
        if (listener != nullptr) Accept();
    }
    clients.clear();
    listener.reset();
}

int LocalServer::Impl::Timeout() const {
    if (clients.empty()) return listener != nullptr ? -1 : static_cast<int>(kRetryMilliseconds);
    const u64 now = SteadyMilliseconds();
    const u64 first = clients.front().deadline;  // all have the same time, so the oldest is the first to go
    return static_cast<int>(first > now ? std::min<u64>(first - now, kRetryMilliseconds) : 0);
}

void LocalServer::Impl::Bind() {
    PipeAddress address;
    SystemError error = 0;
    if (PipeAddress::OfPath(path, address, error)) listener = PipeListener::BindAt(address, error);
    // Another process that makes a socket in this folder just now is no news.
    if (error == EAGAIN || error == lastOutcome) return;
    lastOutcome = error;
    event(error);
}

void LocalServer::Impl::Accept() {
    for (u32 i = 0; i < limits.clients; ++i) {
        Descriptor socket(::accept4(listener->Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!socket.IsOpen()) {
            // Without a descriptor to give, the one who waits would wake the thread again at once.
            if (errno == EMFILE || errno == ENFILE) SleepMilliseconds(100);
            return;
        }
        if (clients.size() >= limits.clients) clients.pop_front();
        Client& client = clients.emplace_back();
        client.socket = std::move(socket);
        client.deadline = SteadyMilliseconds() + limits.milliseconds;
        // Who has asked already is answered before another one can take its place.
        if (!Step(client)) clients.pop_back();
    }
}

bool LocalServer::Impl::Step(Client& client) {
    return client.answering ? Write(client) : Read(client);
}

bool LocalServer::Impl::Read(Client& client) {
    char bytes[4096];
    const std::size_t room = limits.requestBytes - client.request.size();
    const ssize_t got = ::recv(client.socket.Get(), bytes, std::min(room, sizeof bytes), MSG_DONTWAIT);
    if (got < 0) return IsForLater();
    client.request.append(bytes, static_cast<std::size_t>(got));
    const bool whole = got == 0 || client.request.size() >= limits.requestBytes;
    if (got == 0 && client.request.empty()) return false;
    if (!answer(client.request, whole, client.answer) && !whole) return true;
    client.answering = true;
    return Write(client);
}

bool LocalServer::Impl::Write(Client& client) {
    while (client.sent < client.answer.size()) {
        const ssize_t taken = ::send(client.socket.Get(), client.answer.data() + client.sent,
                                     client.answer.size() - client.sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (taken < 0) return IsForLater();
        client.sent += static_cast<std::size_t>(taken);
    }
    Drain(client.socket);
    return false;
}

LocalServer::LocalServer(const std::string& path, const char* threadName, LocalAnswer answer, LocalServerEvent event,
                         LocalServerLimits limits)
    : impl_(std::make_unique<Impl>(path, std::move(answer), std::move(event), limits)) {
    impl_->thread = Thread(threadName, [impl = impl_.get()] { impl->Run(); });
}

LocalServer::~LocalServer() {
    impl_->stop.store(true, std::memory_order_release);
    constexpr std::uint64_t kOne = 1;
    (void)!::write(impl_->wake.Get(), &kOne, sizeof kOne);
    impl_->thread.Join();
}

}  // namespace Platform
