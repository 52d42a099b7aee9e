#include "Platform/ServiceControl.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Sync.h"
#include "Platform/Thread.h"
#include "Platform/linux/NotifySocket.h"
#include "Platform/linux/StopSignals.h"

namespace Platform {

// One registered service. Never destroyed, since the service may tell its state from anywhere.
struct StatusHandleTag {
    ControlHandler handler;
    void* context;
    // The rest is guarded by the mutex of the services.
    u32 state;
    u32 controlsAccepted;
    bool stopDelivered;
};

namespace {

constexpr u32 kStopControl = 1;
constexpr u32 kAcceptsStop = 1;
enum State : u32 { kStopped = 1, kStartPending = 2, kStopPending = 3, kRunning = 4 };

struct Services {
    Mutex mutex;
    // Of the dispatcher that runs; null while the process is no service.
    StopSignalWaiter* dispatcher ORV_GUARDED_BY(mutex) = nullptr;
    u32 mainsRunning ORV_GUARDED_BY(mutex) = 0;
    std::vector<std::unique_ptr<StatusHandleTag>> handles ORV_GUARDED_BY(mutex);
};

Services& TheServices() {
    static Services& services = *new Services;
    return services;
}

const char* MessageFor(u32 state) {
    switch (state) {
        case kStopped:
            return "STATUS=Stopped";
        case kStartPending:
            return "STATUS=Starting";
        case kStopPending:
            return "STOPPING=1\nSTATUS=Stopping";
        case kRunning:
            return "READY=1\nSTATUS=Running";
        default:
            return nullptr;
    }
}

void RunMain(const ServiceTableEntry& entry) {
    std::string name = entry.name;
    char* args[] = {name.data(), nullptr};
    entry.main(1, args);

    Services& services = TheServices();
    LockGuard<Mutex> guard(services.mutex);
    --services.mainsRunning;
    services.dispatcher->Wake();
}

// A service that accepts the stop control and has not had it yet; null when there is none.
StatusHandleTag* NextToStop(Services& services) {
    LockGuard<Mutex> guard(services.mutex);
    for (const auto& handle : services.handles) {
        const bool accepts = (handle->controlsAccepted & kAcceptsStop) != 0 && handle->state != kStopped;
        if (!accepts || handle->stopDelivered) continue;
        handle->stopDelivered = true;
        return handle.get();
    }
    return nullptr;
}

bool AnyMainRuns(Services& services) {
    LockGuard<Mutex> guard(services.mutex);
    return services.mainsRunning > 0;
}

// A stop that comes before a service accepts it is kept for it; one more changes nothing.
void DispatchControls(Services& services, StopSignalWaiter& waiter) {
    bool stopAsked = false;
    while (AnyMainRuns(services)) {
        if (waiter.Wait() == StopSignalWaiter::Reason::Signal) stopAsked = true;
        while (stopAsked) {
            const StatusHandleTag* handle = NextToStop(services);
            if (handle == nullptr) break;
            handle->handler(kStopControl, 0, nullptr, handle->context);
        }
    }
}

// Starts a thread for each entry. One that cannot be started counts as ended.
std::vector<Thread> StartMains(Services& services, const ServiceTableEntry* table) {
    std::vector<Thread> threads;
    for (const ServiceTableEntry* entry = table; entry->name != nullptr; ++entry) {
        {
            LockGuard<Mutex> guard(services.mutex);
            ++services.mainsRunning;
        }
        try {
            threads.emplace_back("service", [entry] { RunMain(*entry); });
        } catch (...) {
            LockGuard<Mutex> guard(services.mutex);
            --services.mainsRunning;
            // The first of a table is what the process is for, and there is nothing to wait for yet.
            if (threads.empty()) throw;
        }
    }
    return threads;
}

}  // namespace

bool StartServiceDispatcher(const ServiceTableEntry* table) {
    if (!HasNotifySocket() || table == nullptr || table->name == nullptr) return false;
    Services& services = TheServices();
    StopSignalWaiter waiter;
    {
        LockGuard<Mutex> guard(services.mutex);
        services.dispatcher = &waiter;
    }
    const auto leave = [&services] {
        LockGuard<Mutex> guard(services.mutex);
        services.dispatcher = nullptr;
        // Whoever registered with this dispatcher is no concern of a later one.
        for (const auto& handle : services.handles) handle->stopDelivered = true;
    };
    try {
        std::vector<Thread> mains = StartMains(services, table);
        DispatchControls(services, waiter);
        for (Thread& thread : mains) thread.Join();
    } catch (...) {
        leave();
        throw;
    }
    leave();
    return true;
}

StatusHandle RegisterControlHandler(const char*, ControlHandler handler, void* context) {
    Services& services = TheServices();
    LockGuard<Mutex> guard(services.mutex);
    if (services.dispatcher == nullptr) return nullptr;
    services.handles.push_back(std::make_unique<StatusHandleTag>(StatusHandleTag{handler, context, 0, 0, false}));
    return services.handles.back().get();
}

void SetServiceStatus(StatusHandle handle, const ServiceStatus& status) {
    if (handle == nullptr) return;
    const char* message = MessageFor(status.currentState);
    if (message == nullptr) return;
    Services& services = TheServices();
    LockGuard<Mutex> guard(services.mutex);
    // The last word of a service, whatever a control that was on its way says afterwards.
    if (handle->state == kStopped) return;
    handle->state = status.currentState;
    handle->controlsAccepted = status.controlsAccepted;
    // Under the mutex, so that the manager hears the states in their order.
    NotifyServiceManager(message);
    if (services.dispatcher != nullptr) services.dispatcher->Wake();
}

void SetServiceText(const std::string& text) {
    std::string line = "STATUS=" + text;
    for (char& c : line) {
        if (c == '\n') c = ' ';  // would begin another message
    }
    NotifyServiceManager(line);
}

u32 WatchdogMilliseconds() {
    const char* time = std::getenv("WATCHDOG_USEC");
    const char* process = std::getenv("WATCHDOG_PID");
    if (time == nullptr || !HasNotifySocket()) return 0;
    // Meant for another process that this one was started by.
    if (process != nullptr && std::strtoll(process, nullptr, 10) != ::getpid()) return 0;
    const long long microseconds = std::strtoll(time, nullptr, 10);
    if (microseconds <= 0) return 0;
    return static_cast<u32>(std::clamp<long long>(microseconds / 1000, 1, std::numeric_limits<i32>::max()));
}

void PingWatchdog() {
    NotifyServiceManager("WATCHDOG=1");
}

void PrepareProcess() {
    std::signal(SIGPIPE, SIG_IGN);
    // A shell's background jobs are started with SIGINT ignored, and an ignored signal is never seen.
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    const sigset_t signals = StopSignals();
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    rlimit descriptors{};
    if (::getrlimit(RLIMIT_NOFILE, &descriptors) == 0) {
        descriptors.rlim_cur = descriptors.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &descriptors);
    }
}

struct ForegroundStop::Impl {
    explicit Impl(std::function<void()> stopFunction)
        : stop(std::move(stopFunction)), thread("control", [this] {
              while (waiter.Wait() == StopSignalWaiter::Reason::Signal) stop();
          }) {}
    ~Impl() {
        waiter.Wake();
        thread.Join();
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    StopSignalWaiter waiter;
    std::function<void()> stop;
    Thread thread;
};

ForegroundStop::ForegroundStop(std::function<void()> stop) : impl_(new Impl(std::move(stop))) {}
ForegroundStop::~ForegroundStop() {
    delete impl_;
}

}  // namespace Platform
