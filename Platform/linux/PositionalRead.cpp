#include "Platform/linux/PositionalRead.h"

#include <sys/uio.h>
#include <unistd.h>

#include <atomic>

namespace Platform {
namespace {

ssize_t ReadFromCache(int fd, void* destination, std::size_t count, off_t position) {
    const iovec target{destination, count};
    return ::preadv2(fd, &target, 1, position, RWF_NOWAIT);
}

ssize_t ReadFromDisk(int fd, void* destination, std::size_t count, off_t position) {
    return ::pread(fd, destination, count, position);
}

constexpr ReadCalls kSystemCalls{ReadFromCache, ReadFromDisk};
std::atomic<const ReadCalls*> current{&kSystemCalls};

}  // namespace

const ReadCalls& CurrentReadCalls() {
    return *current.load(std::memory_order_acquire);
}

void SetReadCalls(const ReadCalls* calls) {
    current.store(calls == nullptr ? &kSystemCalls : calls, std::memory_order_release);
}

}  // namespace Platform
