#include "AudioFeeder/PipeListener.h"

#include "ServiceProcess/Log.h"

namespace Orv {

namespace {

constexpr char kLogSource[] = "PipeManager";

using Platform::ConnectState;
using Platform::IPipeInstance;
using Platform::SystemError;

}  // namespace

const void* PipeIdAsPointer(Platform::PipeId id) {
    return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(id));
}

PipeListener::PipeListener(const std::string& pipeName, const std::string& logPrefix)
    : logPrefix_(logPrefix), endpoint_(Platform::CreatePipeEndpoint(pipeName)) {}

MTObjects::THolder<BufferTransportImpl> PipeListener::Service() {
    std::unique_ptr<IPipeInstance> connected = waiting_ != nullptr ? PollWaiting() : OpenNew();
    if (connected == nullptr) return nullptr;
    return new BufferTransportImpl(std::move(connected));
}

std::unique_ptr<IPipeInstance> PipeListener::PollWaiting() {
    SystemError error = 0;
    const ConnectState state = waiting_->PollConnect(error);
    if (state == ConnectState::Pending) return nullptr;
    std::unique_ptr<IPipeInstance> instance = TakeWaiting();
    if (state == ConnectState::Connected) return instance;
    ORV_LOG(Info) << logPrefix_ << "Connection failed on ID=" << PipeIdAsPointer(instance->Id());
    return nullptr;
}

std::unique_ptr<IPipeInstance> PipeListener::OpenNew() {
    SystemError error = 0;
    std::unique_ptr<IPipeInstance> instance = endpoint_->CreateInstance(error);
    lastError_ = error;
    if (instance == nullptr) {
        ORV_LOG(Error) << logPrefix_ << "Cannot create new listener for connection. error=" << static_cast<i32>(error);
        return nullptr;
    }
    const void* id = PipeIdAsPointer(instance->Id());
    ORV_LOG(Info) << logPrefix_ << "Wait for new connection. ID = " << id;
    switch (instance->PollConnect(error)) {
        case ConnectState::Connected:
            return instance;
        case ConnectState::Pending:
            waiting_ = std::move(instance);
            return nullptr;
        case ConnectState::Failed:
            break;
    }
    ORV_LOG(Info) << logPrefix_ << "ConnectNamedPipe failed (" << error << "). ID=" << id;
    return nullptr;
}

}  // namespace Orv
