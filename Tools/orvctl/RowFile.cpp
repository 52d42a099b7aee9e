#include "Tools/orvctl/RowFile.h"

#include <set>

#include "Tools/orvctl/ToolError.h"

namespace Orv {
namespace {

[[noreturn]] void Refuse(const std::string& place, const std::string& text) {
    throw ToolError(ExitCode::BadCommandLine, place + ": " + text);
}

const TableWords* FindSection(const std::string& name) {
    for (const TableWords& words : AdministeredTables()) {
        if (name == words.plural) return &words;
    }
    return nullptr;
}

// The library keeps the last of two equal keys without a word; in a file that a person wrote that is a slip.
Json Parse(const std::string& text) {
    std::vector<std::set<std::string>> open;
    const auto watch = [&open](int, Json::parse_event_t event, Json& parsed) {
        if (event == Json::parse_event_t::object_start) open.emplace_back();
        if (event == Json::parse_event_t::object_end) open.pop_back();
        if (event == Json::parse_event_t::key && !open.back().insert(parsed.get<std::string>()).second) {
            Refuse("\"" + parsed.get<std::string>() + "\"", "stands twice in one object; keep one of them");
        }
        return true;
    };
    try {
        return Json::parse(text, watch);
    } catch (const Json::exception& error) {
        const std::string what = error.what();
        const auto begin = what.find("] ");
        Refuse("The file is no JSON", begin == std::string::npos ? what : what.substr(begin + 2));
    }
}

class Reader {
public:
    std::vector<Change> Read(const Json& root) {
        if (!root.is_object()) Refuse("The file", "is no JSON object; start from what `orvctl export` writes");
        if (root.contains("remove")) ReadRemovals(root["remove"]);
        for (const auto& [name, rows] : root.items()) {
            if (name == "remove") continue;
            const TableWords* words = FindSection(name);
            if (words == nullptr) {
                Refuse("\"" + name + "\"", "is no section; there are feeds, announcements, parameters and remove");
            }
            ReadRows(*words, rows);
        }
        return std::move(changes_);
    }

private:
    void ReadRemovals(const Json& sections) {
        if (!sections.is_object()) Refuse("remove", "is no object; give for instance {\"feeds\": [\"old\"]}");
        for (const auto& [name, keys] : sections.items()) {
            const TableWords* words = FindSection(name);
            if (words == nullptr || !keys.is_array()) {
                Refuse("remove." + name, "is no list of feeds, announcements or parameters");
            }
            for (u64 i = 0; i < keys.size(); ++i) {
                const std::string place = "remove." + name + "[" + std::to_string(i) + "]";
                const ColumnWords& column = words->columns[static_cast<u32>(words->KeyColumn())];
                if (keys[i].is_null()) Refuse(place, "is null; give the name of the row");
                const std::string key = std::get<std::string>(ParseJson(column, place, keys[i]));
                TakeName(*words, place, key);
                changes_.push_back({words->table.name, Action::Drop, 0, key, {}});
            }
        }
    }

    void ReadRows(const TableWords& words, const Json& rows) {
        if (!rows.is_array()) Refuse(words.plural, "is no list; put the rows between [ and ]");
        for (u64 i = 0; i < rows.size(); ++i) {
            const std::string place = std::string(words.plural) + "[" + std::to_string(i) + "]";
            ReadRow(words, place, rows[i]);
        }
    }

    void ReadRow(const TableWords& words, const std::string& place, const Json& row) {
        if (!row.is_object()) Refuse(place, "is no object; put the columns between { and }");
        Change change{words.table.name, Action::Put, 0, "", {}};
        std::set<int> seen;
        for (const auto& [name, json] : row.items()) {
            const int column = words.Find(name);
            if (column < 0)
                Refuse(place + "." + name,
                       "is no column of a " + std::string(words.noun) + "; there are " + words.Names());
            if (!seen.insert(column).second) Refuse(place + "." + name, "names a column that stands there already");
            Value value = ParseJson(words.columns[static_cast<u32>(column)], place + "." + name, json);
            if (column == words.KeyColumn()) {
                const std::string* key = std::get_if<std::string>(&value);
                change.key = key != nullptr ? *key : "";
            } else {
                change.values.emplace_back(words.table.columns[static_cast<u32>(column)].name, std::move(value));
            }
        }
        const char* keyName = words.columns[static_cast<u32>(words.KeyColumn())].name;
        if (change.key.empty()) Refuse(place, std::string("has no \"") + keyName + "\"; a row is known by it");
        TakeName(words, place, change.key);
        changes_.push_back(std::move(change));
    }

    void TakeName(const TableWords& words, const std::string& place, const std::string& key) {
        if (!names_.insert({words.table.index, FoldKey(words.table, key)}).second) {
            Refuse(place, "\"" + key + "\" stands in the file already; keep one of them");
        }
    }

    std::vector<Change> changes_;
    std::set<std::pair<u32, std::string>> names_;
};

}  // namespace

std::vector<Change> ParseRowFile(const std::string& text) {
    return Reader().Read(Parse(text));
}

Json RowsToJson(const TableWords& words, const std::vector<Row>& rows, bool withId) {
    Json list = Json::array();
    for (const Row& row : rows) list.push_back(RowToJson(words, row, withId));
    return list;
}

}  // namespace Orv
