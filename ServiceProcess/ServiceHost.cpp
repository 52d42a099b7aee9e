#include "ServiceProcess/ServiceHost.h"

namespace Orv {

using MTObjects::THolder;

namespace {

constexpr u32 kOwnProcess = 16;
constexpr u32 kAcceptStopAndShutdown = 5;

}  // namespace

ServiceHost::ServiceHost(const char* name) : name_(name) {
    ServiceHostRegistry::Instance().Insert(this);
}

ServiceHost::~ServiceHost() = default;

void ServiceHost::Stop() {}

void ServiceHost::ReportStatus(u32 state, u32 win32ExitCode, u32 checkPoint, u32 waitHint) {
    const Platform::StatusHandle handle = statusHandle_.load(std::memory_order_acquire);
    if (handle == nullptr) return;
    Platform::ServiceStatus status{};
    status.serviceType = kOwnProcess;
    status.currentState = state;
    status.controlsAccepted = state == ServiceState::StartPending ? 0 : kAcceptStopAndShutdown;
    status.exitCode = win32ExitCode;
    status.serviceExitCode = 0;
    status.checkPoint = checkPoint;
    status.waitHint = waitHint;
    Platform::SetServiceStatus(handle, status);
}

// Never destroyed: a host that is still registered at process end does not go among the process-wide objects that it
// might use.
ServiceHostRegistry& ServiceHostRegistry::Instance() {
    static ServiceHostRegistry* const instance = new ServiceHostRegistry;
    return *instance;
}

void ServiceHostRegistry::Insert(ServiceHost* host) {
    THolder<ServiceHost> holder(host);  // goes, with the replaced host in it, after the lock
    Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_);
    hosts_[host->Name()].Swap(holder);
}

THolder<ServiceHost> ServiceHostRegistry::Find(const std::string& name) {
    Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_);
    const auto found = hosts_.find(name);
    return found != hosts_.end() ? found->second : nullptr;
}

THolder<ServiceHost> ServiceHostRegistry::First() {
    Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_);
    return !hosts_.empty() ? hosts_.begin()->second : nullptr;
}

THolder<ServiceHost> ServiceHostRegistry::Only() {
    Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_);
    return hosts_.size() == 1 ? hosts_.begin()->second : nullptr;
}

std::vector<THolder<ServiceHost>> ServiceHostRegistry::All() {
    Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_);
    std::vector<THolder<ServiceHost>> all;
    for (const auto& [name, host] : hosts_) all.push_back(host);
    return all;
}

u64 ServiceHostRegistry::Count() {
    Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_);
    return hosts_.size();
}

void ServiceHostRegistry::Clear() {
    Platform::LockGuard<Platform::RecursiveMutex> guard(mutex_);
    hosts_.clear();
}

void RunServices() {
    const auto hosts = ServiceHostRegistry::Instance().All();  // keeps the names of the table alive
    std::vector<Platform::ServiceTableEntry> table;
    for (const auto& host : hosts) table.push_back({host->Name().c_str(), ServiceEntry});
    table.push_back({nullptr, nullptr});
    if (Platform::StartServiceDispatcher(table.data())) return;

    const THolder<ServiceHost> host = ServiceHostRegistry::Instance().First();
    if (!host.IsValid()) return;
    const Platform::ForegroundStop stop([host] { ControlEntry(ServiceControl::Stop, 0, nullptr, host.Get()); });
    host->Run(1, table.data());
}

void ClearServices() {
    ServiceHostRegistry::Instance().Clear();
}

void ServiceEntry(u32 argCount, char** args) {
    THolder<ServiceHost> host = ServiceHostRegistry::Instance().Find(args[0]);
    // The service manager's name for the service need not be ours.
    if (!host.IsValid()) host = ServiceHostRegistry::Instance().Only();
    if (!host) return;
    host->statusHandle_.store(Platform::RegisterControlHandler(args[0], ControlEntry, host.Get()),
                              std::memory_order_release);
    host->Run(argCount, args);
}

u32 ControlEntry(u32 control, u32 eventType, void* eventData, void* context) {
    const THolder<ServiceHost> host(static_cast<ServiceHost*>(context));
    const u32 state = host->OnControl(control, eventType, eventData);
    host->ReportStatus(state, 0, 0, 0);
    return 0;
}

}  // namespace Orv
