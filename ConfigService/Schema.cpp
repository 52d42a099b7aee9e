#include "ConfigService/Schema.h"

namespace Orv {
namespace {

const std::string kNoText;

}  // namespace

int Table::FindColumn(std::string_view column) const {
    for (u32 i = 0; i < columns.size(); ++i) {
        if (column == columns[i].name) return static_cast<int>(i);
    }
    return -1;
}

const std::array<Table, TableCount>& Tables() {
    static const std::array<Table, TableCount> tables = {
        Table{AudioFeed,
              "AUDIOFEED",
              "audiofeed",
              "idaudiofeed",
              "pipename",
              true,
              {{"pipename", ColumnType::Text},
               {"thename", ColumnType::Text},
               {"feedtype", ColumnType::Number},
               {"nonstop", ColumnType::Number},
               {"playannouncements", ColumnType::Number},
               {"minannouncementpause", ColumnType::Number},
               {"maxannouncementpause", ColumnType::Number},
               {"maxvolume", ColumnType::Number},
               {"autogain", ColumnType::Number}}},
        Table{AudioFeedContent,
              "AUDIOFEEDCONTENT",
              "audiofeedcontent",
              "idaudiofeedcontent",
              nullptr,
              false,
              {{"fkidaudiofeed", ColumnType::Number}}},
        Table{Announcement,
              "ANNOUNCEMENT",
              "announcement",
              "idannouncement",
              "thename",
              false,
              {{"thename", ColumnType::Text}, {"thetype", ColumnType::Number}, {"thefile", ColumnType::Text}}},
        Table{Parameter,
              "PARAMETER",
              "parameter",
              "idparameter",
              "name",
              false,
              {{"name", ColumnType::Text}, {"value", ColumnType::Text}}},
    };
    return tables;
}

const Table* FindTable(std::string_view name) {
    for (const Table& table : Tables()) {
        if (name == table.name) return &table;
    }
    return nullptr;
}

const Table* FindTableLower(std::string_view name) {
    for (const Table& table : Tables()) {
        if (name == table.lowerName) return &table;
    }
    return nullptr;
}

i32 Row::Number(int column) const {
    const i32* number = std::get_if<i32>(&values[static_cast<u32>(column)]);
    return number != nullptr ? *number : 0;
}

const std::string& Row::Text(int column) const {
    const std::string* text = std::get_if<std::string>(&values[static_cast<u32>(column)]);
    return text != nullptr ? *text : kNoText;
}

std::string FoldKey(const Table& table, std::string_view key) {
    std::string folded(key);
    if (table.keyIgnoresCase) {
        for (char& c : folded) {
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return folded;
}

std::string KeyOf(const Table& table, const Row& row) {
    if (table.keyColumn == nullptr) return {};
    return FoldKey(table, row.Text(table.FindColumn(table.keyColumn)));
}

}  // namespace Orv
