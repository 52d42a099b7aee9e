#include "ConfigClient/Connection.h"

#include <exception>

#include "Platform/Thread.h"
#include "ServiceProcess/Log.h"

namespace ConfigConnection {

using MTObjects::THolder;

namespace {

constexpr char kLogSource[] = "ConfigConnection";

// What the library calls for each event of a slot. An exception ends the event.
i32 Dispatch(HVXPARAMLIST request, HVXPARAMLIST reply, VXSlotRecord* record) {
    const THolder<VXTPL::SlotHandlerImpl> handler(static_cast<VXTPL::SlotHandlerImpl*>(record->user));
    try {
        return handler->Invoke(request, reply, record->context);
    } catch (const std::exception& exception) {
        ORV_LOG(Excep) << exception.what();
        return 0;
    }
}

const struct AtStart {
    AtStart() { Connection::Instance(); }
} atStart;

}  // namespace

Connection& Connection::Instance() {
    static Connection connection;
    return connection;
}

Connection::Connection() {
    pendingChanges_.reserve(kPendingRoom);
}

Connection::~Connection() {
    VXSetAuthFailedListener(nullptr);
    VXSetConnectListener(nullptr);
    VXSetDisconnectListener(nullptr);
    VXSetUnknownConnectListener(nullptr);
    VXShutdown(0);
}

THolder<VXTPL::VXApplicationImpl> Connection::Application() {
    const Platform::LockGuard<Platform::Mutex> guard(recordMutex_);
    return record_;
}

void Connection::SetApplication(THolder<VXTPL::VXApplicationImpl> application) {
    const Platform::LockGuard<Platform::Mutex> guard(recordMutex_);
    record_.Swap(application);
    if (application) previous_.Swap(application);  // what goes now, goes after the lock
}

void Connection::RegisterHandler(u32 slot, THolder<VXTPL::SlotHandlerImpl> handler) {
    if (VXRegisterSlot(slot, Dispatch, handler.Get()) == VXInvalidSlot) return;
    const Platform::LockGuard<Platform::Mutex> guard(handlersMutex_);
    slotHandlers_[slot].Swap(handler);
}

void Connection::NoteEvent() {
    updateThread_.store(Platform::CurrentThreadId(), std::memory_order_relaxed);
}

void Connection::FinishTransaction(i64 number) {
    const Platform::LockGuard<Platform::Mutex> guard(transactionMutex_);
    lastTransaction_.store(number, std::memory_order_release);
    transactionChanged_.NotifyAll();
}

}  // namespace ConfigConnection
