#include "Tools/orvctl/Report.h"

#include <algorithm>
#include <string_view>

#include "ConfigService/Validation.h"

namespace Orv {
namespace {

using ColumnNames = std::initializer_list<std::string_view>;

bool Holds(const ColumnNames& columns, const std::string& column) {
    return std::find(columns.begin(), columns.end(), column) != columns.end();
}

bool Touches(const RowChange& change, const ColumnNames& columns) {
    return std::any_of(change.columns.begin(), change.columns.end(),
                       [&](const std::string& column) { return Holds(columns, column); });
}

// The same without the columns that read as before, by which a feed is not built anew.
bool TouchesReading(const RowChange& change, const ColumnNames& columns) {
    return std::any_of(change.columns.begin(), change.columns.end(), [&](const std::string& column) {
        return Holds(columns, column) &&
               std::find(change.alike.begin(), change.alike.end(), column) == change.alike.end();
    });
}

bool Rebuilt(const RowChange& change) {
    return change.kind[0] == 'R';
}
bool Deleted(const RowChange& change) {
    return change.kind[0] == 'D';
}
bool Inserted(const RowChange& change) {
    return change.kind[0] == 'I';
}

std::vector<std::string> FeedHeard(const RowChange& change) {
    if (Deleted(change)) return {"At once: its pipe is gone and its clients see the end."};
    if (Inserted(change)) return {"At once: its pipe is there."};
    if (Rebuilt(change) ||
        TouchesReading(change, {"pipename", "thename", "feedtype", "playannouncements", "nonstop"})) {
        return {"At once: the feed is built anew, so its clients see the end of the pipe and have to connect again."};
    }
    const bool pauses = Touches(change, {"minannouncementpause", "maxannouncementpause"});
    std::vector<std::string> heard;
    if (Touches(change, {"maxvolume", "autogain"}) || !pauses) {
        heard.push_back("At once: the feed goes on with its next file; its clients stay connected.");
    }
    if (pauses) {
        if (heard.empty()) heard.push_back("At once the feed goes on with its next file, still with the old pauses.");
        heard.push_back(
            "The new pauses count from the feed's next rebuild: change its pipe, folder, type, announcements or "
            "nonstop, or ask for it with `orvctl feed rebuild " +
            change.key + "`.");
    }
    return heard;
}

std::vector<std::string> AnnouncementHeard(const RowChange& change) {
    if (Deleted(change)) return {"At once: it is drawn no more; one that plays now plays to its end."};
    std::vector<std::string> heard = {"At once: from the next announcement on."};
    if (change.oldKey != change.key) {
        heard.push_back("Under its old name \"" + change.oldKey +
                        "\" it is drawn as before until the audio feed service's next start.");
    }
    return heard;
}

std::string ParameterHeardWhen(const std::string& name) {
    if (!IsKnownParameter(name)) return "Never: the audio feed service reads no parameter of that name.";
    if (name == "IVRPROMPTPATH") return "At once: each feed looks into the new folder at its next playlist.";
    if (name == "DEFAULTAUDIOFILE") {
        return "At once, unless it is empty: the default stream plays it, and a folder feed without files takes it at "
               "its next playlist.";
    }
    return "At once.";
}

std::vector<std::string> ParameterHeard(const RowChange& change) {
    if (Deleted(change) && IsKnownParameter(change.key)) {
        return {"At the audio feed service's next start; until then the last value stays in force."};
    }
    std::vector<std::string> heard = {ParameterHeardWhen(change.key)};
    if (change.oldKey != change.key && IsKnownParameter(change.oldKey)) {
        heard.push_back("What \"" + change.oldKey +
                        "\" has set stays in force until the audio feed service's next start.");
    }
    return heard;
}

const char* Verb(const RowChange& change) {
    if (Rebuilt(change)) return "rebuilt";
    return Deleted(change) ? "removed" : Inserted(change) ? "added" : "changed";
}

std::string Noun(const std::string& table) {
    for (const TableWords& words : AdministeredTables()) {
        if (table == words.table.name) return words.noun;
    }
    return table;
}

u64 Characters(const std::string& text) {
    return static_cast<u64>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

}  // namespace

std::vector<std::string> HeardWhen(const RowChange& change) {
    switch (change.table) {
        case AudioFeed:
            return FeedHeard(change);
        case Announcement:
            return AnnouncementHeard(change);
        case Parameter:
            return ParameterHeard(change);
        default:
            return {"Never: no program plays by this table."};
    }
}

std::string ChangeText(const RowChange& change) {
    std::string text = Noun(Tables()[change.table].name) + " \"" + change.key + "\" " + Verb(change);
    if (change.kind[0] == 'U' && change.oldKey != change.key) text += " (was \"" + change.oldKey + "\")";
    return text;
}

std::string FindingText(const Finding& finding) {
    std::string text = finding.table.empty() ? "" : Noun(finding.table) + " ";
    if (!finding.key.empty()) text += "\"" + finding.key + "\"";
    if (!finding.field.empty()) {
        std::string field = finding.field;
        if (const Table* table = FindTable(finding.table); table != nullptr && table->keyColumn != nullptr) {
            const TableWords& words = WordsOf(*table);
            const int column = words.Find(field);
            if (column >= 0) field = std::string("--") + words.columns[static_cast<u32>(column)].name;
        }
        text += (text.empty() ? "" : ", ") + field;
    }
    return text.empty() ? finding.text : text + ": " + finding.text;
}

Json ChangeToJson(const RowChange& change) {
    Json json = {{"kind", Noun(Tables()[change.table].name)},
                 {"id", change.id},
                 {"name", TextToJson(change.key)},
                 {"change", Verb(change)}};
    if (change.oldKey != change.key) json["was"] = TextToJson(change.oldKey);
    json["columns"] = change.columns;
    json["heard"] = HeardWhen(change);
    return json;
}

Json FindingToJson(const Finding& finding) {
    return {{"kind", Noun(finding.table)},
            {"name", TextToJson(finding.key)},
            {"field", finding.field},
            {"text", TextToJson(finding.text)}};
}

std::string AlignTable(const std::vector<std::vector<std::string>>& lines) {
    std::vector<u64> widths;
    for (const auto& line : lines) {
        widths.resize(std::max(widths.size(), line.size()));
        for (u64 i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], Characters(line[i]));
    }
    std::string text;
    for (const auto& line : lines) {
        for (u64 i = 0; i < line.size(); ++i) {
            text += line[i];
            if (i + 1 < line.size()) text.append(widths[i] - Characters(line[i]) + 2, ' ');
        }
        text += '\n';
    }
    return text;
}

}  // namespace Orv
