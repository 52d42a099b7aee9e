// What a thread waits for outside the process, for others to see. The implementations of the pipes and files set it
// themselves around whatever may block; nothing on a road that does not block touches it.
#pragma once

#include <atomic>

#include "Platform/Types.h"

namespace Platform {

enum class ThreadWait : u8 { None, Client, Disk };

// The calling thread's own mark; it lives as long as the thread. Any thread may read it.
std::atomic<ThreadWait>& ThisThreadWait() noexcept;

// Sets the calling thread's mark, and puts back what was there.
class ThreadWaitScope {
public:
    explicit ThreadWaitScope(ThreadWait wait) noexcept
        : mark_(ThisThreadWait()), before_(mark_.load(std::memory_order_relaxed)) {
        mark_.store(wait, std::memory_order_relaxed);
    }
    ~ThreadWaitScope() { mark_.store(before_, std::memory_order_relaxed); }
    ThreadWaitScope(const ThreadWaitScope&) = delete;
    ThreadWaitScope& operator=(const ThreadWaitScope&) = delete;

private:
    std::atomic<ThreadWait>& mark_;
    const ThreadWait before_;
};

}  // namespace Platform
