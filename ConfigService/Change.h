// What is asked of the tables and what came of it. Plain data.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "ConfigService/Schema.h"

namespace Orv {

enum class Action : u8 {
    Add,      // a new row; one of that key must not be there
    Set,      // changes the named columns of a row that must be there
    Put,      // states a row's whole content; made when it is missing, columns not named become absent
    Remove,   // a row that must be there
    Drop,     // the same, but a missing row is fine
    Rebuild,  // of a feed that must be there: its row stays as it is, and who plays by it builds anew
};

// One change of one row, which is named by `id`, or by `key` when that is 0. A new row takes the key as its key column.
struct Change {
    std::string table;  // upper case
    Action action = Action::Set;
    i32 id = 0;
    std::string key;
    // Column names with what they are to hold; an empty value makes the column absent.
    std::vector<std::pair<std::string, Value>> values;
};

// Why something was refused, or what to look at.
struct Finding {
    i32 change = -1;  // place of the change in the transaction; -1 when it is about no single one
    std::string table;
    std::string key;    // of the row, as it was given
    std::string field;  // the column; empty when it is about the row
    std::string text;   // what is wrong and what to do
    bool notFound = false;
};

// One row that a transaction has changed.
struct RowChange {
    u32 table = 0;
    i32 id = 0;
    const char* kind = "";             // "Inserted", "Updated", "Deleted" or "Rebuilt"
    std::string key;                   // after the change, before it for a deleted row
    std::string oldKey;                // differs from `key` when the row was renamed
    std::vector<std::string> columns;  // those that differ from before
    // Those of them that only a reader that asks for presence tells apart: absent against 0 or the empty text.
    std::vector<std::string> alike;
};

enum class Outcome : u8 { Done, Refused, Failed };

struct ApplyResult {
    Outcome outcome = Outcome::Done;
    i64 transaction = 0;  // 0 when nothing changed
    std::vector<RowChange> changed;
    std::vector<Finding> errors;    // each one, when the transaction was refused or the disk failed
    std::vector<Finding> warnings;  // about rows that were accepted
};

}  // namespace Orv
