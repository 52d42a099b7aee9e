// The signals that ask a process to stop. Inside Platform/linux only.
#pragma once

#include <csignal>

#include "Platform/linux/Descriptor.h"

namespace Platform {

// SIGINT and SIGTERM.
sigset_t StopSignals();

// Where stop signals are waited for. While it lives they are blocked on the thread that made it and on those started
// from there, so that they come only here.
class StopSignalWaiter {
public:
    enum class Reason : unsigned char { Signal, Woken };

    // Throws std::system_error when the system has no descriptors to give.
    StopSignalWaiter();
    ~StopSignalWaiter();
    StopSignalWaiter(const StopSignalWaiter&) = delete;
    StopSignalWaiter& operator=(const StopSignalWaiter&) = delete;

    // Sleeps until a stop signal has come or Wake() was called, and takes it. One thread.
    Reason Wait();
    // Any thread.
    void Wake();

private:
    Descriptor signals_;
    Descriptor wakes_;
    sigset_t maskBefore_;
};

}  // namespace Platform
