// The words that people use for tables, columns and values. Pure functions.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "ConfigService/Schema.h"

namespace Orv {

using Json = nlohmann::ordered_json;

enum class WordKind : u8 {
    Text,
    Number,  // a whole number
    Switch,  // on or off; any other number than 0 counts as on
    Choice,  // one of a few words that stand for the numbers from 0 on
};

struct ColumnWords {
    const char* name;  // for people: "--name" on the command line, "name" in files
    const char* heading;
    WordKind kind;
    std::vector<const char*> choices;
    const char* help;
};

// One table, with words for each of its columns in their order.
struct TableWords {
    const Table& table;
    const char* noun;
    const char* plural;  // also its section in a file of rows
    std::vector<ColumnWords> columns;

    // The column of a word for people or of a column's own name; -1 when there is none.
    int Find(const std::string& name) const;
    // All names that Find() takes, for messages.
    std::string Names() const;
    int KeyColumn() const { return table.FindColumn(table.keyColumn); }
};

// Feeds, announcements, parameters.
const std::vector<TableWords>& AdministeredTables();
const TableWords& WordsOf(const Table& table);
const TableWords& WordsOf(const std::string& table);

// A value as it is typed. Throws ToolError with what is wrong; `option` names it there.
Value ParseTyped(const ColumnWords& column, const std::string& option, const std::string& text);
// A value as it stands in a file; null is an absent one. Throws ToolError; `place` names it there.
Value ParseJson(const ColumnWords& column, const std::string& place, const Json& json);
Json ValueToJson(const ColumnWords& column, const Value& value);
// For tables on the terminal; "-" for an absent one.
std::string ValueToText(const ColumnWords& column, const Value& value);

// A text for JSON. One that is no UTF-8 becomes an object {"hex": "..."} of its bytes.
Json TextToJson(const std::string& text);

// The row without its id, or with it as "id".
Json RowToJson(const TableWords& words, const Row& row, bool withId);

}  // namespace Orv
