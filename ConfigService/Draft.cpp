#include "ConfigService/Draft.h"

#include <algorithm>

#include "ConfigService/Validation.h"

namespace Orv {
namespace {

std::string ColumnList(const Table& table) {
    std::string list;
    for (const Column& column : table.columns) {
        if (!list.empty()) list += ", ";
        list += column.name;
    }
    return list;
}

// Whether a reader that does not ask for presence cannot tell the value from an absent one.
bool ReadsAsAbsent(const Value& value) {
    if (const i32* number = std::get_if<i32>(&value)) return *number == 0;
    const std::string* text = std::get_if<std::string>(&value);
    return text == nullptr || text->empty();
}

// The row as it is named in a message.
std::string GivenKey(const Change& change) {
    return change.key.empty() && change.id != 0 ? std::to_string(change.id) : change.key;
}

}  // namespace

Draft::Draft(const TableContents& tables) : tables_(tables) {
    for (u32 i = 0; i < TableCount; ++i) drafts_[i].lastId = tables[i].lastId;
}

void Draft::Build(const std::vector<Change>& changes) {
    changes_ = &changes;
    for (u32 i = 0; i < changes.size(); ++i) ApplyOne(static_cast<i32>(i), changes[i]);
    CheckTouchedRows();
    std::stable_sort(errors.begin(), errors.end(),
                     [](const Finding& left, const Finding& right) { return left.change < right.change; });
}

// --- one change ------------------------------------------------------------------------------------------------------

void Draft::ApplyOne(i32 index, const Change& change) {
    const Table* table = FindTable(change.table);
    if (table == nullptr) {
        errors.push_back({index, change.table, GivenKey(change), "", "is in no table of this service", false});
        return;
    }
    i32 id = 0;
    const bool found = Locate(*table, change, id);
    if (found && change.action == Action::Add) {
        Error(index, *table, GivenKey(change), table->keyColumn != nullptr ? table->keyColumn : table->idColumn,
              "is there already; change that row instead, or choose another name");
        return;
    }
    if (change.action == Action::Remove || change.action == Action::Drop) {
        if (found) {
            Replace(*table, id, index, std::nullopt);
            if (table->index == AudioFeed) RemoveContentOf(id, index);
        } else if (change.action == Action::Remove) {
            Error(index, *table, GivenKey(change), "", "does not exist", true);
        }
        return;
    }
    if (!found && (change.action == Action::Set || change.id != 0)) {
        Error(index, *table, GivenKey(change), "", "does not exist; add it first", true);
        return;
    }

    if (change.action == Action::Rebuild) {
        if (table->index == AudioFeed && found && change.values.empty()) {
            Touch(*table, id, index).rebuild = true;
        } else if (!found) {
            Error(index, *table, GivenKey(change), "", "does not exist", true);
        } else {
            Error(index, *table, GivenKey(change), "", "cannot be built anew; that is for feeds, and names no columns");
        }
        return;
    }

    Row row;
    row.values.resize(table->columns.size());
    if (found && change.action == Action::Set) {
        row = *Current(*table, id);
    } else if (!found) {
        i32& lastId = drafts_[table->index].lastId;
        if (lastId == INT32_MAX) {
            Error(index, *table, GivenKey(change), table->idColumn, "has run out: every id of the table has been used");
            return;
        }
        id = ++lastId;
    }
    row.id = id;
    if (TakeValues(index, *table, change, row)) Replace(*table, id, index, std::move(row));
}

bool Draft::Locate(const Table& table, const Change& change, i32& id) const {
    if (change.id != 0) {
        id = change.id;
        return Current(table, id) != nullptr;
    }
    if (table.keyColumn == nullptr) return false;
    const std::string key = FoldKey(table, change.key);
    const TableDraft& draft = drafts_[table.index];
    if (const auto touched = draft.idByKey.find(key); touched != draft.idByKey.end()) {
        id = touched->second;
        return true;
    }
    const auto base = tables_[table.index].idByKey.find(key);
    if (base == tables_[table.index].idByKey.end()) return false;
    id = base->second;
    const Row* row = Current(table, id);
    return row != nullptr && KeyOf(table, *row) == key;
}

bool Draft::TakeValues(i32 index, const Table& table, const Change& change, Row& row) {
    const u64 errorsBefore = errors.size();
    const auto take = [&](const std::string& name, const Value& value) {
        const int place = table.FindColumn(name);
        if (place < 0) {
            Error(index, table, GivenKey(change), name,
                  std::string("is no column that can be set; ") + table.name + " has " + ColumnList(table));
            return;
        }
        const ColumnType type = table.columns[static_cast<u32>(place)].type;
        if (std::holds_alternative<std::string>(value) && type == ColumnType::Number) {
            Error(index, table, GivenKey(change), name, "is a text; give a whole number");
        } else if (std::holds_alternative<i32>(value) && type == ColumnType::Text) {
            Error(index, table, GivenKey(change), name, "is a number; give a text");
        } else if (const std::string* text = std::get_if<std::string>(&value)) {
            const std::string reason = WhyTextRefused(*text);
            if (!reason.empty()) Error(index, table, GivenKey(change), name, reason);
        }
        row.values[static_cast<u32>(place)] = value;
    };
    // A row that is there keeps its own spelling of the key unless the change states it anew.
    if (change.action != Action::Set && change.id == 0 && table.keyColumn != nullptr) take(table.keyColumn, change.key);
    for (const auto& [name, value] : change.values) take(name, value);
    return errors.size() == errorsBefore;
}

const Row* Draft::Current(const Table& table, i32 id) const {
    const TableDraft& draft = drafts_[table.index];
    if (const auto touched = draft.rows.find(id); touched != draft.rows.end()) {
        return touched->second.after.has_value() ? &*touched->second.after : nullptr;
    }
    const auto base = tables_[table.index].rows.find(id);
    return base != tables_[table.index].rows.end() ? &base->second : nullptr;
}

Draft::Touched& Draft::Touch(const Table& table, i32 id, i32 index) {
    const auto [place, added] = drafts_[table.index].rows.try_emplace(id);
    Touched& touched = place->second;
    if (added) {
        touched.before = nullptr;
        const auto base = tables_[table.index].rows.find(id);
        if (base != tables_[table.index].rows.end()) {
            touched.before = &base->second;
            touched.after = base->second;
        }
        touched.order = touches_++;
    }
    touched.change = index;
    return touched;
}

void Draft::Replace(const Table& table, i32 id, i32 index, std::optional<Row> row) {
    Touched& touched = Touch(table, id, index);
    std::unordered_map<std::string, i32>& keys = drafts_[table.index].idByKey;
    if (touched.after.has_value()) {
        const auto old = keys.find(KeyOf(table, *touched.after));
        if (old != keys.end() && old->second == id) keys.erase(old);
    }
    touched.after = std::move(row);
    if (touched.after.has_value() && table.keyColumn != nullptr) keys[KeyOf(table, *touched.after)] = id;
}

void Draft::RemoveContentOf(i32 feed, i32 index) {
    const Table& content = Tables()[AudioFeedContent];
    std::vector<i32> ids;
    for (const auto& [id, row] : tables_[AudioFeedContent].rows) ids.push_back(id);
    for (const auto& [id, touched] : drafts_[AudioFeedContent].rows) {
        if (touched.before == nullptr) ids.push_back(id);
    }
    for (const i32 id : ids) {
        const Row* row = Current(content, id);
        if (row != nullptr && row->Number(ContentColumn::FeedId) == feed) Replace(content, id, index, std::nullopt);
    }
}

// --- the outcome -----------------------------------------------------------------------------------------------------

void Draft::CheckTouchedRows() {
    for (const Table& table : Tables()) {
        for (const auto& [id, touched] : drafts_[table.index].rows) {
            if (!touched.after.has_value()) continue;
            const std::string key = GivenKey((*changes_)[static_cast<u32>(touched.change)]);
            std::vector<RowFinding> rowErrors;
            std::vector<RowFinding> rowWarnings;
            CheckRow(table, *touched.after, rowErrors, rowWarnings);
            for (RowFinding& found : rowErrors) {
                Error(touched.change, table, key, std::move(found.field), std::move(found.text));
            }
            const bool same = touched.before != nullptr && *touched.before == *touched.after;
            for (RowFinding& found : rowWarnings) {
                if (same) break;
                warnings.push_back(
                    {touched.change, table.name, key, std::move(found.field), std::move(found.text), false});
            }
            if (table.keyColumn != nullptr) CheckKey(table, id, touched);
            if (table.index == AudioFeedContent) CheckReference(id, touched);
        }
    }
}

void Draft::CheckKey(const Table& table, i32 id, const Touched& touched) {
    const std::string key = KeyOf(table, *touched.after);
    if (key.empty()) return;
    const std::string given = GivenKey((*changes_)[static_cast<u32>(touched.change)]);
    const std::string quoted = "\"" + touched.after->Text(table.FindColumn(table.keyColumn)) + "\"";
    const std::string taken = "is " + quoted + ", which another row has" +
                              (table.keyIgnoresCase ? " (upper and lower case do not count)" : "") +
                              "; choose another name";
    // Of two touched rows the map names the later one, so that the earlier one is the row that is refused.
    const TableDraft& draft = drafts_[table.index];
    const auto later = draft.idByKey.find(key);
    if (later != draft.idByKey.end() && later->second != id) {
        Error(touched.change, table, given, table.keyColumn, taken);
        return;
    }
    const auto owner = tables_[table.index].idByKey.find(key);
    if (owner == tables_[table.index].idByKey.end() || owner->second == id) return;
    const auto ownerTouched = draft.rows.find(owner->second);
    if (ownerTouched == draft.rows.end()) {
        Error(touched.change, table, given, table.keyColumn, taken);
    } else if (table.index == AudioFeed &&
               (!ownerTouched->second.after.has_value() || KeyOf(table, *ownerTouched->second.after) != key)) {
        Error(touched.change, table, given, table.keyColumn,
              "is " + quoted +
                  ", which another row gives up in the same transaction; do it in two transactions, "
                  "first the one that frees the name");
    }
}

void Draft::CheckReference(i32 id, const Touched& touched) {
    const i32 feed = touched.after->Number(ContentColumn::FeedId);
    if (Current(Tables()[AudioFeed], feed) != nullptr) return;
    Error(touched.change, Tables()[AudioFeedContent], std::to_string(id), "fkidaudiofeed",
          "is " + std::to_string(feed) + ", which is the id of no feed; give that of a row of AUDIOFEED");
}

void Draft::Error(i32 index, const Table& table, const std::string& key, std::string field, std::string text,
                  bool notFound) {
    errors.push_back({index, table.name, key, std::move(field), std::move(text), notFound});
}

std::vector<Draft::Difference> Draft::Differences() const {
    std::vector<std::pair<u32, Difference>> found;
    for (const Table& table : Tables()) {
        for (const auto& [id, touched] : drafts_[table.index].rows) {
            const Row* after = touched.after.has_value() ? &*touched.after : nullptr;
            if (touched.before == nullptr && after == nullptr) continue;
            // A row that is new or goes is built or ended in any case.
            const bool rebuild = touched.rebuild && touched.before != nullptr && after != nullptr;
            const bool same = touched.before != nullptr && after != nullptr && *touched.before == *after;
            if (same && !rebuild) continue;
            found.push_back({touched.order, {table.index, id, touched.before, after, rebuild}});
        }
    }
    std::sort(found.begin(), found.end(), [](const auto& left, const auto& right) { return left.first < right.first; });
    std::vector<Difference> differences;
    differences.reserve(found.size());
    for (const auto& [order, difference] : found) differences.push_back(difference);
    return differences;
}

RowChange Draft::Describe(const Difference& difference) {
    const Table& table = Tables()[difference.table];
    const auto nameOf = [&](const Row* row) {
        return table.keyColumn != nullptr ? row->Text(table.FindColumn(table.keyColumn)) : std::to_string(row->id);
    };
    RowChange change;
    change.table = difference.table;
    change.id = difference.id;
    change.kind = difference.before == nullptr ? "Inserted" : difference.after == nullptr ? "Deleted" : "Updated";
    if (difference.rebuild) change.kind = "Rebuilt";
    change.key = nameOf(difference.after != nullptr ? difference.after : difference.before);
    change.oldKey = nameOf(difference.before != nullptr ? difference.before : difference.after);
    for (u32 i = 0; i < table.columns.size(); ++i) {
        const Value before = difference.before != nullptr ? difference.before->values[i] : Value();
        const Value after = difference.after != nullptr ? difference.after->values[i] : Value();
        if (before == after) continue;
        change.columns.push_back(table.columns[i].name);
        if (ReadsAsAbsent(before) && ReadsAsAbsent(after)) change.alike.push_back(table.columns[i].name);
    }
    return change;
}

}  // namespace Orv
