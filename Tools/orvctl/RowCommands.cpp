#include <algorithm>
#include <cstdio>
#include <map>
#include <utility>

#include "Platform/Diagnosis.h"
#include "Platform/Path.h"
#include "Platform/PrivateFile.h"
#include "Projects/Common/VoIPFileEngine/ContentCheck.h"
#include "Tools/orvctl/Commands.h"
#include "Tools/orvctl/ImportTarget.h"
#include "Tools/orvctl/Report.h"
#include "Tools/orvctl/RowFile.h"
#include "Tools/orvctl/ToolError.h"

namespace Orv {
namespace {

constexpr u64 kLargestFile = 32u << 20;

void Warn(const std::string& text) {
    std::fprintf(stderr, "orvctl: warning: %s\n", text.c_str());
}

// Tells what a transaction has changed, and when it is heard.
void TellResult(const CommandContext& context, const ApplyResult& result) {
    for (const Finding& warning : result.warnings) {
        Warn(FindingText(warning));
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

// Relative names depend on where the service runs.
void WarnOfFiles(const std::vector<Change>& changes) {
    for (const Change& change : changes) {
        const bool isDefaultFile = change.table == Tables()[Parameter].name && change.key == "DEFAULTAUDIOFILE";
        if (!isDefaultFile && change.table != Tables()[Announcement].name) continue;
        for (const auto& [column, value] : change.values) {
            const auto* file = std::get_if<std::string>(&value);
            if (column != (isDefaultFile ? "value" : "thefile") || file == nullptr || !file->starts_with('/')) continue;
            if (const std::string why = WhyNotPlayable(*file); !why.empty()) {
                Warn("\"" + *file + "\" does not play as it stands: " + why);
            }
        }
    }
}

bool MayMoveFeed(const Change& change) {
    return change.table == Tables()[AudioFeed].name &&
           std::any_of(change.values.begin(), change.values.end(),
                       [](const auto& value) { return value.first == "thename" || value.first == "feedtype"; });
}

std::string KeyAfter(const Change& change) {
    for (const auto& [column, value] : change.values) {
        const auto* name = std::get_if<std::string>(&value);
        if (column == "pipename" && name != nullptr) return *name;
    }
    return change.key;
}

void WarnOfFolder(const Row& feed, const std::string& root) {
    if (!PlaysFolder(feed) || feed.Text(FeedColumn::TheName).empty()) return;
    const std::string name = feed.Text(FeedColumn::PipeName);
    const std::string folder = "\"" + FeedFolder(feed, root) + "\"";
    const std::string nothing = "feed \"" + name + "\" has no files to play as it stands: " + folder;
    switch (Platform::ProbeFolder(FeedFolder(feed, root))) {
        case Platform::FolderState::Missing:
            return Warn(nothing + " is missing on this machine; put .wav files there, or: orvctl import FILE --feed " +
                        name);
        case Platform::FolderState::NotAFolder:
            return Warn(nothing + " is no folder; name another one with: orvctl feed set " + name + " --folder NAME");
        case Platform::FolderState::NotReadable:
            return Warn("whether feed \"" + name + "\" has files to play is not known: " + folder +
                        " may not be read by this user; `orvctl doctor` as root looks with the service's rights");
        case Platform::FolderState::NotWritable:
        case Platform::FolderState::Usable:
            return;
    }
}

void WarnOfFolders(const CommandContext& context, Connection& connection, const std::vector<Change>& changes) {
    if (std::none_of(changes.begin(), changes.end(), MayMoveFeed)) return;
    const std::string root =
        PromptsRoot(connection.Rows(Tables()[Parameter]), FindPromptSettings(context.options.configFile));
    std::map<std::string, Row> feeds;
    for (Row& feed : connection.Rows(Tables()[AudioFeed])) {
        feeds.emplace(Platform::LowerAscii(feed.Text(FeedColumn::PipeName)), std::move(feed));
    }
    for (const Change& change : changes) {
        const auto feed = feeds.find(Platform::LowerAscii(KeyAfter(change)));
        if (MayMoveFeed(change) && feed != feeds.end()) WarnOfFolder(feed->second, root);
    }
}

// What cannot be played is taken all the same: it may come later, be held in memory, or lie where the service runs.
void WarnOfContent(const CommandContext& context, Connection& connection, const std::vector<Change>& changes) {
    if (!connection.IsToThisMachine()) return;
    WarnOfFiles(changes);
    try {
        WarnOfFolders(context, connection, changes);
    } catch (const ToolError&) {
        // The change is made; where the folders lie is not to be found out from here.
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
    WarnOfContent(context, connection, {change});
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
    WarnOfContent(context, connection, changes);
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
