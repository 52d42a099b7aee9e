#include "tests/sim/ConfigSide.h"

#include <cctype>
#include <map>

namespace OrvSim {

namespace {

std::string Upper(std::string text) {
    for (char& letter : text) letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    return text;
}

std::string TextOf(HVXPARAMLIST list, const char* key) {
    const char* text = VXGetStringValue(list, key);
    return text == nullptr ? std::string() : std::string(text);
}

void SetIds(HVXPARAMLIST list, const char* key, const std::vector<i32>& ids) {
    VXSetBinaryValue(list, key, ids.data(), static_cast<u32>(ids.size() * sizeof(i32)));
}

}  // namespace

Row ConfigSide::RowOf(const std::string& table, i32 id) const {
    const auto rows = tables_.find(table);
    if (rows == tables_.end()) return {};
    const auto row = rows->second.find(id);
    return row == rows->second.end() ? Row() : row->second;
}

void ConfigSide::Store(const Change& change) {
    if (change.row) {
        tables_[change.table][change.id] = *change.row;
    } else {
        tables_[change.table].erase(change.id);
    }
}

void ConfigSide::Commit(const Change& change) {
    const char* kind = !change.row ? "Deleted" : RowOf(change.table, change.id).Empty() ? "Inserted" : "Updated";
    Store(change);
    VX::ParamListHolder event;
    event.NewList();
    VXSetStringValue(event.Get(), "OC", change.table.c_str());
    VXSetStringValue(event.Get(), "TO", kind);
    VXSetInt32Array(event.Get(), "IDA", &change.id, 1);
    checker_.OnCommit({change.table, kind, change.id});
    exchange_.Raise("UPDOf" + change.table, event);
}

void ConfigSide::CommitBatch(const std::vector<Change>& changes) {
    struct Ids {
        std::vector<i32> deleted;
        std::vector<i32> updated;
    };
    std::map<std::string, Ids> byTable;
    for (const Change& change : changes) {
        Store(change);
        (change.row ? byTable[change.table].updated : byTable[change.table].deleted).push_back(change.id);
    }
    VX::ParamListHolder event;
    event.NewList();
    VXSetInt64Value(event.Get(), "__TRN", ++transaction_);
    checker_.OnCommit({"TRANSACTION", "Inserted", transaction_});
    checker_.OnCommit({"TRANSACTION", "Updated", transaction_});
    for (const auto& [table, ids] : byTable) {
        VX::ParamListHolder list;
        list.NewList();
        if (!ids.deleted.empty()) SetIds(list.Get(), "DELETED", ids.deleted);
        if (!ids.updated.empty()) SetIds(list.Get(), "UPDATED", ids.updated);
        VXSetHandleValue(event.Get(), table.c_str(), list.Get());
        for (const i32 id : ids.deleted) checker_.OnCommit({table, "Deleted", id});
        for (const i32 id : ids.updated) checker_.OnCommit({table, "Updated", id});
    }
    checker_.OnCommit({"TRANSACTION", "Deleted", transaction_});
    exchange_.Raise("BATCHUPDATE", event);
}

VX::ParamListHolder ConfigSide::OnCall(VX::SessionId, u32 number, const VX::ParamListHolder& request) {
    if (beforeAnswer) beforeAnswer();
    VX::ParamListHolder reply;
    reply.NewList();
    const std::string table = Upper(TextOf(request.Get(), number == 8 ? "TN" : "OC"));
    if (number == 6) {
        const i32 id = VXGetInt32Value(request.Get(), "ID");
        const Row row = RowOf(table, id);
        checker_.OnAnswer(table, id, row);
        VXSetHandleValue(reply.Get(), "OD", ToList(row).Get());
    } else if (number == 7) {
        const u8* binary = VXGetBinaryValue(request.Get(), "ids");
        std::vector<VX::ParamListHolder> lists;
        std::vector<HVXPARAMLIST> handles;
        for (i32 offset = 0; offset < VXReadInt32(binary); offset += 4) {
            const i32 id = VXReadInt32(binary + 4 + offset);
            const Row row = RowOf(table, id);
            checker_.OnAnswer(table, id, row);
            lists.push_back(ToList(row));
            handles.push_back(lists.back().Get());
        }
        VXSetHandleArray(reply.Get(), "OD", handles.data(), static_cast<u32>(handles.size()));
    } else if (number == 8 || number == 9) {
        std::vector<i32> ids;
        for (const auto& [id, row] : tables_[table]) {
            const bool found = row.Text(TextOf(request.Get(), "FF")) == TextOf(request.Get(), "FS");
            if (number == 9 || found) ids.push_back(id);
        }
        SetIds(reply.Get(), "ids", ids);
    }
    return reply;
}

}  // namespace OrvSim
