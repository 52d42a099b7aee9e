#include "Platform/ServiceControl.h"

#include <deque>
#include <exception>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "Platform/Clock.h"
#include "Platform/Sync.h"
#include "Platform/Thread.h"
#include "Platform/sim/Scheduler.h"
#include "Platform/sim/World.h"

namespace Platform {

// What SetServiceStatus() and the dispatcher know a registered service by.
struct StatusHandleTag {
    ControlHandler handler;
    void* context;
};

namespace Sim {

// Takes the stop signals of a process in the foreground. One step runs at a time, so nothing here needs a lock but what
// is waited for.
struct StopReceiver {
    std::function<void()> stop;
    Mutex mutex;
    CondVar changed;
    u32 signals ORV_GUARDED_BY(mutex) = 0;
    bool ending ORV_GUARDED_BY(mutex) = false;
    Thread control;

    void Signal() {
        LockGuard<Mutex> guard(mutex);
        ++signals;
        changed.NotifyAll();
    }

    // Whether there is another signal; false at the end.
    bool NextSignal() {
        LockGuard<Mutex> guard(mutex);
        while (signals == 0 && !ending) changed.Wait(mutex);
        if (ending) return false;
        --signals;
        return true;
    }

    void End() {
        LockGuard<Mutex> guard(mutex);
        ending = true;
        changed.NotifyAll();
    }
};

namespace {
constexpr u32 kControlStop = 1;
}

// A control on its way; lives on the stack of SendControl() if `answer` is waited for.
struct Control {
    u32 code = 0;
    bool* done = nullptr;
    u32* answer = nullptr;
};

struct SimService::Impl {
    bool asService = false;
    bool prepared = false;
    bool stopKept = false;
    std::vector<ServiceStatus> statuses;
    u32 watchdog = 0;
    std::vector<u64> pings;
    std::vector<std::string> texts;
    StopReceiver* foreground = nullptr;
    std::unique_ptr<StatusHandleTag> registered;

    Mutex mutex;
    CondVar changed;
    bool dispatching ORV_GUARDED_BY(mutex) = false;
    i32 servicesRunning ORV_GUARDED_BY(mutex) = 0;
    std::deque<Control> controls ORV_GUARDED_BY(mutex);

    void Dispatch();
    void ChangeRunning(i32 by) {
        LockGuard<Mutex> guard(mutex);
        servicesRunning += by;
        changed.NotifyAll();
    }
};

// Hands the controls to the handler until the services have ended. A stop that comes before there is a handler waits.
void SimService::Impl::Dispatch() {
    LockGuard<Mutex> guard(mutex);
    for (;;) {
        while (servicesRunning != 0 && (controls.empty() || registered == nullptr)) changed.Wait(mutex);
        if (servicesRunning == 0) break;
        const Control control = controls.front();
        controls.pop_front();
        const StatusHandleTag handle = *registered;
        mutex.Unlock();
        const u32 answer = handle.handler(control.code, 0, nullptr, handle.context);
        mutex.Lock();
        if (control.done == nullptr) continue;
        *control.answer = answer;
        *control.done = true;
        changed.NotifyAll();
    }
    dispatching = false;
    for (const Control& control : controls) {
        if (control.done != nullptr) *control.done = true;
    }
    controls.clear();
    changed.NotifyAll();
}

SimService::SimService() : impl_(std::make_unique<Impl>()) {}
SimService::~SimService() = default;

void SimService::RunAsService(bool asService) {
    impl_->asService = asService;
}
const std::vector<ServiceStatus>& SimService::Statuses() const {
    return impl_->statuses;
}
void SimService::SetWatchdog(u32 milliseconds) {
    impl_->watchdog = milliseconds;
}
const std::vector<u64>& SimService::Pings() const {
    return impl_->pings;
}
const std::vector<std::string>& SimService::Texts() const {
    return impl_->texts;
}
bool SimService::Prepared() const {
    return impl_->prepared;
}

u32 SimService::SendControl(u32 code) {
    LockGuard<Mutex> guard(impl_->mutex);
    if (!impl_->dispatching || impl_->registered == nullptr) return NotDelivered;
    bool done = false;
    u32 answer = NotDelivered;
    impl_->controls.push_back({code, &done, &answer});
    impl_->changed.NotifyAll();
    while (!done) impl_->changed.Wait(impl_->mutex);
    return answer;
}

void SimService::SendStopSignal() {
    {
        LockGuard<Mutex> guard(impl_->mutex);
        if (impl_->dispatching) {
            impl_->controls.push_back({kControlStop});
            impl_->changed.NotifyAll();
            return;
        }
    }
    if (impl_->foreground == nullptr) {
        impl_->stopKept = true;
    } else if (ActiveScheduler() != nullptr) {
        impl_->foreground->Signal();
    } else {
        impl_->foreground->stop();
    }
}

}  // namespace Sim

struct ForegroundStop::Impl : Sim::StopReceiver {};

namespace {

Thread StartService(Sim::SimService::Impl& service, const ServiceTableEntry& entry) {
    service.ChangeRunning(+1);
    try {
        return Thread("service", [&service, entry] {
            std::string name = entry.name;
            char* args[] = {name.data(), nullptr};
            entry.main(1, args);
            service.ChangeRunning(-1);
        });
    } catch (...) {
        service.ChangeRunning(-1);
        throw;
    }
}

}  // namespace

bool StartServiceDispatcher(const ServiceTableEntry* table) {
    Sim::SimService::Impl& service = Sim::Service().Internals();
    if (!service.asService) return false;
    std::vector<Thread> threads;
    {
        LockGuard<Mutex> guard(service.mutex);
        service.dispatching = true;
        if (std::exchange(service.stopKept, false)) service.controls.push_back({Sim::kControlStop});
    }
    std::exception_ptr failure;
    for (; table->name != nullptr && !failure; ++table) {
        try {
            threads.push_back(StartService(service, *table));
        } catch (const std::system_error&) {
            failure = std::current_exception();
        }
    }
    service.Dispatch();
    for (Thread& thread : threads) thread.Join();
    service.registered.reset();
    if (failure) std::rethrow_exception(failure);
    return true;
}

StatusHandle RegisterControlHandler(const char*, ControlHandler handler, void* context) {
    Sim::SimService::Impl& service = Sim::Service().Internals();
    LockGuard<Mutex> guard(service.mutex);
    if (!service.dispatching) return nullptr;
    service.registered = std::make_unique<StatusHandleTag>(StatusHandleTag{handler, context});
    service.changed.NotifyAll();
    return service.registered.get();
}

void SetServiceStatus(StatusHandle handle, const ServiceStatus& status) {
    Sim::SchedulingPoint();
    if (handle != nullptr) Sim::Service().Internals().statuses.push_back(status);
}

void SetServiceText(const std::string& text) {
    Sim::Service().Internals().texts.push_back(text);
}

u32 WatchdogMilliseconds() {
    return Sim::Service().Internals().watchdog;
}

void PingWatchdog() {
    Sim::Service().Internals().pings.push_back(SteadyMilliseconds());
}

void PrepareProcess() {
    Sim::Service().Internals().prepared = true;
}

ForegroundStop::ForegroundStop(std::function<void()> stop) : impl_(new Impl) {
    Sim::SimService::Impl& service = Sim::Service().Internals();
    impl_->stop = std::move(stop);
    if (service.foreground != nullptr) {
        delete impl_;
        throw std::logic_error("a ForegroundStop is alive already");
    }
    if (Sim::ActiveScheduler() != nullptr) {
        try {
            impl_->control = Thread("control", [impl = impl_] {
                while (impl->NextSignal()) impl->stop();
            });
        } catch (...) {
            delete impl_;
            throw;
        }
    }
    service.foreground = impl_;
    if (std::exchange(service.stopKept, false)) Sim::Service().SendStopSignal();
}

ForegroundStop::~ForegroundStop() {
    Sim::Service().Internals().foreground = nullptr;
    if (impl_->control.Joinable()) {
        impl_->End();
        impl_->control.Join();
    }
    delete impl_;
}

}  // namespace Platform
