#include "ConfigClient/Application.h"

#include "VX/VX.h"

namespace VXTPL {

VXApplicationImpl::VXApplicationImpl(const char* name) : VXApplicationHolder(name), connected_(!name_.empty()) {}

void VXApplicationImpl::Disconnect() {
    if (connected_.exchange(false, std::memory_order_acq_rel)) VXDisconnect(name_.c_str());
}

VX::ParamListHolder VXApplicationImpl::Call(u32 number, const VX::ParamListHolder& request) {
    if (!IsConnected()) return {};
    VX::ParamListHolder reply = VX::ParamListHolder::FromRefHandle(VXCall(name_.c_str(), number, request.Get()));
    if (!reply) missedReply_.store(true, std::memory_order_relaxed);
    return reply;
}

VX::ParamListHolder CallApplication(const MTObjects::THolder<VXApplicationImpl>& application, u32 number,
                                    const VX::ParamListHolder& request) {
    return application ? application->Call(number, request) : VX::ParamListHolder();
}

}  // namespace VXTPL
