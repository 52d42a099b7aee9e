#include <cstdio>

#include "Platform/PrivateFile.h"
#include "Projects/Common/VoIPFileEngine/ContentCheck.h"
#include "Tools/orvctl/Commands.h"
#include "Tools/orvctl/Report.h"
#include "Tools/orvctl/RowFile.h"
#include "Tools/orvctl/ToolError.h"

namespace Orv {
namespace {

constexpr u64 kLargestFile = 32u << 20;

// Tells what a transaction has changed, and when it is heard.
void TellResult(const CommandContext& context, const ApplyResult& result) {
    for (const Finding& warning : result.warnings) {
        std::fprintf(stderr, "orvctl: warning: %s\n", FindingText(warning).c_str());
    }
    if (context.options.json) {
        Json json = {{"transaction", result.transaction}, {"changed", Json::array()}, {"warnings", Json::array()}};
        for (const RowChange& change : result.changed) json["changed"].push_back(ChangeToJson(change));
        for (const Finding& warning : result.warnings) json["warnings"].push_back(FindingToJson(warning));
        PrintJson(json);
        return;
    }
    if (result.changed.empty()) Print("Nothing to change: all of it is so already.\n");
    for (const RowChange& change : result.changed) {
        std::string text = ChangeText(change) + ".\n";
        text[0] = static_cast<char>(text[0] >= 'a' && text[0] <= 'z' ? text[0] - 'a' + 'A' : text[0]);
        for (const std::string& sentence : HeardWhen(change)) text += "  " + sentence + "\n";
        Print(text);
    }
}

// A file that cannot be played is taken all the same: it may come later, or be held in memory. Relative names depend on
// where the service runs.
void WarnOfFiles(const Connection& connection, const std::vector<Change>& changes) {
    if (!connection.IsToThisMachine()) return;
    for (const Change& change : changes) {
        const bool isDefaultFile = change.table == Tables()[Parameter].name && change.key == "DEFAULTAUDIOFILE";
        if (!isDefaultFile && change.table != Tables()[Announcement].name) continue;
        for (const auto& [column, value] : change.values) {
            const auto* file = std::get_if<std::string>(&value);
            if (column != (isDefaultFile ? "value" : "thefile") || file == nullptr || !file->starts_with('/')) continue;
            if (const std::string why = WhyNotPlayable(*file); !why.empty()) {
                std::fprintf(stderr, "orvctl: warning: \"%s\" does not play as it stands: %s\n", file->c_str(),
                             why.c_str());
            }
        }
    }
}

Change ChangeOf(const TableWords& words, Action action, const TypedRow& typed) {
    Change change{words.table.name, action, 0, typed.key, {}};
    for (const auto& [column, text] : typed.values) {
        const ColumnWords& column_words = words.columns[static_cast<u32>(column)];
        change.values.emplace_back(words.table.columns[static_cast<u32>(column)].name,
                                   ParseTyped(column_words, std::string("--") + column_words.name, text));
    }
    for (const std::string& name : typed.unset) {
        const int column = words.Find(name);
        if (column < 0) {
            throw ToolError(ExitCode::BadCommandLine, "--unset " + name + ": is no column of a " +
                                                          std::string(words.noun) + "; there are " + words.Names());
        }
        change.values.emplace_back(words.table.columns[static_cast<u32>(column)].name, Value());
    }
    return change;
}

}  // namespace

void Print(const std::string& text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
        throw ToolError(ExitCode::BadCommandLine, "Standard output takes no more");
    }
}

void PrintJson(const Json& json) {
    Print(json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

void ListRows(const CommandContext& context, const TableWords& words) {
    const std::vector<Row> rows = context.Connect().Rows(words.table);
    if (context.options.json) return PrintJson(RowsToJson(words, rows, true));
    if (rows.empty()) return Print(std::string("There are no ") + words.plural + ".\n");
    std::vector<std::vector<std::string>> lines(1);
    for (const ColumnWords& column : words.columns) lines[0].push_back(column.heading);
    for (const Row& row : rows) {
        std::vector<std::string> line;
        for (u32 i = 0; i < words.columns.size(); ++i) line.push_back(ValueToText(words.columns[i], row.values[i]));
        lines.push_back(std::move(line));
    }
    Print(AlignTable(lines));
}

void ShowRow(const CommandContext& context, const TableWords& words, const std::string& key) {
    const Row row = context.Connect().FindRow(words.table, key);
    if (context.options.json) return PrintJson(RowToJson(words, row, true));
    std::vector<std::vector<std::string>> lines = {{"id", std::to_string(row.id)}};
    for (u32 i = 0; i < words.columns.size(); ++i) {
        lines.push_back({words.columns[i].name, ValueToText(words.columns[i], row.values[i])});
    }
    Print(AlignTable(lines));
}

void ChangeRow(const CommandContext& context, const TableWords& words, Action action, const TypedRow& typed) {
    const Change change = ChangeOf(words, action, typed);
    if (action == Action::Set && change.values.empty()) {
        throw ToolError(ExitCode::BadCommandLine, "Nothing to set; name at least one column, or --unset");
    }
    Connection connection = context.Connect();
    TellResult(context, connection.Apply({change}));
    WarnOfFiles(connection, {change});
}

void ApplyFile(const CommandContext& context, const std::string& path) {
    std::string text;
    Platform::SystemError error = 0;
    if (!Platform::ReadWholeFile(path, kLargestFile, text, error)) {
        throw ToolError(ExitCode::BadCommandLine,
                        "The file " + path + " cannot be read: " + Platform::ReadErrorText(error));
    }
    const std::vector<Change> changes = ParseRowFile(text);
    Connection connection = context.Connect();
    TellResult(context, connection.Apply(changes));
    WarnOfFiles(connection, changes);
}

void ExportRows(const CommandContext& context) {
    Connection connection = context.Connect();
    Json json = Json::object();
    for (const TableWords& words : AdministeredTables()) {
        json[words.plural] = RowsToJson(words, connection.Rows(words.table), false);
    }
    PrintJson(json);
}

}  // namespace Orv
