#include "ConfigClient/Listeners.h"

#include <cstddef>

#include "ConfigClient/ConfigConnection.h"
#include "ConfigClient/Connection.h"
#include "ConfigClient/IdList.h"
#include "ConfigClient/TableNames.h"

namespace ConfigConnection {

using MTObjects::THolder;
using VX::ParamListHolder;

namespace {

void Tell(const char* table, const char* kind, u32 id, ParamListHolder& newRow, ParamListHolder& oldRow) {
    const ChangeListenerFunction listener = ChangeListener.load(std::memory_order_acquire);
    if (listener != nullptr) listener(table, kind, id, &newRow, &oldRow);
}

const char* TextOrEmpty(const char* text) {
    return text != nullptr ? text : "";
}

void DeleteRows(TObjectListImpl& list, const char* table, const char* kind, const std::vector<i32>& ids) {
    for (const i32 id : ids) {
        ParamListHolder none;
        ParamListHolder removed;
        list.RemoveRow(removed, id);
        Tell(table, kind, static_cast<u32>(id), none, removed);
    }
}

// A row that comes back empty has gone meanwhile, and is passed over without a word.
void UpdateRows(TObjectListImpl& list, const char* table, const char* kind, const std::vector<i32>& ids) {
    ParamListHolder request;
    request.NewList();
    VXSetStringValue(request.Get(), Keys::OC, table);
    for (const i32 id : ids) {
        if (id == 0) continue;
        VXSetInt32Value(request.Get(), Keys::ID, id);
        const ParamListHolder reply =
            VXTPL::CallApplication(Connection::Instance().Application(), VXTPL::CallNumber::Row, request);
        ParamListHolder row = reply.GetHandle(Keys::OD);
        if (VXGetParamCount(row.Get()) == 0) continue;
        ParamListHolder previous;
        list.SetRow(previous, id, row);
        Tell(table, kind, static_cast<u32>(id), row, previous);
    }
}

std::vector<i32> ReadIdArray(const ParamListHolder& event, const char* key) {
    VXInt32Array array{};
    VXGetInt32Array(&array, event.Get(), key);
    std::vector<i32> ids;
    const u8* bytes = reinterpret_cast<const u8*>(array.values);
    for (u32 index = 0; index < array.count; ++index) ids.push_back(VXReadInt32(bytes + std::size_t{index} * 4));
    return ids;
}

// Ids of a table's change list; none unless the value is a binary one.
std::vector<i32> ReadChangedIds(HVXPARAMLIST changes, const char* key) {
    const VXParamRecord record = VXParamInfo(changes, key);
    if (record == nullptr || VXRecordType(record) != VXTypeBinary) return {};
    return ReadIds(VXRecordPayload(record));
}

void ApplyTable(const char* table, HVXPARAMLIST changes, PendingChanges& pending) {
    const THolder<TObjectListImpl> list = GetList(table);
    if (!list.IsValid()) return;
    const std::vector<i32> deleted = ReadChangedIds(changes, Keys::DELETED);
    const std::vector<i32> updated = ReadChangedIds(changes, Keys::UPDATED);
    list->ApplyDeletedRows(deleted.data(), static_cast<i32>(deleted.size()), pending);
    list->ApplyUpdatedRows(updated.data(), static_cast<i32>(updated.size()), pending);
}

// Empties the list of changes, also when an exception ends the event.
struct PendingScope {
    ~PendingScope() { changes.clear(); }
    PendingChanges& changes;
};

}  // namespace

i32 UpdateListener::OnEvent(const VXDBServer::WUpdateEvent& event, VXDBServer::WUpdateEventOut&) {
    if (!event.list) return -1;
    Connection::Instance().NoteEvent();
    const char* table = TextOrEmpty(VXGetStringValue(event.list.Get(), Keys::OC));
    const char* kind = TextOrEmpty(VXGetStringValue(event.list.Get(), Keys::TO));
    const THolder<TObjectListImpl> list = GetList(table);
    if (!list.IsValid()) return 0;
    const std::vector<i32> ids = ReadIdArray(event.list, Keys::IDA);
    if (kind[0] == 'D') {
        DeleteRows(*list, table, kind, ids);
    } else {
        UpdateRows(*list, table, kind, ids);
    }
    return 0;
}

i32 BatchListener::OnEvent(const ParamListHolder& event, ParamListHolder&) {
    Connection& connection = Connection::Instance();
    connection.NoteEvent();
    const i64 transaction = VXGetInt64Value(event.Get(), Keys::TRN);
    // The words of row changes mark the begin of a transaction, that its rows follow, and its end.
    const auto mark = [&](const char* kind) {
        ParamListHolder marked = event;
        ParamListHolder none;
        Tell(TRANSACTION, kind, static_cast<u32>(transaction), marked, none);
    };
    mark(Kinds::Inserted);
    const PendingScope pending{connection.Pending()};
    for (VXParamRecord record = VXGetFirstParam(event.Get()); record != nullptr;
         record = VXGetNextParam(event.Get(), record)) {
        if (VXRecordType(record) != VXTypeList) continue;
        const HVXPARAMLIST changes = VXGetHandleById(event.Get(), VXReadInt32(VXRecordPayload(record)));
        if (changes != nullptr) ApplyTable(VXRecordKey(record), changes, pending.changes);
    }
    connection.FinishTransaction(transaction);
    mark(Kinds::Updated);
    for (PendingChange& change : pending.changes) {
        Tell(change.table.c_str(), change.kind, static_cast<u32>(change.id), change.newRow, change.oldRow);
    }
    mark(Kinds::Deleted);
    return 0;
}

}  // namespace ConfigConnection
