// The tables that the Configuration service keeps: their names, columns and types. Constant data, any thread.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Platform/Types.h"

namespace Orv {

enum class ColumnType : u8 { Text, Number };

struct Column {
    const char* name;
    ColumnType type;
};

// One table. Its rows are known by their id, and to people by the text of the key column.
struct Table {
    u32 index;              // its place in Tables()
    const char* name;       // upper case
    const char* lowerName;  // the same in lower case
    const char* idColumn;
    const char* keyColumn;        // required and unique; null when the table has none
    bool keyIgnoresCase;          // A to Z alike
    std::vector<Column> columns;  // without the id

    // -1 when there is none of that name.
    int FindColumn(std::string_view column) const;
};

inline constexpr u32 TableCount = 4;
enum TableIndex : u32 { AudioFeed = 0, AudioFeedContent = 1, Announcement = 2, Parameter = 3 };

// In the order of TableIndex.
const std::array<Table, TableCount>& Tables();
// By the upper-case name, exactly; null when there is none.
const Table* FindTable(std::string_view name);
// By the lower-case name, exactly.
const Table* FindTableLower(std::string_view name);

// What a column holds: nothing, a number or a text.
using Value = std::variant<std::monostate, i32, std::string>;

// One row; `values` stand in the order of the table's columns.
struct Row {
    i32 id = 0;
    std::vector<Value> values;

    bool operator==(const Row&) const = default;
    // The number of a column, 0 when it is absent; the text, empty when it is absent.
    i32 Number(int column) const;
    const std::string& Text(int column) const;
    bool Has(int column) const { return !std::holds_alternative<std::monostate>(values[static_cast<u32>(column)]); }
};

// The key by which rows of a table are told apart: the key column's text, lowered where case does not count. Empty for
// a table without a key.
std::string FoldKey(const Table& table, std::string_view key);
std::string KeyOf(const Table& table, const Row& row);

// Columns by number, for code that speaks of certain ones.
namespace FeedColumn {
enum : int { PipeName, TheName, FeedType, NonStop, PlayAnnouncements, MinPause, MaxPause, MaxVolume, AutoGain };
}
namespace ContentColumn {
enum : int { FeedId };
}
namespace AnnouncementColumn {
enum : int { TheName, TheType, TheFile };
}
namespace ParameterColumn {
enum : int { Name, Value };
}

}  // namespace Orv
