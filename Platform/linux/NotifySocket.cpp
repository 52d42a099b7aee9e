#include "Platform/linux/NotifySocket.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "Platform/linux/Descriptor.h"

namespace Platform {
namespace {

// 0 when there is no usable address.
socklen_t ReadAddress(sockaddr_un& address) {
    const char* name = std::getenv("NOTIFY_SOCKET");
    if (name == nullptr || (name[0] != '/' && name[0] != '@') || name[1] == '\0') return 0;
    const std::size_t length = std::strlen(name);
    address = {};
    if (length >= sizeof address.sun_path) return 0;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name, length);
    if (name[0] == '@') address.sun_path[0] = '\0';
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
}

}  // namespace

bool HasNotifySocket() {
    sockaddr_un address;
    return ReadAddress(address) != 0;
}

void NotifyServiceManager(const std::string& message) {
    sockaddr_un address;
    const socklen_t length = ReadAddress(address);
    if (length == 0) return;
    const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const timeval patience{1, 0};
    ::setsockopt(socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    (void)!::sendto(socket.Get(), message.data(), message.size(), MSG_NOSIGNAL,
                    reinterpret_cast<const sockaddr*>(&address), length);
}

}  // namespace Platform
