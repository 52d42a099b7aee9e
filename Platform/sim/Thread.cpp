#include "Platform/Thread.h"

#include <exception>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Platform/sim/Scheduler.h"
#include "Platform/sim/SimFailures.h"

namespace Platform {

struct Thread::Impl {
    std::shared_ptr<Sim::Fiber> fiber;
};

Thread::Thread() noexcept = default;

Thread::Thread(const char* name, std::function<void()> body) {
    Sim::Scheduler* scheduler = Sim::ActiveScheduler();
    if (scheduler == nullptr) {
        throw std::system_error(std::make_error_code(std::errc::operation_not_permitted),
                                "no simulation runs that could have a thread");
    }
    if (Sim::Failures().Fails(Sim::Operation::StartThread, name)) {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again), "thread start");
    }
    impl_ = std::make_unique<Impl>();
    impl_->fiber = scheduler->Start(name, std::move(body));
}

Thread::Thread(Thread&&) noexcept = default;

Thread& Thread::operator=(Thread&& other) noexcept {
    if (Joinable()) std::terminate();
    impl_ = std::move(other.impl_);
    return *this;
}

Thread::~Thread() {
    // A thread that a failed run has left behind can be joined by nobody.
    if (Joinable() && impl_->fiber->state != Sim::Fiber::State::Abandoned) std::terminate();
}

bool Thread::Joinable() const noexcept {
    return impl_ != nullptr;
}

void Thread::Join() {
    if (!Joinable()) throw std::system_error(std::make_error_code(std::errc::invalid_argument), "join of no thread");
    Sim::Fiber& fiber = *impl_->fiber;
    if (&fiber == &Sim::CurrentFiber()) {
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur),
                                "a thread joins itself");
    }
    if (Sim::Scheduler* scheduler = Sim::ActiveScheduler()) {
        scheduler->Join(fiber);
    } else if (fiber.state != Sim::Fiber::State::Ended) {
        throw std::logic_error("a thread that a failed run has left behind never ends");
    }
    impl_.reset();
}

void SleepMilliseconds(u32 milliseconds) {
    Sim::SleepUntil(Sim::Clock().SteadyNanoseconds() + milliseconds * Sim::kNanosecondsPerMillisecond);
}

// Simulated sleeps end on time, so that a run has one schedule.
void AllowLateWaking(u32) noexcept {}

u64 CurrentThreadId() noexcept {
    return Sim::CurrentFiber().id;
}

}  // namespace Platform
