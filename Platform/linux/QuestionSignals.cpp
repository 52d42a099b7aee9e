#include "Platform/linux/QuestionSignals.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

namespace Platform {
namespace {

// Of the process, since a signal may come on any thread. The descriptor is never closed: a handler may still use it.
std::atomic<std::uint64_t> noted{0};  // a bit for each
std::atomic<int> wakes{-1};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

extern "C" void NoteSignal(int number) {
    const int errorBefore = errno;
    noted.fetch_or(std::uint64_t{1} << number, std::memory_order_relaxed);
    constexpr std::uint64_t kOne = 1;
    (void)!::write(wakes.load(std::memory_order_relaxed), &kOne, sizeof kOne);
    errno = errorBefore;
}

void ForgetWakes() {
    std::uint64_t count;
    (void)!::read(wakes.load(std::memory_order_relaxed), &count, sizeof count);
}

}  // namespace

QuestionSignals::QuestionSignals() {
    if (wakes.load(std::memory_order_relaxed) < 0) {
        wakes.store(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC), std::memory_order_relaxed);
    }
    ForgetWakes();
    noted.store(0, std::memory_order_relaxed);

    struct sigaction note {};
    note.sa_handler = NoteSignal;
    note.sa_flags = SA_RESTART;
    ::sigfillset(&note.sa_mask);
    sigset_t let;
    ::sigemptyset(&let);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        ::sigaction(kSignals[i], nullptr, &actionsBefore_[i]);
        if (actionsBefore_[i].sa_handler == SIG_IGN) continue;  // as under nohup
        ::sigaction(kSignals[i], &note, nullptr);
        ::sigaddset(&let, kSignals[i]);
    }
    ::pthread_sigmask(SIG_UNBLOCK, &let, &maskBefore_);
}

QuestionSignals::~QuestionSignals() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) ::sigaction(kSignals[i], &actionsBefore_[i], nullptr);
    const std::uint64_t came = noted.load(std::memory_order_relaxed);
    for (const int number : kSignals) {
        if ((came >> number & 1) != 0) ::raise(number);
    }
    ::pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
}

bool QuestionSignals::WaitToRead(int fd) const {
    return WaitFor(fd, POLLIN);
}

bool QuestionSignals::WaitToWrite(int fd) const {
    return WaitFor(fd, POLLOUT);
}

bool QuestionSignals::WaitFor(int fd, short events) const {
    while (!AreNoted()) {
        pollfd either[] = {{fd, events, 0}, {wakes.load(std::memory_order_relaxed), POLLIN, 0}};
        if (::poll(either, 2, -1) < 0) {
            if (errno != EINTR) return false;
        } else if (either[1].revents != 0) {
            ForgetWakes();  // of the question before, unless a signal is noted: it is noted first
        } else if (either[0].revents != 0) {
            return true;
        }
    }
    return false;
}

bool QuestionSignals::AreNoted() const {
    return noted.load(std::memory_order_relaxed) != 0;
}

}  // namespace Platform
