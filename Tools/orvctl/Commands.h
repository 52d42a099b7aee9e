// The commands of orvctl. Each connects, does its work, prints to standard output and returns; what goes wrong is
// thrown as ToolError.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "Tools/orvctl/Columns.h"
#include "Tools/orvctl/Connection.h"

namespace VX {
class ILinkConnector;
}

namespace Orv {

// What every command gets.
struct CommandContext {
    ConnectionOptions options;
    VX::ILinkConnector* connector = nullptr;

    Connection Connect() const { return Connection(*connector, FindTarget(options)); }
};

// --- rows ------------------------------------------------------------------------------------------------------------

// What was typed for a row: column numbers with the option they came by and the text, and columns to make absent.
struct TypedRow {
    std::string key;
    std::vector<std::pair<int, std::string>> values;
    std::vector<std::string> unset;
};

void ListRows(const CommandContext& context, const TableWords& words);
void ShowRow(const CommandContext& context, const TableWords& words, const std::string& key);
void ChangeRow(const CommandContext& context, const TableWords& words, Action action, const TypedRow& typed);

// --- files -----------------------------------------------------------------------------------------------------------

// "-" for standard input.
void ApplyFile(const CommandContext& context, const std::string& path);
void ExportRows(const CommandContext& context);

// --- the rest --------------------------------------------------------------------------------------------------------

// The Configuration service and, if the settings say where it tells its state, the audio feed service.
void ShowStatus(const CommandContext& context);
// The latter alone, anew twice a second, until the process is ended.
void WatchStatus(const CommandContext& context);
// Looks for whatever keeps feeds from being heard, and says how to mend it. The exit code: 0 nothing wrong, 1 warnings
// only, 2 faults.
int RunDoctor(const CommandContext& context);
void CheckSettingsFile(const CommandContext& context, const std::string& path);

struct TypedUser {
    std::string name;
    std::string role;             // empty: not given
    std::string newPasswordFile;  // empty: not given, or to be asked for
    bool newPassword = false;     // ask for a new one
};
void ListUsers(const CommandContext& context);
void ShowUser(const CommandContext& context, const std::string& name);
void AddUser(const CommandContext& context, const TypedUser& typed);
void SetUser(const CommandContext& context, const TypedUser& typed);
void RemoveUser(const CommandContext& context, const std::string& name);

// Prints to standard output.
void Print(const std::string& text);
void PrintJson(const Json& json);

}  // namespace Orv
