// Threads and sleeping.
#pragma once

#include <functional>
#include <memory>

#include "Platform/Types.h"

namespace Platform {

// One thread of execution. The object itself belongs to one owner thread.
class Thread {
public:
    // Holds no thread.
    Thread() noexcept;
    // Starts `body` on a new thread at once. `name` is what `ps -L` shows, 15 characters at most, the rest is cut.
    // Throws std::system_error when the system has no thread to give. An exception that leaves `body` ends the process.
    Thread(const char* name, std::function<void()> body);
    Thread(Thread&&) noexcept;
    Thread& operator=(Thread&&) noexcept;  // the target must not be joinable
    // The thread must have been joined.
    ~Thread();

    bool Joinable() const noexcept;
    // Waits until the thread has ended, and leaves the object empty. Throws std::system_error with
    // std::errc::resource_deadlock_would_occur when called on the thread itself, with invalid_argument when empty.
    void Join();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Sleeps for at least `milliseconds` of the steady clock.
void SleepMilliseconds(u32 milliseconds);

// From now on timed sleeps and waits of the calling thread, and of threads that it starts, may end up to so much later
// than asked. With thousands of threads the system then wakes many at once, which costs a fraction of waking each by
// itself. A hint: no effect on systems without it.
void AllowLateWaking(u32 milliseconds) noexcept;

// The system's own number of the calling thread, as its tools show it. Never 0.
u64 CurrentThreadId() noexcept;

}  // namespace Platform
