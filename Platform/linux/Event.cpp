#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <new>

#include "Platform/Sync.h"
#include "Platform/linux/MonotonicTime.h"

namespace Platform {

namespace {

// A word of the kernel's own waiting calls: a mutex with a condition variable costs a sleeper that times out, as a
// pump does ten times a second, a second system call.
using Word = std::atomic<u32>;
static_assert(sizeof(Word) == 4 && Word::is_always_lock_free && sizeof(Word) <= sizeof(Event));

Word& WordIn(unsigned char* storage) noexcept {
    return *std::launder(reinterpret_cast<Word*>(storage));
}

}  // namespace

Event::Event() noexcept {
    new (storage_) Word(0);
}
Event::~Event() = default;

void Event::Set() {
    Word& word = WordIn(storage_);
    word.store(1, std::memory_order_release);
    ::syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

void Event::Reset() {
    WordIn(storage_).store(0, std::memory_order_relaxed);
}

bool Event::WaitFor(u32 milliseconds) {
    Word& word = WordIn(storage_);
    const timespec end = MonotonicTimeAfter(milliseconds);
    while (word.load(std::memory_order_acquire) == 0) {
        if (::syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE, 0, &end, nullptr, FUTEX_BITSET_MATCH_ANY) != 0 &&
            errno == ETIMEDOUT) {
            return word.load(std::memory_order_acquire) != 0;
        }
    }
    return true;
}

}  // namespace Platform
