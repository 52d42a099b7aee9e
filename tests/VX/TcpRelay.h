// A wire between a client and a server that the test can stop or cut, and a peer that sends what it likes.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/Types.h"

inline sockaddr_in LoopbackAddress(u32 port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<u16>(port));
    return address;
}

// A plain connection to a port of this machine; -1 when there is none.
inline int ConnectSocket(u32 port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = LoopbackAddress(port);
    if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return socket;
    close(socket);
    return -1;
}

class TcpRelay {
public:
    // Without a target port it accepts and says nothing.
    explicit TcpRelay(u32 targetPort = 0) : targetPort_(targetPort) {
        listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = LoopbackAddress(0);
        socklen_t size = sizeof(address);
        if (bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(listener_, 16) != 0 ||
            getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            std::abort();
        }
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { Run(); });
    }
    ~TcpRelay() {
        ending_ = true;
        thread_.join();
        CloseAll();
        close(listener_);
    }
    u32 Port() const { return port_; }
    // From here on nothing passes, as with a peer that hangs.
    void Freeze() { frozen_ = true; }
    // Every connection ends, as with a peer that was killed.
    void Cut() { cut_ = true; }

private:
    void Run() {
        while (!ending_) {
            if (cut_.exchange(false)) CloseAll();
            std::vector<pollfd> polled = {{listener_, POLLIN, 0}};
            if (!frozen_) {
                for (const auto& [from, to] : pairs_) polled.push_back({from, POLLIN, 0});
            }
            if (poll(polled.data(), polled.size(), 10) <= 0 || frozen_) continue;
            const auto pairs = pairs_;
            for (u64 i = 1; i < polled.size(); i++) {
                if (polled[i].revents != 0 && !Forward(pairs[i - 1].first, pairs[i - 1].second)) {
                    CloseAll();
                    break;
                }
            }
            if ((polled[0].revents & POLLIN) != 0) Accept();
        }
    }
    void Accept() {
        const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (targetPort_ == 0) {
            silent_.push_back(client);
            return;
        }
        const int server = ConnectSocket(targetPort_);
        pairs_.emplace_back(client, server);
        pairs_.emplace_back(server, client);
    }
    static bool Forward(int from, int to) {
        char bytes[65536];
        const ssize_t count = recv(from, bytes, sizeof(bytes), 0);
        return count > 0 && send(to, bytes, static_cast<size_t>(count), MSG_NOSIGNAL) == count;
    }
    void CloseAll() {
        for (const auto& [from, to] : pairs_) close(from);
        for (int socket : silent_) close(socket);
        pairs_.clear();
        silent_.clear();
    }

    const u32 targetPort_;
    int listener_ = -1;
    u32 port_ = 0;
    std::atomic<bool> ending_{false};
    std::atomic<bool> frozen_{false};
    std::atomic<bool> cut_{false};
    std::vector<std::pair<int, int>> pairs_;
    std::vector<int> silent_;
    std::thread thread_;
};
