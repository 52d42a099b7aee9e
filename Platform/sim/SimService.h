// The service manager of a simulated world.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Platform/ServiceControl.h"
#include "Platform/Types.h"

namespace Platform::Sim {

class SimService {
public:
    SimService();
    ~SimService();
    SimService(const SimService&) = delete;
    SimService& operator=(const SimService&) = delete;

    // Whether the process was started as a service, which decides whether StartServiceDispatcher() fails at once.
    // False at first.
    void RunAsService(bool asService);
    // What SetServiceStatus() was given, in order.
    const std::vector<ServiceStatus>& Statuses() const;
    // What WatchdogMilliseconds() gives; 0 at first.
    void SetWatchdog(u32 milliseconds);
    // When PingWatchdog() was called, in milliseconds of the steady clock, and what SetServiceText() was given.
    const std::vector<u64>& Pings() const;
    const std::vector<std::string>& Texts() const;
    // Sends a control to the running service, waits until its handler has taken it on the dispatcher's thread, and
    // gives the handler's answer. NotDelivered when no dispatcher runs or no handler is registered. Simulated threads
    // only, and not the dispatcher's own.
    static constexpr u32 NotDelivered = 0xFFFFFFFF;
    u32 SendControl(u32 control);
    // A stop signal for the process; does not wait. To a running dispatcher it is control 1; with a ForegroundStop it
    // calls its function on the "control" thread; otherwise it is kept for whichever comes first.
    void SendStopSignal();
    // Whether PrepareProcess() was called.
    bool Prepared() const;

    struct Impl;
    Impl& Internals() noexcept { return *impl_; }

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace Platform::Sim
