// A TCP connection to the Configuration service's port on which HTTP/2 is spoken by hand: what no library would send.
// Tests only.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

namespace OrvTest {

class Http2Peer {
public:
    // Connects, from any address of the loopback.
    explicit Http2Peer(int port, const std::string& from = "127.0.0.1") {
        socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in own = Address(from, 0);
        ::bind(socket_, reinterpret_cast<sockaddr*>(&own), sizeof own);
        sockaddr_in other = Address("127.0.0.1", port);
        connected_ = ::connect(socket_, reinterpret_cast<sockaddr*>(&other), sizeof other) == 0;
        timeval patience{5, 0};
        ::setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    }
    // Takes over a socket that somebody has connected.
    explicit Http2Peer(int socket, bool) : socket_(socket), connected_(socket >= 0) {}
    ~Http2Peer() {
        if (socket_ >= 0) ::close(socket_);
    }
    Http2Peer(Http2Peer&& other) noexcept
        : socket_(std::exchange(other.socket_, -1)),
          connected_(other.connected_),
          read_(std::move(other.read_)),
          connectionWindow_(other.connectionWindow_),
          streamWindow_(other.streamWindow_),
          initialWindow_(other.initialWindow_) {}
    Http2Peer& operator=(Http2Peer&& other) noexcept {
        std::swap(socket_, other.socket_);
        std::swap(connected_, other.connected_);
        read_.swap(other.read_);
        std::swap(connectionWindow_, other.connectionWindow_);
        std::swap(streamWindow_, other.streamWindow_);
        std::swap(initialWindow_, other.initialWindow_);
        return *this;
    }

    bool Connected() const { return connected_; }

    // --- what goes out
    static std::string Frame(int type, int flags, std::uint32_t stream, const std::string& body) {
        std::string frame = Big(static_cast<std::uint32_t>(body.size()), 3);
        frame += static_cast<char>(type);
        frame += static_cast<char>(flags);
        return frame + Big(stream, 4) + body;
    }
    static std::string Preface() { return "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" + Frame(4, 0, 0, ""); }
    static std::string Headers(std::uint32_t stream, const std::string& path) {
        const auto text = [](const std::string& value) { return static_cast<char>(value.size()) + value; };
        return Frame(1, 4, stream,
                     "\x83\x86\x04" + text(path) + "\x01" + text("x") + "\x0f\x10" + text("application/grpc") +
                         std::string(1, '\0') + text("te") + text("trailers"));
    }
    // The length in front of a message.
    static std::string Prefix(std::uint32_t length) { return std::string(1, '\0') + Big(length, 4); }
    static std::string LoginRequest(const std::string& credentials) {
        const std::string message = std::string("\x0a") + static_cast<char>(credentials.size()) + credentials;
        return Headers(1, "/orv.vx.Link/Open") +
               Frame(0, 1, 1, Prefix(static_cast<std::uint32_t>(message.size())) + message);
    }
    // False when the other side has ended the connection, or takes nothing for 5 s.
    bool Send(const std::string& bytes) const {
        for (std::size_t sent = 0; sent < bytes.size();) {
            const ssize_t count = ::send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) return false;
            sent += static_cast<std::size_t>(count);
        }
        return true;
    }

    // --- what comes in
    struct Received {
        int type = -1;  // of an HTTP/2 frame; -1: the end of the connection, -2: nothing within the time
        int flags = 0;
        std::uint32_t stream = 0;
        std::string body;
    };
    Received Receive(int milliseconds) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        for (;;) {
            if (read_.size() >= 9 && read_.size() >= 9 + Number(read_, 0, 3)) return TakeFrame();
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            pollfd state{socket_, POLLIN, 0};
            if (::poll(&state, 1, static_cast<int>(std::max<long>(0, static_cast<long>(left.count())))) != 1)
                return {-2, 0, 0, ""};
            char buffer[65536];
            const ssize_t count = ::recv(socket_, buffer, sizeof buffer, 0);
            if (count <= 0) return {};
            read_.append(buffer, static_cast<std::size_t>(count));
        }
    }
    // Of the serving side: what a client says first, in front of its frames.
    bool SkipPreface(int milliseconds) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        while (read_.size() < 24 && std::chrono::steady_clock::now() < deadline) {
            pollfd state{socket_, POLLIN, 0};
            char buffer[4096];
            if (::poll(&state, 1, 100) != 1) continue;
            const ssize_t count = ::recv(socket_, buffer, sizeof buffer, 0);
            if (count <= 0) return false;
            read_.append(buffer, static_cast<std::size_t>(count));
        }
        read_.erase(0, std::min<std::size_t>(24, read_.size()));
        return true;
    }
    bool WaitForEnd(int milliseconds) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        while (std::chrono::steady_clock::now() < deadline) {
            if (Receive(100).type == -1) return true;
        }
        return false;
    }

    enum class Answer { Welcomed, Refused, Busy, Closed, None };
    // A whole login: the answer to the credentials.
    Answer Login(const std::string& credentials, int milliseconds) {
        if (!Send(Preface() + LoginRequest(credentials))) return Answer::Closed;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
        while (std::chrono::steady_clock::now() < deadline) {
            const Received frame = Receive(200);
            if (frame.type == -1) return Answer::Closed;
            Acknowledge(frame);
            if (frame.type == 0 && frame.stream == 1) return Answer::Welcomed;
            if (frame.type != 1 || frame.stream != 1 || (frame.flags & 1) == 0) continue;
            return frame.body.find("credentials refused") != std::string::npos ? Answer::Refused : Answer::Busy;
        }
        return Answer::None;
    }

    // Sends `opening` and then as much of a message of `declared` bytes on stream 1 as the other side lets through,
    // `most` bytes at most. The bytes that went.
    std::uint64_t SendHalfMessage(const std::string& opening, std::uint32_t declared, std::uint64_t most) {
        std::uint64_t sent = 0;
        std::string next = Prefix(declared);
        if (!Send(opening)) return 0;
        while (sent < most) {
            const std::int64_t window = std::min<std::int64_t>({connectionWindow_, streamWindow_, 16000});
            if (window > 0) {
                next.resize(static_cast<std::size_t>(window), 'x');
                if (!Send(Frame(0, 0, 1, next))) return sent;
                connectionWindow_ -= window;
                streamWindow_ -= window;
                sent += static_cast<std::uint64_t>(window);
                next.clear();
            }
            for (Received frame = Receive(window > 0 ? 0 : 1000); frame.type != -2; frame = Receive(0)) {
                if (frame.type == -1 || frame.type == 3 || frame.type == 7) return sent;
                Acknowledge(frame);
            }
        }
        return sent;
    }
    // What must be answered for the other side to go on.
    void Acknowledge(const Received& frame) const {
        if ((frame.flags & 1) != 0) return;
        if (frame.type == 4) Send(Frame(4, 1, 0, ""));
        if (frame.type == 6) Send(Frame(6, 1, 0, frame.body));
    }

private:
    static sockaddr_in Address(const std::string& host, int port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        ::inet_pton(AF_INET, host.c_str(), &address.sin_addr);
        return address;
    }
    static std::string Big(std::uint32_t value, int width) {
        std::string bytes;
        for (int i = width - 1; i >= 0; --i) bytes += static_cast<char>(value >> (8 * i));
        return bytes;
    }
    static std::uint32_t Number(const std::string& bytes, std::size_t at, std::size_t width) {
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < width; ++i) value = value << 8 | static_cast<std::uint8_t>(bytes[at + i]);
        return value;
    }
    Received TakeFrame() {
        const std::size_t length = Number(read_, 0, 3);
        Received frame{static_cast<std::uint8_t>(read_[3]), static_cast<std::uint8_t>(read_[4]),
                       Number(read_, 5, 4) & 0x7FFFFFFFu, read_.substr(9, length)};
        read_.erase(0, 9 + length);
        FollowWindows(frame);
        return frame;
    }
    // From the first frame on: one that is missed leaves less than the other side believes to have given, and in the
    // end each waits for the other.
    void FollowWindows(const Received& frame) {
        if (frame.type == 8 && frame.body.size() == 4) {
            (frame.stream == 0 ? connectionWindow_ : streamWindow_) += Number(frame.body, 0, 4) & 0x7FFFFFFFu;
        }
        if (frame.type != 4 || (frame.flags & 1) != 0) return;
        for (std::size_t at = 0; at + 6 <= frame.body.size(); at += 6) {
            if (Number(frame.body, at, 2) != 4) continue;
            streamWindow_ += Number(frame.body, at + 2, 4) - initialWindow_;
            initialWindow_ = Number(frame.body, at + 2, 4);
        }
    }

    int socket_ = -1;
    bool connected_ = false;
    std::string read_;
    // What may still be sent, of the whole connection and of stream 1, by the other side's word.
    std::int64_t connectionWindow_ = 65535;
    std::int64_t streamWindow_ = 65535;
    std::int64_t initialWindow_ = 65535;
};

}  // namespace OrvTest
