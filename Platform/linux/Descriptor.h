// An owned file descriptor. Inside Platform/linux only.
#pragma once

#include <unistd.h>

#include <utility>

namespace Platform {

class Descriptor {
public:
    Descriptor() noexcept = default;
    explicit Descriptor(int fd) noexcept : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            Close();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { Close(); }

    bool IsOpen() const noexcept { return fd_ >= 0; }
    int Get() const noexcept { return fd_; }
    // The descriptor, the caller's from then on.
    int Release() noexcept { return std::exchange(fd_, -1); }
    void Close() noexcept {
        if (fd_ >= 0) ::close(std::exchange(fd_, -1));
    }

private:
    int fd_ = -1;
};

}  // namespace Platform
