// Goal: locks, waits, sleeps, pipe writes and reads of a run that has settled take no memory from the heap, so that a
// test that counts the allocations of the code above counts that code alone.
// Method: every allocation of this program is counted.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "Platform/NamedPipe.h"
#include "Platform/OverlappedFile.h"
#include "Platform/Sync.h"
#include "Platform/Thread.h"
#include "Platform/sim/Simulation.h"

namespace {
std::atomic<u64> allocations{0};
}

// Not inlined, for a compiler that sees malloc() and free() through new and delete takes them for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t bytes) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = std::malloc(bytes)) return memory;
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

using Platform::CondVar;
using Platform::LockGuard;
using Platform::Mutex;
using Platform::Thread;
using Platform::Sim::Simulation;

TEST(AllocationTest, LocksWaitsAndSleepsAllocateNothing) {
    Simulation sim;
    Mutex mutex;
    CondVar changed;
    bool stop = false;
    u64 before = 0;
    u64 after = 0;
    sim.Run([&] {
        std::vector<Thread> threads;
        for (u32 i = 0; i < 8; ++i) {
            threads.emplace_back("worker", [&, i] {
                LockGuard<Mutex> guard(mutex);
                while (!stop) {
                    if (i % 2 == 0)
                        changed.WaitFor(mutex, 3 + i);
                    else
                        changed.Wait(mutex);
                }
            });
        }
        Platform::SleepMilliseconds(1000);
        before = allocations.load();
        for (u32 i = 0; i < 1000; ++i) {
            Platform::SleepMilliseconds(5);
            LockGuard<Mutex> guard(mutex);
            if (i % 2 == 0)
                changed.NotifyOne();
            else
                changed.NotifyAll();
        }
        after = allocations.load();
        {
            LockGuard<Mutex> guard(mutex);
            stop = true;
            changed.NotifyAll();
        }
        for (Thread& thread : threads) thread.Join();
    });
    EXPECT_EQ(after - before, 0u);
    EXPECT_GT(sim.Switches(), 5000u);
}

TEST(AllocationTest, PipeWritesAndReadsAndOverlappedReadsAllocateNothing) {
    Simulation sim;
    sim.Files().AddFile("/a.raw", std::string(8192, 'x'));
    sim.Files().DelayReads("/a.raw", 20);
    u64 before = 0;
    u64 after = 0;
    sim.Run([&] {
        Platform::SystemError error = 0;
        const auto endpoint = Platform::CreatePipeEndpoint("feed");
        auto instance = endpoint->CreateInstance(error);
        Thread client("client", [&] {
            const auto pipe = Platform::ConnectPipe("feed", error);
            char bytes[1500];
            u64 taken = 0;
            Platform::SystemError readError = 0;
            while (pipe->Read(bytes, sizeof bytes, 10'000, taken, readError) == Platform::IPipeClient::Outcome::Data) {
            }
        });
        EXPECT_EQ(instance->PollConnect(error), Platform::ConnectState::Connected);
        const auto file = Platform::OpenOverlappedFile("/a.raw", error);
        const auto read = file->MakeRead();
        char block[2000] = {};
        before = allocations.load();
        for (u32 i = 0; i < 1000; ++i) {
            EXPECT_EQ(file->StartRead(read, 0, 8192), Platform::ReadState::Pending);
            Platform::SleepMilliseconds(125);
            EXPECT_EQ(read->Poll(), Platform::ReadState::Done);
            EXPECT_EQ(instance->Write(block, sizeof block), 2000);
        }
        after = allocations.load();
        instance.reset();
        client.Join();
    });
    EXPECT_EQ(after - before, 0u);
}

}  // namespace
