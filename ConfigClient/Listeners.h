// What turns the events of the Configuration service into changes of the tables and calls of the change listener.
//
// Events come one at a time, on the library's thread: they never overlap.
#pragma once

#include "ConfigClient/HeapObject.h"
#include "ServiceProcess/MTReferencedTypeBase.h"
#include "VX/VX.h"

namespace VXDBServer {

// The event of one table's change, and its reply, which stays empty.
struct WUpdateEvent {
    explicit WUpdateEvent(VX::ParamListHolder parameters) : list(std::move(parameters)) {}
    VX::ParamListHolder list;
};
struct WUpdateEventOut {
    explicit WUpdateEventOut(VX::ParamListHolder parameters) : list(std::move(parameters)) {}
    VX::ParamListHolder list;
};

}  // namespace VXDBServer

namespace VXTPL {

// A handler of the events of one slot.
class SlotHandlerImpl : public MTObjects::MTReferencedTypeBase, public ConfigConnection::HeapObject {
public:
    // The handles are the caller's. 0, or -1 for an event that has nothing in it.
    virtual i32 Invoke(HVXPARAMLIST request, HVXPARAMLIST reply, void* context) = 0;

protected:
    bool TestValid() const override { return true; }
};

// What a slot's handler does with an event, in the event's own types.
template <typename In, typename Out>
class RealHandler {
public:
    using Event = In;
    using Reply = Out;
    virtual ~RealHandler() = default;
    virtual i32 OnEvent(const In& event, Out& reply) = 0;
};

template <typename T>
class ConcreteHandler final : public SlotHandlerImpl, public T {
public:
    i32 Invoke(HVXPARAMLIST request, HVXPARAMLIST reply, void*) override {
        const typename T::Event event(VX::ParamListHolder::FromHandle(request));
        typename T::Reply answer(VX::ParamListHolder::FromHandle(reply));
        return this->OnEvent(event, answer);
    }
};

}  // namespace VXTPL

namespace ConfigConnection {

inline constexpr u32 kUpdateSlot = 0x80000001u;
inline constexpr u32 kBatchSlot = 0x80000002u;

// "UPDOf" and a table: rows of that table have changed.
class UpdateListener : public VXTPL::RealHandler<VXDBServer::WUpdateEvent, VXDBServer::WUpdateEventOut> {
public:
    i32 OnEvent(const VXDBServer::WUpdateEvent& event, VXDBServer::WUpdateEventOut& reply) override;
};

// "BATCHUPDATE": a transaction over any number of tables. All its rows are in place before the listener hears of one.
class BatchListener : public VXTPL::RealHandler<VX::ParamListHolder, VX::ParamListHolder> {
public:
    i32 OnEvent(const VX::ParamListHolder& event, VX::ParamListHolder& reply) override;
};

}  // namespace ConfigConnection
