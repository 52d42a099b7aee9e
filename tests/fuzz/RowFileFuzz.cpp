// Any bytes as the file that `orvctl apply` reads. It is refused with a reason, or its changes are ones that the
// service can be asked for: removals first, each row once, each value of its column's type; they cross the link
// unharmed, and the rows that they state are the same file again when they are exported.
#include <set>
#include <string>

#include "ConfigService/Wire.h"
#include "Tools/orvctl/RowFile.h"
#include "Tools/orvctl/ToolError.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

using Orv::Action;
using Orv::Change;
using Orv::Row;
using Orv::Table;
using Orv::TableWords;

void CheckChange(const Change& change) {
    const Table* table = Orv::FindTable(change.table);
    Fuzz::Require(table != nullptr && table->keyColumn != nullptr && change.id == 0, "a change names a table's row");
    Fuzz::Require(change.action == Action::Put || change.action == Action::Drop, "a file states or removes");
    Fuzz::Require(change.key.find('\0') == std::string::npos, "a key crosses the link whole");
    Fuzz::Require(change.action == Action::Drop || !change.key.empty(), "a stated row has a key");
    Fuzz::Require(change.action == Action::Put || change.values.empty(), "a removal states nothing");
    std::set<std::string> names;
    for (const auto& [name, value] : change.values) {
        const int column = table->FindColumn(name);
        Fuzz::Require(column >= 0 && names.insert(name).second, "each column once");
        const bool wantsText = table->columns[static_cast<u32>(column)].type == Orv::ColumnType::Text;
        const std::string* text = std::get_if<std::string>(&value);
        Fuzz::Require(text == nullptr || (wantsText && text->find('\0') == std::string::npos), "a text where one goes");
        Fuzz::Require(!std::holds_alternative<i32>(value) || !wantsText, "a number where one goes");
    }
}

void CheckCrossing(const std::vector<Change>& changes) {
    std::vector<Orv::Finding> errors;
    const std::vector<Change> read = Orv::ChangesFromList(Orv::ChangesToList(changes), errors);
    Fuzz::Require(errors.empty() && read.size() == changes.size(), "the service reads every change");
    for (std::size_t i = 0; i < read.size(); ++i) {
        const bool same = read[i].table == changes[i].table && read[i].key == changes[i].key &&
                          read[i].action == changes[i].action && read[i].values.size() == changes[i].values.size();
        Fuzz::Require(same, "the service reads each change as it was meant");
    }
}

Row RowOf(const Table& table, const Change& change) {
    Row row;
    row.values.resize(table.columns.size());
    row.values[static_cast<u32>(table.FindColumn(table.keyColumn))] = change.key;
    for (const auto& [name, value] : change.values) row.values[static_cast<u32>(table.FindColumn(name))] = value;
    return row;
}

// What `export` would write of these rows is read as these rows.
void CheckExport(const std::vector<Change>& changes) {
    Orv::Json file = Orv::Json::object();
    std::vector<Row> stated;
    for (const TableWords& words : Orv::AdministeredTables()) {
        std::vector<Row> rows;
        for (const Change& change : changes) {
            if (change.table != words.table.name || change.action != Action::Put) continue;
            rows.push_back(RowOf(words.table, change));
        }
        file[words.plural] = Orv::RowsToJson(words, rows, false);
        stated.insert(stated.end(), rows.begin(), rows.end());
    }
    const std::vector<Change> again = Orv::ParseRowFile(file.dump());
    Fuzz::Require(again.size() == stated.size(), "an export states every row");
    for (std::size_t i = 0; i < again.size(); ++i) {
        const Table* table = Orv::FindTable(again[i].table);
        Fuzz::Require(table != nullptr && RowOf(*table, again[i]) == stated[i], "an export is read as what it was");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
    std::vector<Change> changes;
    try {
        changes = Orv::ParseRowFile(std::string(Fuzz::AsText(data, size)));
    } catch (const Orv::ToolError& error) {
        Fuzz::Require(error.Code() == Orv::ExitCode::BadCommandLine && *error.what() != '\0', "a refusal has a reason");
        return 0;
    }
    bool rows = false;
    std::set<std::pair<std::string, std::string>> keys;
    for (const Change& change : changes) {
        CheckChange(change);
        Fuzz::Require(change.action == Action::Put || !rows, "removals come first");
        rows = rows || change.action == Action::Put;
        const std::string key = Orv::FoldKey(*Orv::FindTable(change.table), change.key);
        Fuzz::Require(keys.insert({change.table, key}).second, "a row is named once");
    }
    CheckCrossing(changes);
    CheckExport(changes);
    return 0;
}
