#include "Platform/linux/DescriptorStream.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "Platform/Clock.h"

namespace Platform {

IInputStream::Outcome DescriptorStream::Read(void* destination, u64 size, u32 timeoutMilliseconds, u64& taken,
                                             SystemError& error) {
    taken = 0;
    error = 0;
    const u64 deadline = SteadyMilliseconds() + timeoutMilliseconds;
    for (;;) {
        const u64 now = SteadyMilliseconds();
        constexpr u64 kLongest = std::numeric_limits<int>::max();
        const u64 left = deadline > now ? std::min(deadline - now, kLongest) : 0;
        // Asked first, since the descriptor's own mode is not ours to change. What stands behind a hang-up is read too.
        pollfd readable{descriptor_, POLLIN, 0};
        const int ready = ::poll(&readable, 1, static_cast<int>(left));
        if (ready == 0 && left == 0) return Outcome::TimedOut;
        if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
        const ssize_t count = ready < 0 ? -1 : ::read(descriptor_, destination, size);
        if (count > 0) {
            taken = static_cast<u64>(count);
            return Outcome::Data;
        }
        if (count == 0) return Outcome::End;
        if (errno == EINTR) continue;
        if (errno == EAGAIN && left == 0) return Outcome::TimedOut;
        if (errno == EAGAIN) continue;
        error = static_cast<SystemError>(errno);
        return Outcome::End;
    }
}

std::unique_ptr<IInputStream> OpenStandardInput() {
    return std::make_unique<DescriptorStream>(STDIN_FILENO);
}

}  // namespace Platform
