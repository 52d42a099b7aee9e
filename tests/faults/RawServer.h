// A server that is none: what it does to who connects is the test's. Tests only.
#pragma once

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/faults/Http2Peer.h"

namespace OrvTest {

// On a free port of the loopback. One connection at a time.
class RawServer {
public:
    // The socket is its own to close.
    using Behaviour = std::function<void(int socket, const std::atomic<bool>& stop)>;
    explicit RawServer(Behaviour behaviour) : behaviour_(std::move(behaviour)) {
        socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        ::bind(socket_, reinterpret_cast<sockaddr*>(&address), size);
        ::listen(socket_, 16);
        ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { Run(); });
    }
    ~RawServer() {
        stop_.store(true);
        thread_.join();
        ::close(socket_);
    }
    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;
    int Port() const { return port_; }

private:
    void Run() {
        while (!stop_.load()) {
            pollfd waiting{socket_, POLLIN, 0};
            if (::poll(&waiting, 1, 50) != 1) continue;
            const int client = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
            if (client < 0) continue;
            behaviour_(client, stop_);
        }
    }

    Behaviour behaviour_;
    int socket_ = -1;
    int port_ = 0;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

// Answers each login with a message that is said to be of 2 GB, and keeps what became of each.
class EndlessMessage {
public:
    // Of which it offers so much, and ends the connection when all of that has gone.
    explicit EndlessMessage(std::uint64_t offered) : offered_(offered) {}

    struct Try {
        std::uint64_t bytes = 0;         // of the message that went
        std::uint64_t milliseconds = 0;  // from the login on to the end of the call or of the connection
    };

    void operator()(int socket, const std::atomic<bool>& stop) {
        Http2Peer peer(socket, true);
        if (!peer.SkipPreface(10'000) || !peer.Send(Http2Peer::Frame(4, 0, 0, ""))) return;
        for (int type = 0; !stop.load() && type != kHeaders;) {
            const Http2Peer::Received frame = peer.Receive(100);
            type = frame.type;
            if (type == -1) return;
            peer.Acknowledge(frame);
        }
        const auto begin = std::chrono::steady_clock::now();
        const std::string headers = std::string("\x88\x0f\x10\x10", 4) + "application/grpc";
        Try one;
        one.bytes = peer.SendHalfMessage(Http2Peer::Frame(kHeaders, 4, 1, headers), 2'000'000'000, offered_);
        const auto gone = std::chrono::steady_clock::now() - begin;
        one.milliseconds =
            static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(gone).count());
        {
            const std::lock_guard guard(mutex_);
            tries_.push_back(one);
        }
        while (!stop.load() && one.bytes < offered_ && !peer.WaitForEnd(100)) {
        }
    }
    std::vector<Try> Tries() const {
        const std::lock_guard guard(mutex_);
        return tries_;
    }

private:
    static constexpr int kHeaders = 1;

    const std::uint64_t offered_;
    mutable std::mutex mutex_;
    std::vector<Try> tries_;
};

}  // namespace OrvTest
