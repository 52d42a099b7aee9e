// What the operating system's service manager wants from a service: a blocking dispatcher, controls, states.
#pragma once

#include <functional>
#include <string>

#include "Platform/Types.h"

namespace Platform {

struct ServiceStatus {
    u32 serviceType;
    u32 currentState;
    u32 controlsAccepted;
    u32 exitCode;
    u32 serviceExitCode;
    u32 checkPoint;
    u32 waitHint;
};

using ServiceMain = void (*)(u32 argCount, char** args);
using ControlHandler = u32 (*)(u32 control, u32 eventType, void* eventData, void* context);
using StatusHandle = struct StatusHandleTag*;

// One service of the process; a table of them ends with two nulls.
struct ServiceTableEntry {
    const char* name;
    ServiceMain main;
};

// Runs the services of the table, each main on a thread of its own ("service"), and blocks until they have ended;
// controls arrive meanwhile on the calling thread. False at once when the process was not started as a service. Throws
// std::system_error when the system has no thread or descriptor to give for it. The table must outlive the call.
bool StartServiceDispatcher(const ServiceTableEntry* table);

// Called by a service's main. `context` goes to `handler` with each control, until the dispatcher has returned. Null
// when the process does not run as a service.
StatusHandle RegisterControlHandler(const char* name, ControlHandler handler, void* context);

// Tells the service manager the state; a null handle tells nobody. Any thread. May wait a moment for the manager.
void SetServiceStatus(StatusHandle handle, const ServiceStatus& status);

// One sentence about the process that the manager shows beside its state; the next state takes its place. Any thread.
// Nothing when the process does not run as a service.
void SetServiceText(const std::string& text);

// How long the manager lets the process be without a sign of life before it ends it; 0 when it does not watch.
u32 WatchdogMilliseconds();
// The sign of life. Any thread.
void PingWatchdog();

// To be called first thing in main, before any thread exists: from here on the stop signals of the system are kept for
// StartServiceDispatcher() or ForegroundStop, a broken pipe never ends the process, and it may open as many files as
// the system allows it.
void PrepareProcess();

// While it lives, each stop signal to a process in the foreground calls `stop`, on a thread of its own ("control"). One
// that came before is kept for it. The destructor waits for a call that runs.
class ForegroundStop {
public:
    // Throws std::system_error when the system has no thread or descriptor to give.
    explicit ForegroundStop(std::function<void()> stop);
    ~ForegroundStop();
    ForegroundStop(const ForegroundStop&) = delete;
    ForegroundStop& operator=(const ForegroundStop&) = delete;

private:
    struct Impl;
    Impl* impl_;
};

}  // namespace Platform
