#include "Platform/PortListener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/tcp.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/Sync.h"
#include "Platform/Thread.h"
#include "Platform/linux/Descriptor.h"

namespace Platform {
namespace {

constexpr int kWatchMilliseconds = 25;   // between two looks at the strangers
constexpr int kPauseMilliseconds = 100;  // when a connection cannot be taken, so that it does not wake us at once
constexpr u32 kTakenInARow = 64;
constexpr u32 kFreePorts = 16;  // tried until one is free on every address

struct Address {
    sockaddr_storage storage{};
    socklen_t size = sizeof storage;

    sockaddr* Get() { return reinterpret_cast<sockaddr*>(&storage); }
    bool operator==(const Address& other) const {
        return size == other.size && std::memcmp(&storage, &other.storage, size) == 0;
    }
    // In the network's order.
    in_port_t& Port() {
        return storage.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6&>(storage).sin6_port
                                             : reinterpret_cast<sockaddr_in&>(storage).sin_port;
    }
    // "127.0.0.1:4711", "[::1]:4711".
    std::string Text() {
        char text[INET6_ADDRSTRLEN] = "";
        const bool six = storage.ss_family == AF_INET6;
        const void* bytes = six ? static_cast<const void*>(&reinterpret_cast<sockaddr_in6&>(storage).sin6_addr)
                                : &reinterpret_cast<sockaddr_in&>(storage).sin_addr;
        ::inet_ntop(storage.ss_family, bytes, text, sizeof text);
        return (six ? "[" + std::string(text) + "]" : std::string(text)) + ":" + std::to_string(ntohs(Port()));
    }
};

// Each address that the names stand for, once. None for a name that nobody knows.
std::vector<Address> FindAddresses(const std::vector<std::string>& hosts) {
    std::vector<Address> addresses;
    for (const std::string& host : hosts) {
        addrinfo wanted{};
        wanted.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        if (::getaddrinfo(host.c_str(), nullptr, &wanted, &found) != 0) continue;
        for (const addrinfo* each = found; each != nullptr; each = each->ai_next) {
            Address address;
            address.size = each->ai_addrlen;
            std::memcpy(&address.storage, each->ai_addr, each->ai_addrlen);
            if (std::find(addresses.begin(), addresses.end(), address) == addresses.end()) addresses.push_back(address);
        }
        ::freeaddrinfo(found);
    }
    return addresses;
}

// The system hands out the lowest free descriptor, so its number tells how many are in use.
bool RunsShort(int descriptor) {
    rlimit limit{};
    const bool known = ::getrlimit(RLIMIT_NOFILE, &limit) == 0;
    const u64 most =
        std::min<u64>(known ? limit.rlim_cur : u64{PortListener::MostDescriptors}, PortListener::MostDescriptors);
    return static_cast<u64>(descriptor) >= most - std::min<u64>(PortListener::SpareDescriptors, most / 4);
}

// What has come on a connection.
u64 BytesReceived(int socket) {
    tcp_info info{};
    socklen_t size = sizeof info;
    const bool known = ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 &&
                       size >= offsetof(tcp_info, tcpi_bytes_received) + sizeof info.tcpi_bytes_received;
    return known ? info.tcpi_bytes_received : 0;
}

// Resets a connection: what waits in it goes at once, and who has more to send is told, which he is not while he waits
// for room in a connection that has only been shut. Whoever serves it sees its end.
void CutOff(int socket) {
    sockaddr nobody{};
    nobody.sa_family = AF_UNSPEC;
    if (::connect(socket, &nobody, sizeof nobody) != 0) ::shutdown(socket, SHUT_RDWR);
}

// A connection that nobody has admitted. The descriptor is one of our own beside that of whoever serves it, and `watch`
// (an epoll) tells by its number when something has come.
class Stranger {
public:
    Stranger(Descriptor socket, int watch, u64 deadline)
        : socket_(std::move(socket)), watch_(watch), deadline_(deadline) {
        epoll_event wanted{};
        wanted.events = EPOLLIN | EPOLLET;  // at each arrival, whoever reads it
        wanted.data.fd = socket_.Get();
        ::epoll_ctl(watch_, EPOLL_CTL_ADD, socket_.Get(), &wanted);
    }
    // It would be told of for as long as whoever serves it has it open, by a number that may mean another one.
    ~Stranger() { ::epoll_ctl(watch_, EPOLL_CTL_DEL, socket_.Get(), nullptr); }
    Stranger(const Stranger&) = delete;
    Stranger& operator=(const Stranger&) = delete;

    // Shut on both sides, as whoever serves it does before closing.
    bool HasEnded() const {
        pollfd state{socket_.Get(), 0, 0};
        return ::poll(&state, 1, 0) == 1;
    }
    bool HasDoneTooMuch(u64 now, u64 bytes) const { return now >= deadline_ || BytesReceived(socket_.Get()) > bytes; }
    void End() const { CutOff(socket_.Get()); }

private:
    const Descriptor socket_;
    const int watch_;
    const u64 deadline_;
};

}  // namespace

struct PortListener::Impl {
    // 0, or the system's error.
    SystemError Listen(Address address) {
        Descriptor socket(::socket(address.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        if (!socket.IsOpen()) return static_cast<SystemError>(errno);
        // The port of a service that has just ended may be taken again; connections inherit that they send at once.
        const int on = 1;
        ::setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        ::setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        if (address.storage.ss_family == AF_INET6) {
            ::setsockopt(socket.Get(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
        }
        address.Port() = htons(static_cast<std::uint16_t>(port));
        if (::bind(socket.Get(), address.Get(), address.size) != 0 || ::listen(socket.Get(), SOMAXCONN) != 0 ||
            ::getsockname(socket.Get(), address.Get(), &address.size) != 0) {
            return static_cast<SystemError>(errno);
        }
        port = ntohs(address.Port());
        sockets.push_back(std::move(socket));
        return 0;
    }

    // 0, or the system's error, and then on none of them. A name may stand for an address that this machine does not
    // have; one that somebody else serves is another thing.
    SystemError ListenOnAll(const std::vector<Address>& addresses, u32 wantedPort) {
        port = wantedPort;
        SystemError error = EADDRNOTAVAIL;
        for (const Address& address : addresses) {
            const SystemError failed = Listen(address);
            if (failed == EADDRINUSE) {
                sockets.clear();
                return failed;
            }
            if (failed != 0) error = failed;
        }
        return sockets.empty() ? error : 0;
    }

    void Run() {
        std::vector<pollfd> waiting{{wake.Get(), POLLIN, 0}, {watch.Get(), POLLIN, 0}};
        for (const Descriptor& socket : sockets) waiting.push_back({socket.Get(), POLLIN, 0});
        while (!stop.load(std::memory_order_acquire)) {
            ::poll(waiting.data(), waiting.size(), LookAtStrangers() ? kWatchMilliseconds : -1);
            CutOffWhoSentTooMuch();
            for (const Descriptor& socket : sockets) {
                if (!Take(socket.Get())) ::poll(waiting.data(), 1, kPauseMilliseconds);
            }
        }
    }

    // Whether there are any.
    bool LookAtStrangers() {
        const u64 now = SteadyMilliseconds();
        if (now < nextLook) return true;
        nextLook = now + kWatchMilliseconds;
        LockGuard<Mutex> guard(mutex);
        std::erase_if(strangers, [&](const auto& entry) {
            const Stranger& stranger = entry.second;
            if (stranger.HasEnded()) return true;
            if (!stranger.HasDoneTooMuch(now, limits.bytes)) return false;
            stranger.End();
            return true;
        });
        if (strangers.empty()) nextLook = 0;
        return !strangers.empty();
    }

    // As it comes: on one machine megabytes would come between two looks.
    void CutOffWhoSentTooMuch() {
        std::array<epoll_event, kTakenInARow> arrivals{};
        LockGuard<Mutex> guard(mutex);  // so that none of them ends between the telling and the look
        const int count = ::epoll_wait(watch.Get(), arrivals.data(), static_cast<int>(arrivals.size()), 0);
        for (int i = 0; i < count; ++i) {
            const int socket = arrivals[static_cast<std::size_t>(i)].data.fd;
            if (BytesReceived(socket) > limits.bytes) CutOff(socket);
        }
    }

    // False when one who waits could not be taken.
    bool Take(int listening) {
        for (u32 taken = 0; taken < kTakenInARow; ++taken) {
            Address peer;
            Descriptor socket(::accept4(listening, peer.Get(), &peer.size, SOCK_NONBLOCK | SOCK_CLOEXEC));
            if (!socket.IsOpen()) {
                if (errno == EINTR || errno == ECONNABORTED) continue;
                return errno == EAGAIN || errno == EWOULDBLOCK;
            }
            Descriptor watched(::fcntl(socket.Get(), F_DUPFD_CLOEXEC, 0));
            if (!watched.IsOpen() || RunsShort(socket.Get()) || RunsShort(watched.Get())) continue;
            {
                LockGuard<Mutex> guard(mutex);
                strangers.erase(peer.Text());
                strangers.try_emplace(peer.Text(), std::move(watched), watch.Get(),
                                      SteadyMilliseconds() + limits.milliseconds);
            }
            connected(socket.Release());
        }
        return true;
    }

    // Constant after Start().
    u32 port = 0;
    std::vector<Descriptor> sockets;
    Descriptor wake;
    Descriptor watch;
    StrangerLimits limits;
    Connected connected;

    std::atomic<bool> stop{false};
    Mutex mutex;
    std::unordered_map<std::string, Stranger> strangers ORV_GUARDED_BY(mutex);  // by peer
    u64 nextLook = 0;                                                           // the thread's own
    Thread thread;
};

PortListener::PortListener(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

PortListener::~PortListener() {
    Close();
}

std::unique_ptr<PortListener> PortListener::Open(const std::string& host, u32 port, SystemError& error) {
    return Open(std::vector<std::string>{host}, port, error);
}

std::unique_ptr<PortListener> PortListener::Open(const std::vector<std::string>& hosts, u32 port, SystemError& error) {
    auto impl = std::make_unique<Impl>();
    impl->wake = Descriptor(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    impl->watch = Descriptor(::epoll_create1(EPOLL_CLOEXEC));
    error = impl->wake.IsOpen() && impl->watch.IsOpen() ? 0 : static_cast<SystemError>(errno);
    if (error != 0) return nullptr;
    const std::vector<Address> addresses = FindAddresses(hosts);
    // The port that the first address has got may be somebody else's on the next one.
    u32 tries = port == 0 ? kFreePorts : 1;
    do {
        error = impl->ListenOnAll(addresses, port);
    } while (error == EADDRINUSE && --tries != 0);
    if (error != 0) return nullptr;
    return std::unique_ptr<PortListener>(new PortListener(std::move(impl)));
}

u32 PortListener::Port() const {
    return impl_->port;
}

void PortListener::Start(const char* threadName, StrangerLimits limits, Connected connected) {
    impl_->limits = limits;
    impl_->connected = std::move(connected);
    impl_->thread = Thread(threadName, [this] { impl_->Run(); });
}

void PortListener::Admit(const std::string& peer) {
    LockGuard<Mutex> guard(impl_->mutex);
    impl_->strangers.erase(peer);
}

void PortListener::Close() {
    impl_->stop.store(true, std::memory_order_release);
    const std::uint64_t one = 1;
    static_cast<void>(!::write(impl_->wake.Get(), &one, sizeof one));
    if (impl_->thread.Joinable()) impl_->thread.Join();
    impl_->sockets.clear();
    LockGuard<Mutex> guard(impl_->mutex);
    impl_->strangers.clear();
}

}  // namespace Platform
