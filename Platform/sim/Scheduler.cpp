#include "Platform/sim/Scheduler.h"

#include <cxxabi.h>

#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Platform::Sim {

namespace {

constinit Scheduler* activeScheduler = nullptr;
constinit Fiber* currentFiber = nullptr;

#if defined(ORV_SIM_ASAN) || defined(ORV_SIM_TSAN)
constexpr u64 kStackBytes = 1024 * 1024;
#else
constexpr u64 kStackBytes = 256 * 1024;
#endif
constexpr u64 kTracePrime = 1'099'511'628'211u;
// So many readings of a clock that stands, by one thread without a scheduling point, are taken for a waiting loop.
constexpr u32 kClockReadsPerYield = 10'000;

// Stands for the thread itself when there is no run. Never destroyed, for static objects are used until the end.
Fiber& ThreadFiber() noexcept {
    static Fiber& fiber = *new Fiber;
    return fiber;
}

// What abandoned threads leave behind: it stays reachable, as their stacks stay.
std::vector<std::shared_ptr<Fiber>>& AbandonedFibers() {
    static auto& fibers = *new std::vector<std::shared_ptr<Fiber>>;
    return fibers;
}

}  // namespace

Scheduler::Scheduler(u64 seed, const Options& options, SimClock& clock)
    : options_(options), clock_(clock), engine_(seed) {}

Scheduler::~Scheduler() = default;

void Scheduler::Run(std::function<void()> main) {
    if (activeScheduler != nullptr) throw std::logic_error("a simulation is running already");
    failure_.clear();
    exception_ = nullptr;
    mainEnded_ = false;
    graceEnd_ = kNever;
    steps_ = 0;
    threadExceptions_ = reinterpret_cast<ExceptionState*>(abi::__cxa_get_globals());
    outside_.context.PrepareForThread();
    Make("main", [this, body = std::move(main)] {
        try {
            body();
        } catch (...) {
            exception_ = std::current_exception();
        }
        mainEnded_ = true;
        graceEnd_ = clock_.SteadyNanoseconds() + options_.graceMilliseconds * kNanosecondsPerMillisecond;
    });
    activeScheduler = this;
    running_ = true;
    currentFiber = &outside_;
    ChangeTo(PickNext(), false);
    running_ = false;
    activeScheduler = nullptr;
    currentFiber = nullptr;
    CollectEnded();
    std::string failure;
    if (!failure_.empty()) failure = failure_ + "\n" + Describe();
    Abandon();
    if (exception_) std::rethrow_exception(std::exchange(exception_, nullptr));
    if (!failure.empty()) throw std::runtime_error(failure);
}

std::shared_ptr<Fiber> Scheduler::Make(const char* name, std::function<void()> body) {
    CollectEnded();
    constexpr size_t kNameLength = 15;
    auto fiber = std::make_shared<Fiber>();
    if (freeStacks_.empty()) {
        fiber->stack = FiberStack(options_.stackBytes != 0 ? options_.stackBytes : kStackBytes);
    } else {
        fiber->stack = std::move(freeStacks_.back());
        freeStacks_.pop_back();
        fiber->stack.Recycle();
    }
    fiber->context.Prepare(fiber->stack, &Scheduler::Entry);
    fiber->id = nextId_++;
    fiber->name = std::string(name != nullptr ? name : "").substr(0, kNameLength);
    fiber->body = std::move(body);
    alive_.push_back(fiber);
    timers_.Reserve(alive_.size());
    ++started_;
    MakeReady(*fiber);
    return fiber;
}

std::shared_ptr<Fiber> Scheduler::Start(const char* name, std::function<void()> body) {
    if (startFailures_ != 0) {
        if (startsBeforeFailure_ == 0) {
            --startFailures_;
            throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again), "thread start");
        }
        --startsBeforeFailure_;
    }
    auto fiber = Make(name, std::move(body));
    Yield();
    return fiber;
}

// The bottom of each simulated thread. An exception that comes here ends the process.
void Scheduler::Entry() noexcept {
    FiberContext::Arrived();
    Fiber& self = *currentFiber;
    self.body();
    self.body = nullptr;
    activeScheduler->End();
}

void Scheduler::End() noexcept {
    Fiber& self = *currentFiber;
    if (self.locksHeld != 0) Fail("thread \"" + self.name + "\" has ended with a mutex held");
    self.state = Fiber::State::Ended;
    WakeAll(self.joiners);
    for (auto at = alive_.begin(); at != alive_.end(); ++at) {
        if (at->get() != &self) continue;
        ended_.push_back(std::move(*at));
        alive_.erase(at);
        break;
    }
    ChangeTo(PickNext(), true);
    std::abort();  // nobody comes back to an ended thread
}

void Scheduler::CollectEnded() {
    for (auto& fiber : ended_) freeStacks_.push_back(std::move(fiber->stack));
    ended_.clear();
}

void Scheduler::Abandon() noexcept {
    for (auto& fiber : alive_) {
        if (fiber->queue != nullptr) fiber->queue->Remove(*fiber);
        fiber->state = Fiber::State::Abandoned;
        fiber->timer = Fiber::NoTimer;
        fiber->stack.Abandon();
        AbandonedFibers().push_back(std::move(fiber));
    }
    alive_.clear();
    timers_.Clear();
    ready_ = {};
    readyCount_ = 0;
}

void Scheduler::Join(Fiber& fiber) {
    Yield();
    while (fiber.state != Fiber::State::Ended) Block(&fiber.joiners, kNever, {"the end of", fiber.id});
}

void Scheduler::Yield(u64 steps) {
    CountSteps(steps);
    if (ready_.Empty() && timers_.NextTime() > clock_.SteadyNanoseconds()) return;
    MakeReady(*currentFiber);
    Leave();
}

bool Scheduler::Block(FiberQueue* queue, u64 end, WaitReason reason) {
    CountSteps(1);
    Fiber& self = *currentFiber;
    self.timedOut = false;
    self.state = Fiber::State::Blocked;
    self.reason = reason;
    if (queue != nullptr) queue->Append(self);
    if (end != kNever) timers_.Push(self, end);
    Leave();
    return !self.timedOut;
}

void Scheduler::Wake(Fiber& fiber) noexcept {
    if (fiber.queue != nullptr) fiber.queue->Remove(fiber);
    if (fiber.timer != Fiber::NoTimer) timers_.Remove(fiber);
    MakeReady(fiber);
}

void Scheduler::WakeAll(FiberQueue& queue) noexcept {
    while (!queue.Empty()) Wake(*queue.first);
}

void Scheduler::MakeReady(Fiber& fiber) noexcept {
    fiber.state = Fiber::State::Ready;
    ready_.Append(fiber);
    ++readyCount_;
}

void Scheduler::Leave() noexcept {
    Fiber& next = PickNext();
    if (&next == currentFiber) {
        next.state = Fiber::State::Running;
        return;
    }
    ChangeTo(next, false);
}

void Scheduler::ChangeTo(Fiber& next, bool forEver) noexcept {
    Fiber& from = *currentFiber;
    ++switches_;
    trace_ = (trace_ ^ (next.id + (clock_.SteadyNanoseconds() << 8))) * kTracePrime;
    clockReads_ = 0;
    from.exceptions = std::exchange(*threadExceptions_, next.exceptions);
    next.state = Fiber::State::Running;
    currentFiber = &next;
    FiberContext::Change(from.context, next.context, forEver);
}

Fiber& Scheduler::PickNext() noexcept {
    WakeDue();
    while (ready_.Empty()) {
        if (alive_.empty() || !AdvanceTime()) return outside_;
    }
    if (exception_ || !failure_.empty()) return outside_;
    Fiber* next = ready_.first;
    if (readyCount_ > 1 && Seeded()) {
        for (u64 skip = engine_() % readyCount_; skip > 0; --skip) next = next->next;
    }
    ready_.Remove(*next);
    --readyCount_;
    return *next;
}

// False when there is nothing to wait for any more, or the run has failed.
bool Scheduler::AdvanceTime() noexcept {
    if (exception_ || !failure_.empty()) return false;
    if (timers_.Empty()) {
        failure_ = "deadlock: no simulated thread can run and none waits for time";
        return false;
    }
    const u64 next = timers_.NextTime();
    if (next > graceEnd_) {
        failure_ = "simulated threads have outlived main";
        return false;
    }
    if (timeHook_) {
        try {
            timeHook_(next);
        } catch (...) {
            exception_ = std::current_exception();
            return false;
        }
    }
    if (const u64 now = clock_.SteadyNanoseconds(); next > now) clock_.Advance(next - now);
    steps_ = 0;
    WakeDue();
    return true;
}

void Scheduler::WakeDue() noexcept {
    const u64 now = clock_.SteadyNanoseconds();
    while (timers_.NextTime() <= now) {
        Fiber& fiber = timers_.Next();
        fiber.timedOut = true;
        Wake(fiber);
    }
}

void Scheduler::CountSteps(u64 steps) {
    steps_ += steps;
    if (steps_ > options_.stepsWithoutTime) Fail("an endless loop: time stands still");
}

void Scheduler::Fail(const std::string& what) {
    currentFiber->reason = {"the end of the run, which it has failed"};
    failure_ = what;
    ChangeTo(outside_, false);
    std::abort();  // nobody comes back to an abandoned thread
}

void Scheduler::ClockRead() noexcept {
    if (++clockReads_ < kClockReadsPerYield) return;
    clockReads_ = 0;
    Yield(kClockReadsPerYield);
}

void Scheduler::FailThreadStarts(u32 count, u32 after) noexcept {
    startFailures_ = count;
    startsBeforeFailure_ = after;
}

std::vector<std::string> Scheduler::ThreadNames() const {
    std::vector<std::string> names;
    for (const auto& fiber : alive_) names.push_back(fiber->name);
    return names;
}

std::string Scheduler::Describe() const {
    std::string text;
    for (const auto& fiber : alive_) text += DescribeOne(*fiber);
    return text;
}

std::string Scheduler::DescribeOne(const Fiber& fiber) const {
    const auto nameOf = [this](u64 id) {
        for (const auto& other : alive_) {
            if (other->id == id) return " \"" + other->name + "\"";
        }
        return std::string(", which has ended");
    };
    std::string text = "  thread " + std::to_string(fiber.id) + " \"" + fiber.name + "\" ";
    if (&fiber == currentFiber) return text + "runs\n";
    if (fiber.state == Fiber::State::Ready) return text + "is ready\n";
    text += std::string("waits for ") + fiber.reason.text;
    if (fiber.reason.thread != 0) {
        text += " thread " + std::to_string(fiber.reason.thread) + nameOf(fiber.reason.thread);
    }
    if (fiber.timer != Fiber::NoTimer) {
        const u64 rest = fiber.wakeTime - clock_.SteadyNanoseconds();
        text += ", " + std::to_string(rest / kNanosecondsPerMillisecond) + " ms at most";
    }
    return text + "\n";
}

Scheduler* ActiveScheduler() noexcept {
    return activeScheduler;
}

Fiber& CurrentFiber() noexcept {
    return currentFiber != nullptr ? *currentFiber : ThreadFiber();
}

void SchedulingPoint() {
    if (activeScheduler != nullptr) activeScheduler->Yield();
}

bool BlockOrThrow(FiberQueue& queue, u64 end, WaitReason reason) {
    if (activeScheduler != nullptr) return activeScheduler->Block(&queue, end, reason);
    if (end == kNever)
        throw std::logic_error(std::string("without a simulation nobody ends a wait for ") + reason.text);
    SleepUntil(end);
    return false;
}

void WakeAllIn(FiberQueue& queue) noexcept {
    if (activeScheduler != nullptr) activeScheduler->WakeAll(queue);
}

void SleepUntil(u64 end) {
    if (activeScheduler != nullptr) {
        activeScheduler->Block(nullptr, end, {"time to pass"});
        return;
    }
    const u64 now = Clock().SteadyNanoseconds();
    if (end > now) Clock().Advance(end - now);
}

}  // namespace Platform::Sim
