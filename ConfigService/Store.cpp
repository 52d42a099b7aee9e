#include "ConfigService/Store.h"

#include <algorithm>

#include "ConfigService/Draft.h"

namespace Orv {
namespace {

std::string SelectAll(const Table& table) {
    std::string sql = std::string("SELECT ") + table.idColumn;
    for (const Column& column : table.columns) sql += std::string(", ") + column.name;
    return sql + " FROM " + table.name;
}

std::string InsertInto(const Table& table) {
    std::string sql = std::string("INSERT INTO ") + table.name + " VALUES (?1";
    for (u32 i = 0; i < table.columns.size(); ++i) sql += ", ?" + std::to_string(i + 2);
    return sql + ")";
}

std::string ValueText(const Value& value) {
    if (const i32* number = std::get_if<i32>(&value)) return std::to_string(*number);
    const std::string* text = std::get_if<std::string>(&value);
    return text != nullptr ? *text : std::string();
}

ApplyResult Failure(const DatabaseError& error) {
    ApplyResult result;
    result.outcome = Outcome::Failed;
    result.errors.push_back({-1, "", "", "", error.what(), false});
    return result;
}

}  // namespace

std::unique_ptr<Store> Store::Open(const std::string& path, std::string& reason) {
    try {
        std::unique_ptr<Store> store(new Store(path));
        store->Load();
        return store;
    } catch (const DatabaseError& error) {
        reason = error.what();
        return nullptr;
    }
}

Store::Store(const std::string& path) : database_(path) {
    database_.CheckIntegrity();
}

void Store::Load() {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    for (const Table& table : Tables()) {
        TableContent& content = tables_[table.index];
        Statement rows = database_.Prepare(SelectAll(table));
        while (rows.Step()) {
            Row row;
            row.id = static_cast<i32>(rows.GetNumber(0));
            for (u32 i = 0; i < table.columns.size(); ++i) row.values.push_back(rows.Get(static_cast<int>(i) + 1));
            if (table.keyColumn != nullptr) content.idByKey[KeyOf(table, row)] = row.id;
            content.rows.emplace(row.id, std::move(row));
        }
        Statement sequence = database_.Prepare("SELECT seq FROM sqlite_sequence WHERE name = ?1");
        sequence.BindText(1, table.name);
        if (sequence.Step()) content.lastId = static_cast<i32>(std::min<i64>(sequence.GetNumber(0), INT32_MAX));
    }
    transaction_ = database_.QueryNumber("SELECT transactionnumber FROM ORV_STATE");
}

// The tables are changed by the one caller of Apply() only, who may therefore read them without the lock.
ApplyResult Store::Apply(const std::vector<Change>& changes) ORV_NO_THREAD_SAFETY_ANALYSIS {
    Draft draft(tables_);
    draft.Build(changes);
    ApplyResult result;
    result.errors = std::move(draft.errors);
    if (!result.errors.empty()) {
        result.outcome = Outcome::Refused;
        return result;
    }
    result.warnings = std::move(draft.warnings);
    const std::vector<Draft::Difference> differences = draft.Differences();
    if (differences.empty()) return result;
    for (const Draft::Difference& difference : differences) result.changed.push_back(Draft::Describe(difference));

    result.transaction = transaction_ + 1;
    try {
        Write(draft, result.transaction);
    } catch (const DatabaseError& error) {
        // A commit whose sync failed may stand all the same; what the file says counts.
        try {
            if (database_.QueryNumber("SELECT transactionnumber FROM ORV_STATE") != result.transaction) {
                return Failure(error);
            }
        } catch (const DatabaseError&) {
            return Failure(error);
        }
    }

    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    // First all keys that go, then all that come: a name may pass from one row to another.
    for (const Draft::Difference& difference : differences) {
        const Table& table = Tables()[difference.table];
        if (difference.before != nullptr) tables_[table.index].idByKey.erase(KeyOf(table, *difference.before));
    }
    for (const Draft::Difference& difference : differences) {
        const Table& table = Tables()[difference.table];
        TableContent& content = tables_[table.index];
        if (difference.after == nullptr) {
            content.rows.erase(difference.id);
            continue;
        }
        if (table.keyColumn != nullptr) content.idByKey[KeyOf(table, *difference.after)] = difference.id;
        content.rows[difference.id] = *difference.after;
        content.lastId = std::max(content.lastId, difference.id);
    }
    transaction_ = result.transaction;
    return result;
}

void Store::Write(Draft& draft, i64 transactionNumber) {
    database_.CheckInPlace();
    Transaction transaction(database_);
    if (database_.QueryNumber("SELECT transactionnumber FROM ORV_STATE") != transactionNumber - 1) {
        throw DatabaseError("The database was changed by another program; restart orv-config");
    }
    std::vector<Draft::Difference> differences = draft.Differences();
    // A feed that is built anew keeps its row.
    std::erase_if(differences, [](const Draft::Difference& difference) {
        return difference.before != nullptr && difference.after != nullptr && *difference.before == *difference.after;
    });
    // Replaced rows are taken out first, so that unique names can pass between them.
    for (const Draft::Difference& difference : differences) {
        if (difference.before == nullptr) continue;
        const Table& table = Tables()[difference.table];
        Statement remove =
            database_.Prepare(std::string("DELETE FROM ") + table.name + " WHERE " + table.idColumn + " = ?1");
        remove.BindNumber(1, difference.id).Run();
    }
    for (const Draft::Difference& difference : differences) {
        if (difference.after == nullptr) continue;
        const Table& table = Tables()[difference.table];
        Statement insert = database_.Prepare(InsertInto(table));
        insert.BindNumber(1, difference.id);
        for (u32 i = 0; i < table.columns.size(); ++i)
            insert.Bind(static_cast<int>(i) + 2, difference.after->values[i]);
        insert.Run();
    }
    Statement state = database_.Prepare("UPDATE ORV_STATE SET transactionnumber = ?1");
    state.BindNumber(1, transactionNumber).Run();
    transaction.Commit();
}

i64 Store::LastTransaction() const {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    return transaction_;
}

bool Store::GetRow(const Table& table, i32 id, Row& row) const {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    const auto found = tables_[table.index].rows.find(id);
    if (found == tables_[table.index].rows.end()) return false;
    row = found->second;
    return true;
}

bool Store::FindRow(const Table& table, const std::string& key, Row& row) const {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    const TableContent& content = tables_[table.index];
    const auto found = content.idByKey.find(FoldKey(table, key));
    if (found == content.idByKey.end()) return false;
    row = content.rows.at(found->second);
    return true;
}

std::vector<i32> Store::Ids(const Table& table) const {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    std::vector<i32> ids;
    ids.reserve(tables_[table.index].rows.size());
    for (const auto& [id, row] : tables_[table.index].rows) ids.push_back(id);
    return ids;
}

std::vector<Row> Store::Rows(const Table& table) const {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    std::vector<Row> rows;
    rows.reserve(tables_[table.index].rows.size());
    for (const auto& [id, row] : tables_[table.index].rows) rows.push_back(row);
    return rows;
}

bool Store::Search(const Table& table, const std::string& column, const std::string& text,
                   std::vector<i32>& ids) const {
    const int place = table.FindColumn(column);
    if (place < 0 && column != table.idColumn) return false;
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    for (const auto& [id, row] : tables_[table.index].rows) {
        const bool matches = place < 0 ? std::to_string(id) == text
                                       : row.Has(place) && ValueText(row.values[static_cast<u32>(place)]) == text;
        if (matches) ids.push_back(id);
    }
    return true;
}

u32 Store::Count(const Table& table) const {
    Platform::LockGuard<Platform::Mutex> guard(mutex_);
    return static_cast<u32>(tables_[table.index].rows.size());
}

void Store::Checkpoint() {
    try {
        database_.Checkpoint();
    } catch (const DatabaseError&) {
        // The log stays beside the file and is taken in at the next start.
    }
}

}  // namespace Orv
