#include "Platform/Thread.h"

#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <system_error>
#include <utility>

#include "Platform/linux/DetachedThread.h"
#include "Platform/linux/MonotonicTime.h"

namespace Platform {
namespace {

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ORV_BIG_FRAMES 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ORV_BIG_FRAMES 1
#endif

// Thousands of channels have a thread each, so the stack is modest. Its guard page is there all the same.
#ifdef ORV_BIG_FRAMES
constexpr std::size_t kStackBytes = 2 * 1024 * 1024;
#else
constexpr std::size_t kStackBytes = 256 * 1024;
#endif
constexpr std::size_t kNameBytes = 16;  // the kernel's own limit, closing zero included

struct Start {
    char name[kNameBytes] = {};
    std::function<void()> body;
};

// noexcept, so that an exception out of the body ends the process.
void* RunThread(void* argument) noexcept {
    const std::unique_ptr<Start> start(static_cast<Start*>(argument));
    ::pthread_setname_np(::pthread_self(), start->name);
    start->body();
    return nullptr;
}

class Attributes {
public:
    Attributes() {
        Check(::pthread_attr_init(&attributes_));
        Check(::pthread_attr_setstacksize(&attributes_, kStackBytes));
    }
    ~Attributes() { ::pthread_attr_destroy(&attributes_); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    void SetDetached() { Check(::pthread_attr_setdetachstate(&attributes_, PTHREAD_CREATE_DETACHED)); }
    const pthread_attr_t* Get() const { return &attributes_; }

    static void Check(int error) {
        if (error != 0) throw std::system_error(error, std::generic_category());
    }

private:
    pthread_attr_t attributes_;
};

pthread_t StartThread(const Attributes& attributes, const char* name, std::function<void()> body) {
    auto start = std::make_unique<Start>();
    std::strncpy(start->name, name, kNameBytes - 1);
    start->body = std::move(body);
    pthread_t handle;
    Attributes::Check(::pthread_create(&handle, attributes.Get(), RunThread, start.get()));
    (void)start.release();  // the thread's own now
    return handle;
}

}  // namespace

struct Thread::Impl {
    pthread_t handle;
};

Thread::Thread() noexcept = default;

Thread::Thread(const char* name, std::function<void()> body) : impl_(std::make_unique<Impl>()) {
    impl_->handle = StartThread(Attributes(), name, std::move(body));
}

Thread::Thread(Thread&&) noexcept = default;

Thread& Thread::operator=(Thread&& other) noexcept {
    if (impl_) std::terminate();
    impl_ = std::move(other.impl_);
    return *this;
}

Thread::~Thread() {
    if (impl_) std::terminate();
}

bool Thread::Joinable() const noexcept {
    return impl_ != nullptr;
}

void Thread::Join() {
    if (!impl_) throw std::system_error(std::make_error_code(std::errc::invalid_argument));
    if (::pthread_equal(impl_->handle, ::pthread_self()) != 0) {
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    }
    Attributes::Check(::pthread_join(impl_->handle, nullptr));
    impl_.reset();
}

void StartDetachedThread(const char* name, std::function<void()> body) {
    Attributes attributes;
    attributes.SetDetached();
    StartThread(attributes, name, std::move(body));
}

void SleepMilliseconds(u32 milliseconds) {
    const timespec end = MonotonicTimeAfter(milliseconds);
    while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
    }
}

void AllowLateWaking(u32 milliseconds) noexcept {
    ::prctl(PR_SET_TIMERSLACK, milliseconds * 1'000'000UL, 0, 0, 0);
}

// Not kept per thread: a child process would go on with its parent's number.
u64 CurrentThreadId() noexcept {
    return static_cast<u64>(::gettid());
}

}  // namespace Platform
