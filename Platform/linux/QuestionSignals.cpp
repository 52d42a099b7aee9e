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

}  // namespace

QuestionSignals::QuestionSignals() {
    if (wakes.load(std::memory_order_relaxed) < 0) {
        wakes.store(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC), std::memory_order_relaxed);
    }
    std::uint64_t old;
    (void)!::read(wakes.load(std::memory_order_relaxed), &old, sizeof old);
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

bool QuestionSignals::WaitFor(int fd) const {
    for (;;) {
        pollfd either[] = {{fd, POLLIN, 0}, {wakes.load(std::memory_order_relaxed), POLLIN, 0}};
        const int count = ::poll(either, 2, -1);
        if (AreNoted()) return false;
        if (count > 0) return true;
        if (errno != EINTR) return false;
    }
}

bool QuestionSignals::AreNoted() const {
    return noted.load(std::memory_order_relaxed) != 0;
}

}  // namespace Platform
