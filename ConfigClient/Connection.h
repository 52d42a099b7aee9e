// The process's one connection and all that hangs on it.
#pragma once

#include <functional>
#include <map>
#include <utility>

#include "ConfigClient/Application.h"
#include "ConfigClient/Listeners.h"
#include "ConfigClient/ObjectLists.h"
#include "Platform/Sync.h"

namespace ConfigConnection {

class Connection {
public:
    // Made at static initialisation.
    static Connection& Instance();
    // Clears the library's listeners and ends it, so that no event comes while the rest goes.
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // The record of the connection; empty before the first one and after a failed try.
    MTObjects::THolder<VXTPL::VXApplicationImpl> Application();
    void SetApplication(MTObjects::THolder<VXTPL::VXApplicationImpl> application);

    // Registers a handler for a slot and keeps it for the life of the process; dropped when the library refuses.
    void RegisterHandler(u32 slot, MTObjects::THolder<VXTPL::SlotHandlerImpl> handler);

    ObjectLists& Lists() noexcept { return lists_; }

    // The thread in which the last event came.
    void NoteEvent();
    // Of the transaction that is being applied. Used by the event's thread only.
    PendingChanges& Pending() noexcept { return pendingChanges_; }
    // The number of the last transaction applied. Any thread.
    void FinishTransaction(i64 number);
    i64 LastTransaction() const noexcept { return lastTransaction_.load(std::memory_order_acquire); }

private:
    // As many changes as a normal transaction has, so that its list allocates nothing.
    static constexpr u32 kPendingRoom = 10240;

    using SlotHandlers =
        std::map<u32, MTObjects::THolder<VXTPL::SlotHandlerImpl>, std::less<u32>,
                 VX::VXLFHallocator_<std::pair<const u32, MTObjects::THolder<VXTPL::SlotHandlerImpl>>>>;

    Connection();

    Platform::Mutex recordMutex_;
    MTObjects::THolder<VXTPL::VXApplicationImpl> record_ ORV_GUARDED_BY(recordMutex_);
    // The record before it: a thread of the library may still compare the name that GetServerName() gave it.
    MTObjects::THolder<VXTPL::VXApplicationImpl> previous_ ORV_GUARDED_BY(recordMutex_);

    Platform::Mutex handlersMutex_;
    SlotHandlers slotHandlers_ ORV_GUARDED_BY(handlersMutex_);

    ObjectLists lists_;
    PendingChanges pendingChanges_;

    std::atomic<u64> updateThread_{0};
    Platform::Mutex transactionMutex_;
    Platform::CondVar transactionChanged_;
    std::atomic<i64> lastTransaction_{0};
};

}  // namespace ConfigConnection
