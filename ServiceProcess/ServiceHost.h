// The application object as the system's service control sees it, and the registry that owns it.
#pragma once

#include <atomic>
#include <map>
#include <string>
#include <vector>

#include "Platform/ServiceControl.h"
#include "Platform/Sync.h"
#include "ServiceProcess/MTReferencedTypeBase.h"

namespace Orv {

// Service states and controls as the service manager numbers them.
namespace ServiceState {
inline constexpr u32 Stopped = 1;
inline constexpr u32 StartPending = 2;
inline constexpr u32 StopPending = 3;
inline constexpr u32 Running = 4;
}  // namespace ServiceState
namespace ServiceControl {
inline constexpr u32 Stop = 1;
inline constexpr u32 Shutdown = 5;
}  // namespace ServiceControl

// The application. Run() has a thread to itself; a control arrives on another one.
class ServiceHost : public MTObjects::MTReferencedTypeBase {
public:
    // Registers the new object under `name`, in the place of one that is there under it. The registry owns it from here
    // on, so the constructor of a derived class must not throw.
    explicit ServiceHost(const char* name);
    ~ServiceHost() override;

    // Does nothing here. An application raises its stop request.
    virtual void Stop();
    // The whole life of the application: returns when it has stopped.
    virtual void Run(u32 argCount, void* args) = 0;
    // Takes a control and returns the state to report. Must return quickly: no more than a flag and a signal.
    virtual u32 OnControl(u32 control, u32 eventType, void* eventData) = 0;

    // Tells the service manager the state. Does nothing in a foreground run. Any thread.
    void ReportStatus(u32 state, u32 win32ExitCode, u32 checkPoint, u32 waitHint);

    // Whether a service manager runs this host; false in the foreground.
    bool IsManaged() const noexcept { return statusHandle_.load(std::memory_order_acquire) != nullptr; }

    const std::string& Name() const noexcept { return name_; }

protected:
    bool TestValid() const override { return true; }

private:
    friend void ServiceEntry(u32 argCount, char** args);

    const std::string name_;
    // Null until the service's main has registered, and for the whole of a foreground run.
    std::atomic<Platform::StatusHandle> statusHandle_{nullptr};
};

// Owns the hosts of the process, by name. Any thread; its lock is never held across a host's operations.
class ServiceHostRegistry {
public:
    // Lives as long as the process.
    static ServiceHostRegistry& Instance();

    void Insert(ServiceHost* host);
    // Each empty when there is none such.
    MTObjects::THolder<ServiceHost> Find(const std::string& name);
    MTObjects::THolder<ServiceHost> First();
    // The registered host when it is the only one.
    MTObjects::THolder<ServiceHost> Only();
    // All of them, in the order of their names.
    std::vector<MTObjects::THolder<ServiceHost>> All();
    u64 Count();
    void Clear();

private:
    using Hosts = std::map<std::string, MTObjects::THolder<ServiceHost>>;

    Platform::RecursiveMutex mutex_;
    Hosts hosts_ ORV_GUARDED_BY(mutex_);
};

// Runs the registered hosts as services and blocks until they have ended. When the process was not started as a
// service, runs the first host, if that one is valid, in the foreground, on the calling thread; a stop signal of the
// system then reaches it as control 1. An exception out of a foreground run passes through.
void RunServices();

// Empties the registry, which drops the last reference of the host.
void ClearServices();

// The service main: finds the host by args[0], or takes the only one, registers for its controls and runs it.
void ServiceEntry(u32 argCount, char** args);

// The control handler; `context` is the ServiceHost. 0, whatever the control was.
u32 ControlEntry(u32 control, u32 eventType, void* eventData, void* context);

}  // namespace Orv
