#include "bench/orv-load/Floor.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/ServiceControl.h"
#include "Platform/Sync.h"
#include "Platform/Thread.h"
#include "bench/orv-load/Common.h"

namespace OrvLoad {
namespace {

constexpr u32 kNapMilliseconds = 100;
constexpr u32 kBlockMilliseconds = 125;
constexpr u32 kHeadStartMilliseconds = 400;
constexpr u32 kFullRetryMilliseconds = 4;
constexpr int kSendBufferBytes = 4096;

std::atomic<bool> stopping{false};
const std::string kBlock(kBlockBytes, '\1');

int Serve(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (listener < 0 || ::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, 16) != 0) {
        Fail("Cannot serve " + path);
    }
    return listener;
}

// The client that waits, or -1.
int TakeClient(int listener) {
    pollfd waiting{listener, POLLIN, 0};
    if (::poll(&waiting, 1, 0) != 1) return -1;
    const int client = ::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (client >= 0) ::setsockopt(client, SOL_SOCKET, SO_SNDBUF, &kSendBufferBytes, sizeof kSendBufferBytes);
    return client;
}

// Asks a full socket again, as the pipes do. False when the client is gone.
bool SendBlock(int client) {
    while (::send(client, kBlock.data(), kBlockBytes, MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
        if (errno != EAGAIN) return false;
        Platform::SleepMilliseconds(kFullRetryMilliseconds);
    }
    return true;
}

u32 NowMilliseconds() {
    return static_cast<u32>(Platform::SteadyMilliseconds());
}

void RunPump(int listener, u32 firstNap) {
    int client = -1;
    u32 base = 0;
    Platform::SleepMilliseconds(firstNap);
    while (!stopping.load(std::memory_order_acquire)) {
        // A pump has one more end of its pipe waiting when it has a client, so it asks at each pass.
        const int taken = TakeClient(listener);
        if (client < 0 && taken >= 0) {
            client = taken;
            base = NowMilliseconds() - kHeadStartMilliseconds;
        } else if (taken >= 0) {
            ::close(taken);
        }
        if (client < 0 || NowMilliseconds() - base < kBlockMilliseconds) {
            Platform::SleepMilliseconds(kNapMilliseconds);
            continue;
        }
        if (!SendBlock(client)) {
            ::close(client);
            client = -1;
        }
        base += kBlockMilliseconds;
    }
}

}  // namespace

int RunFloor(const std::string& folder, u32 count) {
    Platform::PrepareProcess();
    Platform::Event stop;
    const Platform::ForegroundStop signals([&stop] {
        stopping.store(true, std::memory_order_release);
        stop.Set();
    });
    std::vector<Platform::Thread> threads;
    for (u32 i = 0; i < count; ++i) {
        const int listener = Serve(folder + "/f" + std::to_string(i));
        const u32 firstNap = static_cast<u32>(u64{i} * 37 % kNapMilliseconds);
        threads.emplace_back("floor", [listener, firstNap] { RunPump(listener, firstNap); });
    }
    while (!stop.WaitFor(1000)) {
    }
    for (Platform::Thread& thread : threads) thread.Join();
    return 0;
}

}  // namespace OrvLoad
