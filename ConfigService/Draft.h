// One transaction in the making: changes are laid over the tables as they are, checked, and boiled down to the rows
// that really differ. Belongs to one thread; the tables must not change while it lives.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "ConfigService/Store.h"

namespace Orv {

class Draft {
public:
    explicit Draft(const TableContents& tables);

    // Lays every change over the tables and checks the outcome; what is wrong goes to `errors`.
    void Build(const std::vector<Change>& changes);

    std::vector<Finding> errors;
    std::vector<Finding> warnings;

    // One row that differs, in the order in which rows were first touched. No `after` for a deleted row, no `before`
    // for a new one. A feed that is to be built anew is one too, whether its row differs or not.
    struct Difference {
        u32 table;
        i32 id;
        const Row* before;
        const Row* after;
        bool rebuild;
    };
    std::vector<Difference> Differences() const;
    static RowChange Describe(const Difference& difference);

private:
    struct Touched {
        const Row* before = nullptr;
        std::optional<Row> after;
        i32 change = -1;  // the last change that touched it
        u32 order = 0;
        bool rebuild = false;
    };
    struct TableDraft {
        std::map<i32, Touched> rows;
        std::unordered_map<std::string, i32> idByKey;  // of touched rows as they will be
        i32 lastId = 0;
    };

    void ApplyOne(i32 index, const Change& change);
    bool Locate(const Table& table, const Change& change, i32& id) const;
    bool TakeValues(i32 index, const Table& table, const Change& change, Row& row);
    const Row* Current(const Table& table, i32 id) const;
    Touched& Touch(const Table& table, i32 id, i32 index);
    void Replace(const Table& table, i32 id, i32 index, std::optional<Row> row);
    void RemoveContentOf(i32 feed, i32 index);
    void CheckTouchedRows();
    void CheckKey(const Table& table, i32 id, const Touched& touched);
    void CheckReference(i32 id, const Touched& touched);
    void Error(i32 index, const Table& table, const std::string& key, std::string field, std::string text,
               bool notFound = false);

    const TableContents& tables_;
    std::array<TableDraft, TableCount> drafts_;
    const std::vector<Change>* changes_ = nullptr;
    u32 touches_ = 0;
};

}  // namespace Orv
