#include "Platform/linux/StopSignals.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace Platform {

sigset_t StopSignals() {
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGTERM);
    return signals;
}

StopSignalWaiter::StopSignalWaiter() {
    const sigset_t signals = StopSignals();
    signals_ = Descriptor(::signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC));
    wakes_ = Descriptor(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    if (!signals_.IsOpen() || !wakes_.IsOpen()) throw std::system_error(errno, std::generic_category());
    ::pthread_sigmask(SIG_BLOCK, &signals, &maskBefore_);
}

StopSignalWaiter::~StopSignalWaiter() {
    ::pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
}

StopSignalWaiter::Reason StopSignalWaiter::Wait() {
    for (;;) {
        signalfd_siginfo signal;
        if (::read(signals_.Get(), &signal, sizeof signal) > 0) return Reason::Signal;
        std::uint64_t wakes;
        if (::read(wakes_.Get(), &wakes, sizeof wakes) > 0) return Reason::Woken;
        pollfd either[] = {{signals_.Get(), POLLIN, 0}, {wakes_.Get(), POLLIN, 0}};
        ::poll(either, 2, -1);
    }
}

void StopSignalWaiter::Wake() {
    constexpr std::uint64_t kOne = 1;
    (void)!::write(wakes_.Get(), &kOne, sizeof kOne);
}

}  // namespace Platform
