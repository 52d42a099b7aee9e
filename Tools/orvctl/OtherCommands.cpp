// Status, settings and users.
#include "ConfigService/AdminProtocol.h"
#include "ConfigService/Credentials.h"
#include "ConfigService/PasswordInput.h"
#include "ConfigService/Wire.h"
#include "Tools/orvctl/Commands.h"
#include "Tools/orvctl/Report.h"
#include "Tools/orvctl/Status.h"
#include "Tools/orvctl/ToolError.h"

namespace Orv {
namespace {

VX::ParamListHolder NewRequest() {
    VX::ParamListHolder request;
    request.NewList();
    return request;
}

struct Peer {
    std::string user;
    std::string remote;
    std::string since;
};

// Without the connection that asks.
std::vector<Peer> PeersOf(const VX::ParamListHolder& status) {
    std::vector<Peer> peers;
    for (const VX::ParamListHolder& peer : GetLists(status, "peers")) {
        if (VXGetInt32Value(peer.Get(), "own") != 0) continue;
        peers.push_back({GetText(peer, "user"), GetText(peer, "remote"), GetText(peer, "since")});
    }
    return peers;
}

std::string NewPassword(const TypedUser& typed) {
    std::string password;
    std::string reason;
    if (!ObtainPassword(typed.newPasswordFile, "New password for " + typed.name, true, password, reason)) {
        throw ToolError(ExitCode::BadCommandLine, reason);
    }
    // Looked at here as well: a NUL would cut it on its way.
    reason = WhyPasswordRefused(password);
    if (!reason.empty()) throw ToolError(ExitCode::Refused, "user \"" + typed.name + "\", password: " + reason);
    return password;
}

void CallUser(const CommandContext& context, u32 number, const TypedUser& typed, const std::string* password,
              const std::string& done) {
    const VX::ParamListHolder request = NewRequest();
    VXSetStringValue(request.Get(), "name", typed.name.c_str());
    if (!typed.role.empty()) VXSetStringValue(request.Get(), "role", typed.role.c_str());
    if (password != nullptr) VXSetStringValue(request.Get(), "password", password->c_str());
    context.Connect().Call(number, request);
    if (context.options.json) return PrintJson(Json{{"user", TextToJson(typed.name)}, {"change", done}});
    Print("User \"" + typed.name + "\" " + done + ". It counts from the next login on.\n");
}

Json UsersToJson(const VX::ParamListHolder& reply) {
    Json users = Json::array();
    for (const VX::ParamListHolder& user : GetLists(reply, "users")) {
        users.push_back({{"name", TextToJson(GetText(user, "name"))}, {"role", GetText(user, "role")}});
    }
    return users;
}

}  // namespace

ConfigStatus FetchConfigStatus(const CommandContext& context) {
    const VX::ParamListHolder status = context.Connect().Call(AdminProtocol::CallStatus, NewRequest());
    const VX::ParamListHolder tables = status.GetHandle("tables");
    const std::vector<Peer> peers = PeersOf(status);
    const i64 transaction = VXGetInt64Value(status.Get(), "transaction");
    ConfigStatus result;
    result.json = {{"version", GetText(status, "version")},
                   {"database", TextToJson(GetText(status, "database"))},
                   {"started", GetText(status, "started")},
                   {"transaction", transaction},
                   {"tables", Json::object()},
                   {"peers", Json::array()}};
    std::vector<std::vector<std::string>> lines = {{"TABLE", "ROWS"}};
    for (const Table& table : Tables()) {
        const i32 rows = VXGetInt32Value(tables.Get(), table.name);
        result.json["tables"][table.name] = rows;
        lines.push_back({table.name, std::to_string(rows)});
    }
    result.text = AlignTable({{"Version", GetText(status, "version")},
                              {"Database", GetText(status, "database")},
                              {"Running since", GetText(status, "started")},
                              {"Last transaction", std::to_string(transaction)}}) +
                  "\n" + AlignTable(lines);
    lines = {{"CONNECTED USER", "ADDRESS", "SINCE"}};
    for (const Peer& peer : peers) {
        result.json["peers"].push_back(
            {{"user", TextToJson(peer.user)}, {"address", peer.remote}, {"since", peer.since}});
        lines.push_back({peer.user, peer.remote, peer.since});
    }
    result.text += peers.empty()
                       ? "\nNo other program is connected. The audio feed service takes changes only while it is.\n"
                       : "\n" + AlignTable(lines);
    return result;
}

void CheckSettingsFile(const CommandContext& context, const std::string& path) {
    const std::string file = CheckSettings(path.empty() ? context.options.configFile : path);
    Print("The settings file " + file + " has all that a connection needs.\n");
}

void ListUsers(const CommandContext& context) {
    const Json users = UsersToJson(context.Connect().Call(AdminProtocol::CallListUsers, NewRequest()));
    if (context.options.json) return PrintJson(users);
    std::vector<std::vector<std::string>> lines = {{"USER", "ROLE"}};
    for (const Json& user : users) {
        const Json& name = user["name"];
        lines.push_back({name.is_string() ? name.get<std::string>() : name.dump(), user["role"].get<std::string>()});
    }
    Print(AlignTable(lines));
}

void ShowUser(const CommandContext& context, const std::string& name) {
    const Json users = UsersToJson(context.Connect().Call(AdminProtocol::CallListUsers, NewRequest()));
    for (const Json& user : users) {
        if (user["name"] != TextToJson(name)) continue;
        if (context.options.json) return PrintJson(user);
        return Print(AlignTable({{"name", name}, {"role", user["role"].get<std::string>()}}));
    }
    throw ToolError(ExitCode::NotFound, "user \"" + name + "\": does not exist");
}

void AddUser(const CommandContext& context, const TypedUser& typed) {
    const std::string reason = WhyUserNameRefused(typed.name);
    if (!reason.empty()) throw ToolError(ExitCode::Refused, "user \"" + typed.name + "\", name: " + reason);
    const std::string password = NewPassword(typed);
    CallUser(context, AdminProtocol::CallAddUser, typed, &password, "added");
}

void SetUser(const CommandContext& context, const TypedUser& typed) {
    const bool changesPassword = typed.newPassword || !typed.newPasswordFile.empty();
    if (!changesPassword && typed.role.empty()) {
        throw ToolError(ExitCode::BadCommandLine, "Nothing to set; give --role, --new-password or --new-password-file");
    }
    std::string password;
    if (changesPassword) password = NewPassword(typed);
    CallUser(context, AdminProtocol::CallSetUser, typed, changesPassword ? &password : nullptr, "changed");
}

void RemoveUser(const CommandContext& context, const std::string& name) {
    CallUser(context, AdminProtocol::CallRemoveUser, {name, "", "", false}, nullptr, "removed");
}

}  // namespace Orv
