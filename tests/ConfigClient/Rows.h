// Rows and events for tests.
#pragma once

#include <initializer_list>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "VX/ParamList.h"

using Field = std::pair<const char*, std::variant<i32, const char*>>;

inline VX::ParamListHolder MakeRow(std::initializer_list<Field> fields) {
    VX::ParamListHolder row;
    row.NewList();
    for (const auto& [key, value] : fields) {
        if (const auto* number = std::get_if<i32>(&value)) {
            VXSetInt32Value(row.Get(), key, *number);
        } else {
            VXSetStringValue(row.Get(), key, std::get<const char*>(value));
        }
    }
    return row;
}

// A text of a row; "-" for an empty holder.
inline std::string TextOf(const VX::ParamListHolder& row, const char* key) {
    if (!row) return "-";
    const char* text = VXGetStringValue(row.Get(), key);
    return text != nullptr ? text : "";
}

inline VX::ParamListHolder UpdateEvent(const char* table, const char* kind, const std::vector<i32>& ids) {
    VX::ParamListHolder event = MakeRow({{"OC", table}, {"TO", kind}});
    VXSetInt32Array(event.Get(), "IDA", ids.data(), static_cast<u32>(ids.size()));
    return event;
}

inline void SetIds(const VX::ParamListHolder& list, const char* key, const std::vector<i32>& ids) {
    VXSetBinaryValue(list.Get(), key, ids.data(), static_cast<u32>(ids.size() * 4));
}

// One table's part of a transaction.
struct TableChanges {
    const char* table;
    std::vector<i32> deleted;
    std::vector<i32> updated;
};

inline VX::ParamListHolder BatchEvent(i64 transaction, const std::vector<TableChanges>& tables) {
    VX::ParamListHolder event;
    event.NewList();
    VXSetInt64Value(event.Get(), "__TRN", transaction);
    for (const TableChanges& changes : tables) {
        const VX::ParamListHolder nested = MakeRow({});
        if (!changes.deleted.empty()) SetIds(nested, "DELETED", changes.deleted);
        if (!changes.updated.empty()) SetIds(nested, "UPDATED", changes.updated);
        VXSetHandleValue(event.Get(), changes.table, nested.Get());
    }
    return event;
}
