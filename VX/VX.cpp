#include "VX/VX.h"

#include <cstring>

#include "VX/Runtime.h"

namespace {

VX::Runtime& Library() {
    return VX::Runtime::Instance();
}

std::string Text(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace

void VXSetConnector(VX::ILinkConnector* connector) {
    Library().SetConnector(connector);
}

u32 VXInitialize(const char* /*name*/, u64 value1, u64 value2) {
    return Library().Initialize(value1, value2);
}

void VXShutdown(u64 /*value*/) {
    Library().Shutdown();
}

void VXSetAuthFailedListener(VXFailureCallback listener) {
    Library().SetAuthFailedListener(listener);
}

void VXSetConnectListener(VXConnectCallback listener) {
    Library().SetConnectListener(listener);
}

void VXSetDisconnectListener(VXDisconnectCallback listener) {
    Library().SetDisconnectListener(listener);
}

void VXSetUnknownConnectListener(VXFailureCallback listener) {
    Library().SetUnknownConnectListener(listener);
}

u32 VXConnect(const char* host, u32 port, char* nameOut, u32 nameSize, const void* credentials, u32 credentialsSize) {
    std::string bytes;
    if (credentials != nullptr) bytes.assign(static_cast<const char*>(credentials), credentialsSize);
    std::string name;
    const u32 result = Library().Connect(Text(host), port, bytes, name);
    if (result == 0 && nameOut != nullptr && nameSize != 0) {
        name.resize(std::min<u64>(name.size(), nameSize - 1));
        std::memcpy(nameOut, name.c_str(), name.size() + 1);
    }
    return result;
}

void VXDisconnect(const char* application) {
    Library().Disconnect(Text(application));
}

u32 VXRegisterSlot(u32 slot, VXDispatcher dispatcher, void* user) {
    return Library().RegisterSlot(slot, dispatcher, user);
}

void VXConnectSignal(const char* application, const char* signal, u32 slot) {
    Library().ConnectSignal(Text(application), Text(signal), slot);
}

void VXDropOtherSignals(const char* application) {
    Library().DropOtherSignals(Text(application));
}

HVXPARAMLIST VXCall(const char* application, u32 number, HVXPARAMLIST request) {
    VX::ParamListHolder sent = VX::ParamListHolder::FromHandle(request);
    if (!sent) sent.NewList();
    return VXReferenceHandle(Library().Call(Text(application), number, sent).Get());
}
