#include "Tools/orvctl/Connection.h"

#include <cstdio>

#include "ConfigService/AdminProtocol.h"
#include "ConfigService/PasswordInput.h"
#include "ConfigService/Wire.h"
#include "Platform/Diagnosis.h"
#include "Platform/Files.h"
#include "Platform/Path.h"
#include "ServiceProcess/ClientSettings.h"
#include "ServiceProcess/CommonSettings.h"
#include "ServiceProcess/PreloadSettings.h"
#include "Tools/orvctl/Report.h"
#include "Tools/orvctl/SettingsSlips.h"
#include "Tools/orvctl/SettingsText.h"
#include "Tools/orvctl/ToolError.h"

namespace Orv {
namespace {

constexpr char kLocalHost[] = "127.0.0.1";
constexpr u32 kLongestSocketPath = 107;

std::vector<std::string> UsualFiles() {
    return {"/etc/orv/orvctl.ini", "/etc/orv/OrvPhoneSystem.ini",
            Platform::ProgramDataFolder() + "/Orv/Bin/OrvPhoneSystem.ini"};
}

// Empty when none of them exists.
std::string FindUsualFile() {
    for (const std::string& path : UsualFiles()) {
        if (Platform::PathExists(path)) return path;
    }
    return {};
}

[[noreturn]] void NoFile() {
    std::string files;
    for (const std::string& path : UsualFiles()) files += (files.empty() ? "" : ", ") + path;
    throw ToolError(ExitCode::BadCommandLine, "There is no settings file (looked for " + files +
                                                  "); `orvctl setup` makes one on a system that has the packages; name "
                                                  "another one with -c, or give --host, --port, --user and "
                                                  "--password-file");
}

// The connection's part of a settings file; what its reader objects to goes to standard error.
Target ReadSettings(const std::string& path) {
    CommonSettings settings;
    const bool loaded = settings.Load(path.c_str());
    // A later look-up of a missing section would take the messages away.
    if (!loaded) {
        throw ToolError(ExitCode::BadCommandLine,
                        "The settings file " + path + " cannot be opened; check its name and its rights");
    }
    if (!settings.whole) throw ToolError(ExitCode::BadCommandLine, CutShort(path));
    for (const std::string& message : settings.messages) std::fprintf(stderr, "orvctl: %s\n", message.c_str());
    Target target;
    const SettingsValue host = settings.GetValue("[ConfService].confNIC");
    target.host = host.Exists() ? host.AsString() : kLocalHost;
    const i64 port = settings.GetValue("[ConfService].ConfPort").AsInteger();
    target.port = port > 0 && port <= 65535 ? static_cast<u32>(port) : 0;
    target.user = settings.GetValue("[ConfService].confUser").AsString();
    target.password = settings.GetValue("[ConfService].confPass").AsString();
    return target;
}

[[noreturn]] void Missing(const std::string& file, const char* key, const char* option) {
    const std::string where =
        file.empty() ? "give " : "write " + std::string(key) + " under [ConfService] in " + file + ", or give ";
    throw ToolError(ExitCode::BadCommandLine, std::string("There is no usable ") + key + ": " + where + option);
}

void CheckComplete(const Target& target, const std::string& file) {
    if (target.host.empty()) Missing(file, "confNIC", "--host");
    if (target.port == 0) Missing(file, "ConfPort", "--port, a number from 1 to 65535");
    if (target.user.empty()) Missing(file, "confUser", "--user");
    if (target.password.empty()) Missing(file, "confPass", "--password-file");
}

// What the service would only tell its log, or not at all.
void CheckPreload(const std::string& file) {
    CommonSettings settings;
    settings.Load(file.c_str());
    const bool named = settings.GetValue("[General].PreloadFiles").Exists();
    const PreloadSettings preload = ReadPreloadSettings(settings);
    const std::string place = " under [General] in " + file;
    if (!preload.megabytesAreValid) {
        throw ToolError(ExitCode::BadCommandLine, "PreloadMegabytes" + place +
                                                      " is no number of megabytes; write one from 1 to " +
                                                      std::to_string(PreloadSettings::MostMegabytes));
    }
    if (named && preload.names.empty()) {
        throw ToolError(ExitCode::BadCommandLine,
                        "PreloadFiles" + place +
                            " names nothing; name files and folders, each in double quotes, or "
                            "take the line out");
    }
    for (const std::string& name : preload.names) {
        // A relative name depends on where the service runs and on its parameters.
        const bool absolute = name.front() == '/' || name.front() == '\\';
        if (absolute && !Platform::PathExists(Platform::FindOnDisk(name))) {
            throw ToolError(ExitCode::BadCommandLine, "PreloadFiles" + place + " names " + name +
                                                          ", which is not there; correct the name, and put each one "
                                                          "in double quotes of its own");
        }
    }
}

void CheckClients(const std::string& file) {
    CommonSettings settings;
    settings.Load(file.c_str());
    if (ReadClientSettings(settings).stallSecondsAreValid) return;
    throw ToolError(ExitCode::BadCommandLine, "ClientStallSeconds under [General] in " + file +
                                                  " is no number of seconds; write one from 1 to " +
                                                  std::to_string(ClientSettings::MostStallSeconds) +
                                                  ", or take the line out to wait for clients without end");
}

// A path on which the service could not tell its state.
void CheckStatusPath(const std::string& file) {
    CommonSettings settings;
    settings.Load(file.c_str());
    const SettingsValue& value = settings.GetValue("[General].StatusPath");
    if (!value.Exists()) return;
    const std::string path = value.AsString();
    Platform::SystemError error = 0;
    const Platform::SocketState state = Platform::ProbeSocket(path, error);
    const bool relative = path.empty() || path.front() != '/';
    std::string why;
    if (relative) why = "is no whole path";
    if (!relative && state == Platform::SocketState::NotASocket) why = "names " + path + ", which is no socket";
    if (!relative && state == Platform::SocketState::Unreachable && path.size() > kLongestSocketPath) {
        why = "is longer than the " + std::to_string(kLongestSocketPath) + " bytes that a socket's path may have";
    }
    if (why.empty()) return;
    throw ToolError(ExitCode::BadCommandLine, "StatusPath under [General] in " + file + " " + why +
                                                  "; give a path of its own, such as /run/Orv/status/feed");
}

void TellSlips(const std::string& file) {
    CommonSettings settings;
    settings.Load(file.c_str());
    for (const std::string& slip : FindSlips(settings)) {
        std::fprintf(stderr, "orvctl: %s: %s\n", file.c_str(), slip.c_str());
    }
}

ExitCode CodeOf(const std::string& result) {
    if (result == AdminProtocol::ResultNotFound) return ExitCode::NotFound;
    if (result == AdminProtocol::ResultForbidden) return ExitCode::NotAllowed;
    if (result == AdminProtocol::ResultFailed) return ExitCode::ServiceFailed;
    return ExitCode::Refused;
}

}  // namespace

Target FindTarget(const ConnectionOptions& options) {
    const bool needsFile =
        options.port == 0 || options.user.empty() || (options.passwordFile.empty() && !options.configFile.empty());
    std::string file = options.configFile;
    Target target;
    target.host = kLocalHost;
    if (!file.empty() || needsFile) {
        if (file.empty()) file = FindUsualFile();
        if (file.empty()) NoFile();
        target = ReadSettings(file);
    }
    if (!options.host.empty()) target.host = options.host;
    if (options.port != 0) target.port = options.port;
    if (!options.user.empty()) {
        target.user = options.user;
        target.password.clear();
    }
    if (!options.passwordFile.empty() || (!options.user.empty() && target.password.empty())) {
        std::string reason;
        if (!ObtainPassword(options.passwordFile, "Password for " + target.user, false, target.password, reason)) {
            throw ToolError(ExitCode::BadCommandLine, reason);
        }
    }
    CheckComplete(target, file);
    return target;
}

bool IsThisMachine(const std::string& host) {
    return host == "localhost" || host == "::1" || host.rfind("127.", 0) == 0;
}

std::string SettingsFileOf(const ConnectionOptions& options) {
    const std::string file = options.configFile.empty() ? FindUsualFile() : options.configFile;
    if (file.empty()) NoFile();
    return file;
}

std::string CheckSettings(const std::string& path) {
    const std::string file = path.empty() ? FindUsualFile() : path;
    if (file.empty()) NoFile();
    const Target target = ReadSettings(file);
    TellSlips(file);
    CheckComplete(target, file);
    CheckPreload(file);
    CheckClients(file);
    CheckStatusPath(file);
    return file;
}

Connection::Connection(VX::ILinkConnector& connector, const Target& target) : target_(target) {
    bool authFailed = false;
    link_ = connector.Connect(target.host, target.port, target.user + ":" + target.password, *this, peer_, authFailed);
    if (link_ != nullptr) return;
    const std::string place = target.host + ":" + std::to_string(target.port);
    if (authFailed) {
        throw ToolError(ExitCode::WrongCredentials,
                        "The Configuration service at " + place + " refuses user \"" + target.user +
                            "\" with this password; look at confUser and confPass, or give the user a new password "
                            "with: orv-config user passwd " +
                            target.user);
    }
    throw ToolError(ExitCode::CannotConnect, "Nobody answers at " + place +
                                                 "; start the Configuration service (orv-config), or look at confNIC "
                                                 "and ConfPort");
}

VX::ParamListHolder Connection::Call(u32 number, const VX::ParamListHolder& request) {
    VX::ParamListHolder reply;
    if (!link_->Call(number, request, reply)) {
        throw ToolError(ExitCode::ConnectionLost,
                        "The connection to the Configuration service was lost before its answer came; look with "
                        "`orvctl status` whether the change was made");
    }
    std::string result;
    const ApplyResult outcome = ResultFromList(reply, result);
    if (result.empty()) {
        throw ToolError(ExitCode::Refused, "The service at " + target_.host + ":" + std::to_string(target_.port) +
                                               " does not know this command; it may be older than this orvctl");
    }
    if (result == AdminProtocol::ResultOk) return reply;
    std::string text;
    for (const Finding& finding : outcome.errors) text += (text.empty() ? "" : "\n") + FindingText(finding);
    throw ToolError(CodeOf(result), text.empty() ? "The service gave no reason" : text);
}

ApplyResult Connection::Apply(const std::vector<Change>& changes) {
    std::string result;
    return ResultFromList(Call(AdminProtocol::CallApply, ChangesToList(changes)), result);
}

std::vector<Row> Connection::Rows(const Table& table) {
    VX::ParamListHolder request;
    request.NewList();
    VXSetStringValue(request.Get(), "table", table.name);
    std::vector<Row> rows;
    for (const VX::ParamListHolder& list : GetLists(Call(AdminProtocol::CallListRows, request), "rows")) {
        rows.push_back(RowFromList(table, list));
    }
    return rows;
}

Row Connection::FindRow(const Table& table, const std::string& key) {
    VX::ParamListHolder request;
    request.NewList();
    VXSetStringValue(request.Get(), "table", table.name);
    VXSetStringValue(request.Get(), "key", key.c_str());
    const auto lists = GetLists(Call(AdminProtocol::CallListRows, request), "rows");
    if (lists.size() != 1) throw ToolError(ExitCode::Refused, "The service gave no row");
    return RowFromList(table, lists.front());
}

}  // namespace Orv
