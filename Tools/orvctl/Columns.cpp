#include "Tools/orvctl/Columns.h"

#include <charconv>
#include <cstdint>

#include "Tools/orvctl/ToolError.h"

namespace Orv {
namespace {

bool IsUtf8(const std::string& text) {
    for (u64 i = 0; i < text.size();) {
        const u8 first = static_cast<u8>(text[i]);
        const u64 length = first < 0x80 ? 1 : first >= 0xC2 && first < 0xE0 ? 2 : first >= 0xE0 && first < 0xF0 ? 3 : 4;
        if (length == 4 && (first < 0xF0 || first > 0xF4)) return false;
        if (i + length > text.size()) return false;
        for (u64 k = 1; k < length; ++k) {
            if ((static_cast<u8>(text[i + k]) & 0xC0) != 0x80) return false;
        }
        const u8 second = length > 1 ? static_cast<u8>(text[i + 1]) : 0;
        // Overlong forms, surrogates, and what lies behind the last code point.
        if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) || (first == 0xF0 && second < 0x90) ||
            (first == 0xF4 && second > 0x8F)) {
            return false;
        }
        i += length;
    }
    return true;
}

bool ParseNumber(const std::string& text, i32& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

[[noreturn]] void Refuse(const std::string& place, const std::string& text) {
    throw ToolError(ExitCode::BadCommandLine, place + ": " + text);
}

std::string ChoiceList(const ColumnWords& column) {
    std::string list;
    for (const char* choice : column.choices) list += (list.empty() ? "" : ", ") + std::string(choice);
    return list;
}

std::string Wanted(const ColumnWords& column) {
    switch (column.kind) {
        case WordKind::Text:
            return "give a text";
        case WordKind::Number:
            return "give a whole number";
        case WordKind::Switch:
            return "give on or off";
        case WordKind::Choice:
            break;
    }
    return "give one of " + ChoiceList(column);
}

bool ParseWord(const ColumnWords& column, const std::string& text, i32& number) {
    if (column.kind == WordKind::Switch) {
        if (text == "on" || text == "yes" || text == "true") return number = 1, true;
        if (text == "off" || text == "no" || text == "false") return number = 0, true;
    }
    for (u32 i = 0; i < column.choices.size(); ++i) {
        if (text == column.choices[i]) return number = static_cast<i32>(i), true;
    }
    return false;
}

std::string ParseJsonText(const std::string& place, const Json& json) {
    if (json.is_string()) {
        const std::string text = json.get<std::string>();
        if (text.find('\0') != std::string::npos) Refuse(place, "holds a control character; take it out");
        return text;
    }
    if (!json.is_object() || json.size() != 1 || !json.contains("hex") || !json["hex"].is_string()) {
        Refuse(place, "is no text; give one between double quotes");
    }
    const std::string hex = json["hex"].get<std::string>();
    std::string text;
    for (u64 i = 0; i + 1 < hex.size(); i += 2) {
        const int high = HexDigit(hex[i]);
        const int low = HexDigit(hex[i + 1]);
        if (high < 0 || low < 0 || (high == 0 && low == 0)) Refuse(place, "\"hex\" holds what is no byte of a text");
        text.push_back(static_cast<char>(high * 16 + low));
    }
    if (hex.size() % 2 != 0) Refuse(place, "\"hex\" has an odd number of digits");
    return text;
}

}  // namespace

int TableWords::Find(const std::string& name) const {
    for (u32 i = 0; i < columns.size(); ++i) {
        if (name == columns[i].name || name == table.columns[i].name) return static_cast<int>(i);
    }
    return -1;
}

std::string TableWords::Names() const {
    std::string names;
    for (const ColumnWords& column : columns) names += (names.empty() ? "" : ", ") + std::string(column.name);
    return names;
}

const std::vector<TableWords>& AdministeredTables() {
    using enum WordKind;
    static const std::vector<TableWords> tables = {
        {Tables()[AudioFeed],
         "feed",
         "feeds",
         {{"pipe", "PIPE", Text, {}, "Name of the pipe on which the feed plays, and by which it is named here"},
          {"folder", "FOLDER", Text, {}, "Playlist folder of its files, and its name in the log"},
          {"type", "TYPE", Choice, {"default", "linein", "shuffled", "sorted"}, "What it plays"},
          {"nonstop", "NONSTOP", Switch, {}, "Plays on while no client listens"},
          {"announcements", "ANNOUNCE", Switch, {}, "Announcements play over the music"},
          {"min-pause", "MIN-PAUSE", Number, {}, "Shortest pause between announcements, in seconds"},
          {"max-pause", "MAX-PAUSE", Number, {}, "Longest pause between announcements, in seconds"},
          {"max-volume", "VOLUME", Number, {}, "Level limit of its own, 0 to 100 percent"},
          {"autogain", "AUTOGAIN", Switch, {}, "Raises quiet music up to its level limit"}}},
        {Tables()[Announcement],
         "announcement",
         "announcements",
         {{"name", "NAME", Text, {}, "Name of the announcement"},
          {"kind", "KIND", Choice, {"over", "alone"}, "Over the lowered music, or alone while the music waits"},
          {"file", "FILE", Text, {}, "The sound file"}}},
        {Tables()[Parameter],
         "parameter",
         "parameters",
         {{"name", "NAME", Text, {}, "Name of the parameter"}, {"value", "VALUE", Text, {}, "Its value"}}},
    };
    return tables;
}

const TableWords& WordsOf(const Table& table) {
    for (const TableWords& words : AdministeredTables()) {
        if (words.table.index == table.index) return words;
    }
    throw ToolError(ExitCode::BadCommandLine, std::string(table.name) + " is not administered here");
}

const TableWords& WordsOf(const std::string& table) {
    return WordsOf(*FindTable(table));
}

Value ParseTyped(const ColumnWords& column, const std::string& option, const std::string& text) {
    if (column.kind == WordKind::Text) return text;
    i32 number = 0;
    if (ParseNumber(text, number) || ParseWord(column, text, number)) return number;
    Refuse(option, "\"" + text + "\" cannot be used; " + Wanted(column) +
                       (column.kind == WordKind::Number ? " from -2147483648 to 2147483647" : ""));
}

Value ParseJson(const ColumnWords& column, const std::string& place, const Json& json) {
    if (json.is_null()) return {};
    if (column.kind == WordKind::Text) return ParseJsonText(place, json);
    if (json.is_boolean() && column.kind == WordKind::Switch) return json.get<bool>() ? 1 : 0;
    i32 number = 0;
    if (json.is_string() && ParseWord(column, json.get<std::string>(), number)) return number;
    if (json.is_number_integer()) {
        const bool large = json.is_number_unsigned() && json.get<u64>() > INT32_MAX;
        if (large || json.get<i64>() < INT32_MIN || json.get<i64>() > INT32_MAX) {
            Refuse(place, json.dump() + " is outside -2147483648 to 2147483647; give a smaller number");
        }
        return json.get<i32>();
    }
    Refuse(place, json.dump(-1, ' ', false, Json::error_handler_t::replace) + " cannot be used; " + Wanted(column));
}

Json TextToJson(const std::string& text) {
    if (IsUtf8(text)) return text;
    static const char digits[] = "0123456789abcdef";
    std::string hex;
    for (const char c : text) {
        hex.push_back(digits[static_cast<u8>(c) >> 4]);
        hex.push_back(digits[static_cast<u8>(c) & 15]);
    }
    return {{"hex", hex}};
}

Json ValueToJson(const ColumnWords& column, const Value& value) {
    if (const std::string* text = std::get_if<std::string>(&value)) return TextToJson(*text);
    const i32* number = std::get_if<i32>(&value);
    if (number == nullptr) return nullptr;
    if (column.kind == WordKind::Switch && (*number == 0 || *number == 1)) return *number == 1;
    if (*number >= 0 && static_cast<u32>(*number) < column.choices.size()) {
        return column.choices[static_cast<u32>(*number)];
    }
    return *number;
}

std::string ValueToText(const ColumnWords& column, const Value& value) {
    if (const std::string* text = std::get_if<std::string>(&value)) return text->empty() ? "\"\"" : *text;
    const i32* number = std::get_if<i32>(&value);
    if (number == nullptr) return "-";
    if (column.kind == WordKind::Switch && (*number == 0 || *number == 1)) return *number == 1 ? "on" : "off";
    if (*number >= 0 && static_cast<u32>(*number) < column.choices.size()) {
        return column.choices[static_cast<u32>(*number)];
    }
    return std::to_string(*number);
}

Json RowToJson(const TableWords& words, const Row& row, bool withId) {
    Json json = Json::object();
    if (withId) json["id"] = row.id;
    for (u32 i = 0; i < words.columns.size(); ++i) {
        if (row.Has(static_cast<int>(i))) json[words.columns[i].name] = ValueToJson(words.columns[i], row.values[i]);
    }
    return json;
}

}  // namespace Orv
