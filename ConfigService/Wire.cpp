#include "ConfigService/Wire.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "ConfigService/AdminProtocol.h"

namespace Orv {
namespace {

using VX::ParamListHolder;

constexpr std::array<const char*, 6> kActionNames = {"add", "set", "put", "remove", "drop", "rebuild"};

ParamListHolder NewList() {
    ParamListHolder list;
    list.NewList();
    return list;
}

void SetText(const ParamListHolder& list, const char* key, const std::string& text) {
    VXSetStringValue(list.Get(), key, text.c_str());
}

void SetValue(const ParamListHolder& list, const char* key, const Value& value) {
    if (const i32* number = std::get_if<i32>(&value)) VXSetInt32Value(list.Get(), key, *number);
    if (const std::string* text = std::get_if<std::string>(&value)) SetText(list, key, *text);
}

// False for a type that no column has.
bool GetValue(VXParamRecord record, Value& value) {
    switch (VXRecordType(record)) {
        case VXTypeString:
            value = std::string(reinterpret_cast<const char*>(VXRecordPayload(record)));
            return true;
        case VXTypeInt32:
            value = VXReadInt32(VXRecordPayload(record));
            return true;
        default:
            return false;
    }
}

Change ChangeFromList(i32 index, const ParamListHolder& list, std::vector<Finding>& errors) {
    Change change;
    change.table = GetText(list, "table");
    change.key = GetText(list, "key");
    change.id = VXGetInt32Value(list.Get(), "id");
    const auto refuse = [&](const char* field, const char* text) {
        errors.push_back({index, change.table, change.key, field, text, false});
    };
    const std::string action = GetText(list, "action");
    const auto known = std::find(kActionNames.begin(), kActionNames.end(), action);
    if (known == kActionNames.end()) {
        refuse("action", "is none of add, set, put, remove, drop and rebuild");
        return change;
    }
    change.action = static_cast<Action>(known - kActionNames.begin());
    const ParamListHolder values = list.GetHandle("values");
    for (VXParamRecord record = VXGetFirstParam(values.Get()); record != nullptr;
         record = VXGetNextParam(values.Get(), record)) {
        Value value;
        if (GetValue(record, value)) {
            change.values.emplace_back(VXRecordKey(record), std::move(value));
        } else {
            refuse(VXRecordKey(record), "is neither a text nor a 32-bit number");
        }
    }
    const ParamListHolder unset = list.GetHandle("unset");
    for (VXParamRecord record = VXGetFirstParam(unset.Get()); record != nullptr;
         record = VXGetNextParam(unset.Get(), record)) {
        change.values.emplace_back(VXRecordKey(record), Value());
    }
    return change;
}

ParamListHolder FindingToList(const Finding& finding) {
    ParamListHolder list = NewList();
    VXSetInt32Value(list.Get(), "change", finding.change);
    SetText(list, "table", finding.table);
    SetText(list, "key", finding.key);
    SetText(list, "field", finding.field);
    SetText(list, "text", finding.text);
    if (finding.notFound) VXSetInt32Value(list.Get(), "notfound", 1);
    return list;
}

void SetFindings(const ParamListHolder& list, const char* key, const std::vector<Finding>& findings) {
    std::vector<ParamListHolder> lists;
    for (u32 i = 0; i < findings.size() && i < MaxFindings; ++i) lists.push_back(FindingToList(findings[i]));
    SetLists(list, key, lists);
}

std::vector<Finding> GetFindings(const ParamListHolder& list, const char* key) {
    std::vector<Finding> findings;
    for (const ParamListHolder& entry : GetLists(list, key)) {
        findings.push_back({VXGetInt32Value(entry.Get(), "change"), GetText(entry, "table"), GetText(entry, "key"),
                            GetText(entry, "field"), GetText(entry, "text"),
                            VXGetInt32Value(entry.Get(), "notfound") != 0});
    }
    return findings;
}

const char* KindFromText(const std::string& text) {
    for (const char* kind : {"Inserted", "Deleted", "Rebuilt"}) {
        if (text == kind) return kind;
    }
    return "Updated";
}

}  // namespace

// --- rows ------------------------------------------------------------------------------------------------------------

ParamListHolder RowToList(const Table& table, const Row& row) {
    ParamListHolder list = NewList();
    VXSetInt32Value(list.Get(), table.idColumn, row.id);
    for (u32 i = 0; i < table.columns.size(); ++i) SetValue(list, table.columns[i].name, row.values[i]);
    return list;
}

Row RowFromList(const Table& table, const ParamListHolder& list) {
    Row row;
    row.id = VXGetInt32Value(list.Get(), table.idColumn);
    row.values.resize(table.columns.size());
    for (u32 i = 0; i < table.columns.size(); ++i) {
        const VXParamRecord record = VXParamInfo(list.Get(), table.columns[i].name);
        Value value;
        if (record != nullptr && GetValue(record, value)) row.values[i] = std::move(value);
    }
    return row;
}

// --- changes ---------------------------------------------------------------------------------------------------------

ParamListHolder ChangesToList(const std::vector<Change>& changes) {
    std::vector<ParamListHolder> lists;
    for (const Change& change : changes) {
        ParamListHolder list = NewList();
        SetText(list, "table", change.table);
        SetText(list, "action", kActionNames[static_cast<u32>(change.action)]);
        if (change.id != 0) {
            VXSetInt32Value(list.Get(), "id", change.id);
        } else {
            SetText(list, "key", change.key);
        }
        ParamListHolder values = NewList();
        ParamListHolder unset = NewList();
        for (const auto& [name, value] : change.values) {
            if (std::holds_alternative<std::monostate>(value)) {
                VXSetInt32Value(unset.Get(), name.c_str(), 1);
            } else {
                SetValue(values, name.c_str(), value);
            }
        }
        VXSetHandleValue(list.Get(), "values", values.Get());
        VXSetHandleValue(list.Get(), "unset", unset.Get());
        lists.push_back(std::move(list));
    }
    ParamListHolder request = NewList();
    SetLists(request, "changes", lists);
    return request;
}

std::vector<Change> ChangesFromList(const ParamListHolder& request, std::vector<Finding>& errors) {
    std::vector<Change> changes;
    for (const ParamListHolder& list : GetLists(request, "changes")) {
        changes.push_back(ChangeFromList(static_cast<i32>(changes.size()), list, errors));
    }
    return changes;
}

// --- results ---------------------------------------------------------------------------------------------------------

ParamListHolder ResultToList(const ApplyResult& result) {
    ParamListHolder reply = NewList();
    const bool onlyNotFound =
        !result.errors.empty() &&
        std::all_of(result.errors.begin(), result.errors.end(), [](const Finding& found) { return found.notFound; });
    const char* word = AdminProtocol::ResultOk;
    if (result.outcome == Outcome::Failed) word = AdminProtocol::ResultFailed;
    if (result.outcome == Outcome::Refused) {
        word = onlyNotFound ? AdminProtocol::ResultNotFound : AdminProtocol::ResultRefused;
    }
    SetText(reply, "result", word);
    VXSetInt64Value(reply.Get(), "transaction", result.transaction);
    std::vector<ParamListHolder> changed;
    for (const RowChange& change : result.changed) {
        const Table& table = Tables()[change.table];
        ParamListHolder list = NewList();
        SetText(list, "table", table.name);
        VXSetInt32Value(list.Get(), "id", change.id);
        SetText(list, "kind", change.kind);
        SetText(list, "key", change.key);
        SetText(list, "oldkey", change.oldKey);
        ParamListHolder columns = NewList();
        for (const std::string& column : change.columns) VXSetInt32Value(columns.Get(), column.c_str(), 1);
        for (const std::string& column : change.alike) VXSetInt32Value(columns.Get(), column.c_str(), 0);
        VXSetHandleValue(list.Get(), "columns", columns.Get());
        changed.push_back(std::move(list));
    }
    SetLists(reply, "changed", changed);
    SetFindings(reply, "errors", result.errors);
    SetFindings(reply, "warnings", result.warnings);
    return reply;
}

ApplyResult ResultFromList(const ParamListHolder& reply, std::string& resultWord) {
    resultWord = GetText(reply, "result");
    ApplyResult result;
    if (resultWord == AdminProtocol::ResultOk) {
        result.outcome = Outcome::Done;
    } else if (resultWord == AdminProtocol::ResultFailed) {
        result.outcome = Outcome::Failed;
    } else {
        result.outcome = Outcome::Refused;
    }
    result.transaction = VXGetInt64Value(reply.Get(), "transaction");
    for (const ParamListHolder& list : GetLists(reply, "changed")) {
        const Table* table = FindTable(GetText(list, "table"));
        if (table == nullptr) continue;
        RowChange change;
        change.table = table->index;
        change.id = VXGetInt32Value(list.Get(), "id");
        change.kind = KindFromText(GetText(list, "kind"));
        change.key = GetText(list, "key");
        change.oldKey = GetText(list, "oldkey");
        const ParamListHolder columns = list.GetHandle("columns");
        for (VXParamRecord record = VXGetFirstParam(columns.Get()); record != nullptr;
             record = VXGetNextParam(columns.Get(), record)) {
            const char* column = VXRecordKey(record);
            change.columns.emplace_back(column);
            if (VXGetInt32Value(columns.Get(), column) == 0) change.alike.emplace_back(column);
        }
        result.changed.push_back(std::move(change));
    }
    result.errors = GetFindings(reply, "errors");
    result.warnings = GetFindings(reply, "warnings");
    return result;
}

// --- helpers ---------------------------------------------------------------------------------------------------------

void SetIds(const ParamListHolder& list, const char* key, const std::vector<i32>& ids) {
    VXSetBinaryValue(list.Get(), key, ids.data(), static_cast<u32>(ids.size() * sizeof(i32)));
}

std::vector<i32> GetIds(const ParamListHolder& list, const char* key) {
    const u8* value = VXGetBinaryValue(list.Get(), key);
    if (value == nullptr) return {};
    std::vector<i32> ids(static_cast<u32>(VXReadInt32(value)) / sizeof(i32));
    for (u64 i = 0; i < ids.size(); ++i) ids[i] = VXReadInt32(value + sizeof(i32) * (i + 1));
    return ids;
}

void SetLists(const ParamListHolder& list, const char* key, const std::vector<ParamListHolder>& lists) {
    std::vector<HVXPARAMLIST> handles;
    handles.reserve(lists.size());
    for (const ParamListHolder& entry : lists) handles.push_back(entry.Get());
    VXSetHandleArray(list.Get(), key, handles.data(), static_cast<u32>(handles.size()));
}

std::vector<ParamListHolder> GetLists(const ParamListHolder& list, const char* key) {
    VXHandleArray array{};
    VXGetHandleArray(&array, list.Get(), key);
    std::vector<ParamListHolder> lists;
    lists.reserve(array.count);
    const u8* ids = reinterpret_cast<const u8*>(array.ids);
    for (u32 i = 0; i < array.count; ++i) {
        const i32 id = VXReadInt32(ids + sizeof(i32) * u64{i});
        lists.push_back(ParamListHolder::FromHandle(VXGetHandleById(list.Get(), id)));
    }
    return lists;
}

std::string GetText(const ParamListHolder& list, const char* key) {
    const char* text = VXGetStringValue(list.Get(), key);
    return text != nullptr ? text : "";
}

}  // namespace Orv
