// The tables: kept in one SQLite file, and as a whole in memory for reading.
//
// Any thread. Readers never wait for the disk. Changes must come one at a time, see Apply().
#pragma once

#include <array>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "ConfigService/Change.h"
#include "ConfigService/Database.h"
#include "Platform/Sync.h"

namespace Orv {

// The rows of one table in the order of their ids, and their ids by key.
struct TableContent {
    std::map<i32, Row> rows;
    std::unordered_map<std::string, i32> idByKey;
    i32 lastId = 0;  // the highest that was ever given
};
using TableContents = std::array<TableContent, TableCount>;

class Store {
public:
    // Opens or makes the file and reads all of it. Null with the reason when it cannot be used.
    static std::unique_ptr<Store> Open(const std::string& path, std::string& reason);

    // All of the changes or none: nothing is kept when one of them is refused, and then every reason is told. What has
    // been acknowledged by Outcome::Done survives the death of the process and of the machine. Changes that leave
    // every row as it is give transaction number 0. The caller makes sure that no two calls overlap.
    ApplyResult Apply(const std::vector<Change>& changes);

    // The number of the last transaction that changed something; it only ever rises.
    i64 LastTransaction() const;

    // --- reading; an unknown id gives false, and no rows give an empty list ---
    bool GetRow(const Table& table, i32 id, Row& row) const;
    // The row of a key; case counts as the table says.
    bool FindRow(const Table& table, const std::string& key, Row& row) const;
    std::vector<i32> Ids(const Table& table) const;
    std::vector<Row> Rows(const Table& table) const;
    // The ids of the rows whose column (or id column) holds exactly this text, numbers in decimal. False when the
    // table has no such column.
    bool Search(const Table& table, const std::string& column, const std::string& text, std::vector<i32>& ids) const;
    u32 Count(const Table& table) const;

    // Moves the write-ahead log into the file. Not beside Apply().
    void Checkpoint();

private:
    explicit Store(const std::string& path);
    void Load();
    void Write(class Draft& draft, i64 transaction);

    Database database_;  // of Apply()'s caller
    mutable Platform::Mutex mutex_;
    TableContents tables_ ORV_GUARDED_BY(mutex_);
    i64 transaction_ ORV_GUARDED_BY(mutex_) = 0;
};

}  // namespace Orv
