// Any bytes as what a client sends to the Configuration service: the changes that an administrator asks for. They cross
// the link unharmed, and whatever they are, tables that were in order stay so: what is accepted keeps every rule for
// rows, and what is refused is told with its place.
#include <algorithm>
#include <set>
#include <string>

#include "ConfigService/Draft.h"
#include "ConfigService/Validation.h"
#include "ConfigService/Wire.h"
#include "VX/ListCodec.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

using Orv::Change;
using Orv::Finding;
using Orv::Row;
using Orv::Table;
using VX::ParamListHolder;

void AddRow(Orv::TableContents& tables, Orv::TableIndex index, i32 id, std::vector<Orv::Value> values) {
    Orv::TableContent& content = tables[index];
    values.resize(Orv::Tables()[index].columns.size());
    const Row row{id, std::move(values)};
    const std::string key = Orv::KeyOf(Orv::Tables()[index], row);
    if (!key.empty()) content.idByKey[key] = id;
    content.rows[id] = row;
    content.lastId = id;
}

// A small exchange, over which every input's changes are laid.
Orv::TableContents MakeTables() {
    Orv::TableContents tables;
    AddRow(tables, Orv::AudioFeed, 1, {std::string("hold"), std::string("jazz"), 3});
    AddRow(tables, Orv::AudioFeed, 2, {std::string("a"), {}, {}, 1, 1, 5, 9, 50, 1});
    AddRow(tables, Orv::AudioFeedContent, 1, {2});
    AddRow(tables, Orv::Announcement, 1, {std::string("n"), 1, std::string("/n.wav")});
    AddRow(tables, Orv::Parameter, 1, {std::string("SYSTEMLOGGINGLEVEL"), std::string("2")});
    return tables;
}

void CheckFindings(const std::vector<Finding>& findings, std::size_t changes) {
    for (const Finding& finding : findings) {
        Fuzz::Require(finding.change >= -1 && finding.change < static_cast<i32>(changes), "a finding has its place");
        Fuzz::Require(!finding.text.empty(), "a finding says something");
    }
}

void CheckCrossing(const std::vector<Change>& changes) {
    std::vector<Finding> errors;
    const std::vector<Change> read = Orv::ChangesFromList(Orv::ChangesToList(changes), errors);
    Fuzz::Require(errors.empty() && read.size() == changes.size(), "changes cross the link");
    for (std::size_t i = 0; i < read.size(); ++i) {
        const bool same = read[i].table == changes[i].table && read[i].action == changes[i].action &&
                          read[i].id == changes[i].id && read[i].values == changes[i].values;
        Fuzz::Require(same && (changes[i].id != 0 || read[i].key == changes[i].key), "a change crosses unharmed");
    }
}

void CheckKept(const Table& table, const Row& row) {
    std::vector<Orv::RowFinding> errors;
    std::vector<Orv::RowFinding> warnings;
    Orv::CheckRow(table, row, errors, warnings);
    Fuzz::Require(errors.empty() && row.id > 0, "an accepted row keeps the rules");
    Fuzz::Require(row.values.size() == table.columns.size(), "a row has all columns");
    for (u32 column = 0; column < row.values.size(); ++column) {
        const bool isText = std::holds_alternative<std::string>(row.values[column]);
        const bool isNumber = std::holds_alternative<i32>(row.values[column]);
        const bool wantsText = table.columns[column].type == Orv::ColumnType::Text;
        Fuzz::Require(!(isText && !wantsText) && !(isNumber && wantsText), "a column keeps its type");
        const std::string& text = row.Text(static_cast<int>(column));
        Fuzz::Require(text.size() <= Orv::MaxTextBytes, "a kept text has a limit");
        Fuzz::Require(!Orv::HasControlCharacter(text), "no kept text has a control character");
    }
    Fuzz::Require(Orv::RowFromList(table, Orv::RowToList(table, row)) == row, "a row crosses unharmed");
}

// The tables as they would be: every key is one row's, and every content has its feed.
void CheckTables(const Orv::TableContents& before, const Orv::Draft& draft) {
    std::map<std::pair<u32, i32>, const Row*> rows;
    for (const Table& table : Orv::Tables()) {
        for (const auto& [id, row] : before[table.index].rows) rows[{table.index, id}] = &row;
    }
    for (const Orv::Draft::Difference& difference : draft.Differences()) {
        if (difference.after == nullptr) {
            rows.erase({difference.table, difference.id});
        } else {
            rows[{difference.table, difference.id}] = difference.after;
            CheckKept(Orv::Tables()[difference.table], *difference.after);
        }
    }
    std::set<std::pair<u32, std::string>> keys;
    for (const auto& [place, row] : rows) {
        const Table& table = Orv::Tables()[place.first];
        const bool single = table.keyColumn == nullptr || keys.insert({place.first, Orv::KeyOf(table, *row)}).second;
        Fuzz::Require(single, "a key is one row's");
        if (place.first != Orv::AudioFeedContent) continue;
        const auto feed = rows.find({Orv::AudioFeed, row->Number(Orv::ContentColumn::FeedId)});
        Fuzz::Require(feed != rows.end(), "a content has its feed");
    }
}

void CheckReply(const Orv::Draft& draft, std::size_t changes) {
    Orv::ApplyResult result;
    result.errors = draft.errors;
    result.warnings = draft.warnings;
    if (!draft.errors.empty()) {
        result.outcome = Orv::Outcome::Refused;
    } else {
        for (const auto& difference : draft.Differences()) result.changed.push_back(Orv::Draft::Describe(difference));
        result.transaction = static_cast<i64>(result.changed.size());
    }
    std::string bytes;
    ParamListHolder list;
    const ParamListHolder reply = Orv::ResultToList(result);
    Fuzz::Require(VX::EncodeParamList(reply.Get(), bytes) && VX::DecodeParamList(bytes, list), "a reply crosses");
    std::string word;
    const Orv::ApplyResult read = Orv::ResultFromList(list, word);
    Fuzz::Require(read.outcome == result.outcome && read.changed.size() == result.changed.size(), "as it was meant");
    Fuzz::Require(read.errors.size() == std::min<std::size_t>(result.errors.size(), Orv::MaxFindings),
                  "with its errors");
    for (std::size_t i = 0; i < read.changed.size(); ++i) {
        Fuzz::Require(read.changed[i].key == result.changed[i].key && read.changed[i].id == result.changed[i].id,
                      "with the rows that it changed");
    }
    CheckFindings(read.errors, changes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t size) {
    static const Orv::TableContents tables = MakeTables();
    ParamListHolder request;
    if (!VX::DecodeParamList(std::string(Fuzz::AsText(data, size)), request)) return 0;
    Fuzz::Require(Orv::GetIds(request, "ids").size() * 4 <= size, "no more ids than there are bytes");

    std::vector<Finding> errors;
    const std::vector<Change> changes = Orv::ChangesFromList(request, errors);
    CheckFindings(errors, changes.size());
    if (!errors.empty()) return 0;
    CheckCrossing(changes);

    Orv::Draft draft(tables);
    draft.Build(changes);
    CheckFindings(draft.errors, changes.size());
    if (draft.errors.empty()) CheckTables(tables, draft);
    CheckReply(draft, changes.size());
    return 0;
}
