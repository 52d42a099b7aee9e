#include "VX/GrpcRoom.h"

#include <grpc/support/cpu.h>

#include <algorithm>
#include <exception>
#include <vector>

#include "Platform/ProcessFigures.h"
#include "Platform/Sync.h"
#include "Platform/Thread.h"

namespace VX {

namespace {

constexpr u32 kFiles = 8;    // with some to spare
constexpr u32 kThreads = 8;  // beside one for each processor; it starts some of them only when they are needed
constexpr u32 kMostMilliseconds = 60'000;

}  // namespace

bool HasRoomForFiles() {
    return Platform::CanOpenFiles(kFiles);
}

bool HasRoomForThreads() {
    const u32 count = kThreads + std::clamp(gpr_cpu_num_cores(), 2u, 16u);
    Platform::Event tried;
    std::vector<Platform::Thread> threads;
    threads.reserve(count);
    try {
        while (threads.size() < count) threads.emplace_back("vx-room", [&tried] { tried.WaitFor(kMostMilliseconds); });
    } catch (const std::exception&) {
        // Told by their number.
    }
    tried.Set();
    for (Platform::Thread& thread : threads) thread.Join();
    return threads.size() == count;
}

}  // namespace VX
