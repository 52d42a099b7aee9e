// The program at the other end of the connection, and the numbered calls to it.
#pragma once

#include <atomic>
#include <string>

#include "ConfigClient/HeapObject.h"
#include "ServiceProcess/MTReferencedTypeBase.h"
#include "VX/ParamList.h"

namespace VX {

// Carries an application's name, by which the library's calls are addressed.
class VXApplicationHolder {
public:
    explicit VXApplicationHolder(const char* name) : name_(name) {}
    virtual ~VXApplicationHolder() = default;

protected:
    const std::string name_;
};

}  // namespace VX

namespace VXTPL {

// The link to the connected application. Valid while it is connected. Any thread.
class VXApplicationImpl final : public MTObjects::MTReferencedTypeBase,
                                public VX::VXApplicationHolder,
                                public ConfigConnection::HeapObject {
public:
    explicit VXApplicationImpl(const char* name);

    bool IsConnected() const noexcept { return connected_.load(std::memory_order_acquire); }
    // The name, empty from the end of the connection on. The text lives as long as this object.
    const char* Name() const noexcept { return IsConnected() ? name_.c_str() : ""; }
    // Ends the connection. Whoever ends it first closes it in the library; the rest does nothing.
    void Disconnect();

    // An empty holder when not connected, or when the application is gone. Blocks for the reply, 30 seconds at most.
    VX::ParamListHolder Call(u32 number, const VX::ParamListHolder& request);
    // Whether a call was not answered. The library may tell of the loss only later.
    bool HasMissedReply() const noexcept { return missedReply_.load(std::memory_order_relaxed); }

protected:
    bool TestValid() const override { return IsConnected(); }

private:
    std::atomic<bool> connected_;
    std::atomic<bool> missedReply_{false};
};

// The calls that the Configuration service answers.
namespace CallNumber {
inline constexpr u32 Row = 6;
inline constexpr u32 Rows = 7;
inline constexpr u32 Search = 8;
inline constexpr u32 TableIds = 9;
}  // namespace CallNumber

// The same for a holder that may be null.
VX::ParamListHolder CallApplication(const MTObjects::THolder<VXApplicationImpl>& application, u32 number,
                                    const VX::ParamListHolder& request);

}  // namespace VXTPL
