#include "AudioFeeder/RequestFlags.h"

#include "Platform/Clock.h"
#include "Platform/Sync.h"

namespace Orv {

namespace {

struct Requests {
    Platform::Mutex hostLock;
    Platform::CondVar hostWakeup;  // after each of the two has been set
    bool stopRequested ORV_GUARDED_BY(hostLock) = false;
    bool connectionLost ORV_GUARDED_BY(hostLock) = false;
};

// Never destroyed: a control may still come while the process ends.
Requests& TheRequests() {
    static Requests* const requests = new Requests;
    return *requests;
}

using HostGuard = Platform::LockGuard<Platform::Mutex>;

}  // namespace

void RaiseStopRequest() {
    Requests& requests = TheRequests();
    {
        HostGuard guard(requests.hostLock);
        requests.stopRequested = true;
    }
    requests.hostWakeup.NotifyAll();
}

void RaiseConnectionLost() {
    Requests& requests = TheRequests();
    {
        HostGuard guard(requests.hostLock);
        requests.connectionLost = true;
    }
    requests.hostWakeup.NotifyAll();
}

void ClearRequests() {
    Requests& requests = TheRequests();
    HostGuard guard(requests.hostLock);
    requests.stopRequested = false;
    requests.connectionLost = false;
}

bool WaitForStopRequest(u32 milliseconds) {
    Requests& requests = TheRequests();
    HostGuard guard(requests.hostLock);
    const u64 start = Platform::SteadyMilliseconds();
    while (!requests.stopRequested) {
        const u64 elapsed = Platform::SteadyMilliseconds() - start;
        if (elapsed >= milliseconds) return false;
        requests.hostWakeup.WaitFor(requests.hostLock, static_cast<u32>(milliseconds - elapsed));
    }
    return true;
}

bool WaitForAnyRequest() {
    Requests& requests = TheRequests();
    HostGuard guard(requests.hostLock);
    while (!requests.stopRequested && !requests.connectionLost) requests.hostWakeup.Wait(requests.hostLock);
    if (requests.stopRequested) return true;
    requests.connectionLost = false;
    return false;
}

}  // namespace Orv
