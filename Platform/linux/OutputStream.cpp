#include "Platform/OutputStream.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "Platform/Clock.h"
#include "Platform/linux/Descriptor.h"

namespace Platform {
namespace {

constexpr u64 kOnePiece = 4096;  // a pipe that can be written to has room for so much
constexpr mode_t kFifoMode = 0640;

class DescriptorOutput final : public IOutputStream {
public:
    explicit DescriptorOutput(int descriptor) : descriptor_(descriptor) {}
    explicit DescriptorOutput(Descriptor owned) : owned_(std::move(owned)), descriptor_(owned_.Get()) {}

    Outcome Write(const void* data, u64 size, u32 timeoutMilliseconds, u64& taken, SystemError& error) override {
        taken = 0;
        error = 0;
        const u64 deadline = SteadyMilliseconds() + timeoutMilliseconds;
        while (taken < size) {
            const u64 now = SteadyMilliseconds();
            constexpr u64 kLongest = std::numeric_limits<int>::max();
            const u64 left = deadline > now ? std::min(deadline - now, kLongest) : 0;
            // Asked first, since the descriptor's own mode is not ours to change.
            pollfd writable{descriptor_, POLLOUT, 0};
            const int ready = ::poll(&writable, 1, static_cast<int>(left));
            if (ready == 0 && left == 0) return Outcome::TimedOut;
            if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
            const ssize_t count = ready < 0 ? -1
                                            : ::write(descriptor_, static_cast<const u8*>(data) + taken,
                                                      std::min(size - taken, kOnePiece));
            if (count >= 0) {
                taken += static_cast<u64>(count);
                continue;
            }
            if (errno == EINTR) continue;
            if (errno == EAGAIN && left == 0) return Outcome::TimedOut;
            if (errno == EAGAIN) continue;
            error = static_cast<SystemError>(errno);
            return error == EPIPE || error == ECONNRESET ? Outcome::Closed : Outcome::Failed;
        }
        return Outcome::Taken;
    }

    bool ReaderGone() const override {
        pollfd state{descriptor_, 0, 0};
        return ::poll(&state, 1, 0) == 1 && (state.revents & (POLLERR | POLLHUP)) != 0;
    }

private:
    const Descriptor owned_;
    const int descriptor_;
};

}  // namespace

std::unique_ptr<IOutputStream> OpenStandardOutput() {
    return std::make_unique<DescriptorOutput>(STDOUT_FILENO);
}

bool MakeFifo(const std::string& path, SystemError& error) {
    error = 0;
    if (::mkfifo(path.c_str(), kFifoMode) == 0) return true;
    error = static_cast<SystemError>(errno);
    struct stat status {};
    if (error != EEXIST || ::stat(path.c_str(), &status) != 0) return false;
    error = S_ISFIFO(status.st_mode) ? 0 : NotAFifoError();
    return error == 0;
}

SystemError NotAFifoError() {
    return ENOTSUP;
}

std::unique_ptr<IOutputStream> OpenFifo(const std::string& path, SystemError& error) {
    error = 0;
    Descriptor fifo(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fifo.IsOpen()) {
        error = static_cast<SystemError>(errno);
        return nullptr;
    }
    // Another may have put a file in its place meanwhile.
    struct stat status {};
    if (::fstat(fifo.Get(), &status) == 0 && S_ISFIFO(status.st_mode)) {
        return std::make_unique<DescriptorOutput>(std::move(fifo));
    }
    error = NotAFifoError();
    return nullptr;
}

SystemError NoReaderError() {
    return ENXIO;
}

}  // namespace Platform
