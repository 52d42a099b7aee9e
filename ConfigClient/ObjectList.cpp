#include "ConfigClient/ObjectList.h"

#include <cstddef>

#include "ConfigClient/IdList.h"
#include "ConfigClient/TableNames.h"
#include "Platform/Path.h"

namespace ConfigConnection {

using MTObjects::THolder;
using VX::ParamListHolder;
using Guard = Platform::LockGuard<Platform::RecursiveMutex>;

namespace {

bool HasParams(const ParamListHolder& row) {
    return VXGetParamCount(row.Get()) != 0;
}

std::string CutName(const char* name) {
    return std::string(name != nullptr ? name : "").substr(0, kMaxNameLength);
}

}  // namespace

TObjectListImpl::TObjectListImpl(const THolder<VXTPL::VXApplicationImpl>& connection, const char* name)
    : name_(CutName(name)), lowerName_(Platform::LowerAscii(name_)), connection_(connection) {
    const ParamListHolder reply = VXTPL::CallApplication(connection_, VXTPL::CallNumber::TableIds, Request());
    for (const i32 id : ReadIds(reply, Keys::ids)) ids_.insert(id);
}

TObjectListImpl::~TObjectListImpl() = default;

ParamListHolder TObjectListImpl::Request() const {
    ParamListHolder request;
    request.NewList();
    VXSetStringValue(request.Get(), Keys::OC, name_.c_str());
    return request;
}

// The row as the service sent it; one that has parameters is kept.
ParamListHolder TObjectListImpl::FetchRow(i32 id) {
    const ParamListHolder request = Request();
    VXSetInt32Value(request.Get(), Keys::ID, id);
    const ParamListHolder reply = VXTPL::CallApplication(connection_, VXTPL::CallNumber::Row, request);
    ParamListHolder row = reply.GetHandle(Keys::OD);
    if (HasParams(row)) AddRow(id, row);
    return row;
}

std::vector<ParamListHolder> TObjectListImpl::FetchRows(const i32* ids, u32 count) const {
    std::vector<ParamListHolder> rows;
    const ParamListHolder request = Request();
    VXSetBinaryValue(request.Get(), Keys::ids, ids, count * 4);
    const ParamListHolder reply = VXTPL::CallApplication(connection_, VXTPL::CallNumber::Rows, request);
    const VXParamRecord record = VXParamInfo(reply.Get(), Keys::OD);
    if (record == nullptr || VXRecordType(record) != (VXTypeArray | VXTypeList)) return rows;
    const u8* payload = VXRecordPayload(record);
    if (static_cast<u32>(VXReadInt32(payload)) != count) return rows;
    rows.reserve(count);
    for (u32 index = 0; index < count; ++index) {
        const i32 listId = VXReadInt32(payload + 4 + std::size_t{index} * 4);
        rows.push_back(ParamListHolder::FromHandle(VXGetHandleById(reply.Get(), listId)));
    }
    return rows;
}

ParamListHolder TObjectListImpl::GetRow(i32 id) {
    if (id == 0) return {};
    const Guard guard(lock_);
    const auto found = rows_.find(id);
    return found != rows_.end() ? found->second : FetchRow(id);
}

ParamListHolder TObjectListImpl::FindRow(const char* field, const char_pointer& value, i32 n) {
    const Guard guard(lock_);
    const auto index = indexes_.find(field);
    if (index != indexes_.end() && index->second->Count() == static_cast<i64>(ids_.size())) {
        const auto found = rows_.find(index->second->FindOne(value, n));
        return found != rows_.end() ? found->second : ParamListHolder();
    }
    ParamListHolder request;
    request.NewList();
    VXSetStringValue(request.Get(), Keys::TN, lowerName_.c_str());
    VXSetStringValue(request.Get(), Keys::FF, field);
    VXSetStringValue(request.Get(), Keys::FS, value.text);
    const std::vector<i32> ids =
        ReadIds(VXTPL::CallApplication(connection_, VXTPL::CallNumber::Search, request), Keys::ids);
    if (n < 0 || static_cast<std::size_t>(n) >= ids.size() || ids[static_cast<std::size_t>(n)] == 0) return {};
    return GetRow(ids[static_cast<std::size_t>(n)]);
}

void TObjectListImpl::GetIds(std::vector<i32>& ids) const {
    const Guard guard(lock_);
    ids.assign(ids_.begin(), ids_.end());
}

void TObjectListImpl::LoadRows(const std::vector<i32>& ids) {
    if (ids.empty()) return;
    const Guard guard(lock_);
    const std::vector<ParamListHolder> rows = FetchRows(ids.data(), static_cast<u32>(ids.size()));
    for (std::size_t index = 0; index < rows.size(); ++index) {
        if (ids[index] == 0 || !HasParams(rows[index])) continue;
        ParamListHolder previous;
        SetRow(previous, ids[index], rows[index]);
    }
}

void TObjectListImpl::SetRow(ParamListHolder& previous, i32 id, const ParamListHolder& row) {
    const Guard guard(lock_);
    const auto [entry, isNew] = rows_.try_emplace(id, row);
    if (isNew) {
        ids_.insert(id);
    } else {
        RemoveFromIndexes(id);  // while the old row, into which the keys point, is in its place
        previous = entry->second;
        entry->second = row;
    }
    AddToIndexes(id);
}

void TObjectListImpl::AddRow(i32 id, const ParamListHolder& row) {
    const Guard guard(lock_);
    const auto [entry, isNew] = rows_.try_emplace(id, row);
    if (!isNew) rowsOfOrphans_.push_back(entry->second);
    ids_.insert(id);
    AddToIndexes(id);
}

void TObjectListImpl::RemoveRow(ParamListHolder& removed, i32 id) {
    const Guard guard(lock_);
    ids_.erase(id);
    const auto entry = rows_.find(id);
    if (entry == rows_.end()) {
        removed = {};
        return;
    }
    RemoveFromIndexes(id);
    removed = entry->second;
    rows_.erase(entry);
}

void TObjectListImpl::ApplyDeletedRows(const i32* ids, i32 count, PendingChanges& pending) {
    const Guard guard(lock_);
    for (i32 index = 0; index < count; ++index) {
        if (ids[index] == 0) continue;
        ParamListHolder removed;
        RemoveRow(removed, ids[index]);
        pending.push_back({name_, ids[index], Kinds::Deleted, {}, removed});
    }
}

void TObjectListImpl::ApplyUpdatedRows(const i32* ids, i32 count, PendingChanges& pending) {
    if (count < 1) return;
    const Guard guard(lock_);
    const std::vector<ParamListHolder> rows = FetchRows(ids, static_cast<u32>(count));
    for (std::size_t index = 0; index < rows.size(); ++index) {
        if (ids[index] == 0 || !HasParams(rows[index])) continue;
        ParamListHolder previous;
        SetRow(previous, ids[index], rows[index]);
        pending.push_back({name_, ids[index], Kinds::Updated, rows[index], previous});
    }
}

void TObjectListImpl::AddFieldIndex(const char* field, bool text) {
    const Guard guard(lock_);
    Enter(text ? THolder<IndexImpl>(new ConcreteIndex<char_pointer>(field))
               : THolder<IndexImpl>(new ConcreteIndex<i32>(field)));
}

void TObjectListImpl::AddCombinedIndex(const char* firstField, const char* secondField) {
    const Guard guard(lock_);
    const std::string name = std::string(firstField) + "_" + secondField;
    Enter(THolder<IndexImpl>(new ConcreteIndex<combined_key>(name.c_str(), firstField, secondField)));
}

void TObjectListImpl::Enter(THolder<IndexImpl> index) {
    indexes_.try_emplace(index->Name(), index);
}

namespace {

// Calls `change` with the key of the row in the form that its index takes, unless the row has no key for it.
template <typename Change>
void WithKey(IndexImpl& index, HVXPARAMLIST row, Change change) {
    if (!index.Simple()) {
        const combined_key key = index.MakeKey(row);
        if (key.text != nullptr) change(key);
        return;
    }
    const VXParamRecord record = VXParamInfo(row, index.Name());
    if (record == nullptr) return;
    const u8* payload = VXRecordPayload(record);
    if (VXRecordType(record) == VXTypeInt32) change(VXReadInt32(payload));
    if (VXRecordType(record) == VXTypeString) change(char_pointer(reinterpret_cast<const char*>(payload)));
}

}  // namespace

void TObjectListImpl::AddToIndexes(i32 id) {
    const auto row = rows_.find(id);
    if (row == rows_.end()) return;
    for (const auto& entry : indexes_) {
        IndexImpl& index = *entry.second;
        WithKey(index, row->second.Get(), [&](const auto& key) { index.Add(key, id); });
    }
}

void TObjectListImpl::RemoveFromIndexes(i32 id) {
    const auto row = rows_.find(id);
    if (row == rows_.end()) return;
    for (const auto& entry : indexes_) {
        IndexImpl& index = *entry.second;
        WithKey(index, row->second.Get(), [&](const auto& key) { index.Remove(key, id); });
    }
}

}  // namespace ConfigConnection
