#include "Tools/orvctl/Setup.h"

#include <cstdio>
#include <memory>

#include "ConfigService/Store.h"
#include "ConfigService/Users.h"
#include "Platform/Files.h"
#include "Platform/PrivateFile.h"
#include "Platform/Random.h"
#include "Platform/ServiceManager.h"
#include "Platform/Thread.h"
#include "ServiceProcess/CommonSettings.h"
#include "Tools/orvctl/Report.h"
#include "Tools/orvctl/SettingsText.h"
#include "Tools/orvctl/ToolError.h"

namespace Orv {
namespace {

constexpr u64 kLargestSettings = 1 << 20;
constexpr char kLocalHost[] = "127.0.0.1";
constexpr char kDefaultFileParameter[] = "DEFAULTAUDIOFILE";
constexpr char kFirstFeed[] = "default";
constexpr u32 kFirstFeedMilliseconds = 10'000;
constexpr u32 kLookMilliseconds = 50;

// A user of the Configuration service with the settings file that holds its password.
struct Account {
    const char* user;
    Role role;
    const char* file;
    Platform::FileReaders readers;
    bool ofService;
};
constexpr Account kService = {"feeder", Role::Reader, "/etc/orv/OrvPhoneSystem.ini", Platform::FileReaders::Group,
                              true};
constexpr Account kAdministrator = {"admin", Role::Admin, "/etc/orv/orvctl.ini", Platform::FileReaders::Owner, false};

[[noreturn]] void Fail(const std::string& text, ExitCode code = ExitCode::BadCommandLine) {
    throw ToolError(code, text);
}

std::string ErrorText(Platform::SystemError error) {
    return Platform::SystemErrorText(error) + "; run this as root";
}

// 160 bits of the system's random device.
std::string NewPassword() {
    std::string password;
    for (int i = 0; i < 5; ++i) {
        char part[9];
        std::snprintf(part, sizeof part, "%08x", Platform::RandomSeed());
        password += part;
    }
    return password;
}

class Setup {
public:
    Setup(VX::ILinkConnector& connector, const SetupOptions& options) : connector_(connector), options_(options) {
        if (!options_.root.empty() && options_.root.back() == '/') options_.root.pop_back();
    }

    SetupReport Run() {
        CheckInstallation();
        FindPort();
        OpenDatabase();
        const std::string password = MakeAccount(kAdministrator);
        MakeAccount(kService);
        MakeRows(password);
        return std::move(report_);
    }

private:
    std::string Path(const std::string& path) const { return options_.root + path; }

    void CheckInstallation() const {
        const struct {
            const char* path;
            const char* package;
        } needed[] = {{"/etc/orv", "orv-audio-feed"}, {"/var/lib/Orv/Config", "orv-config"}};
        for (const auto& [path, package] : needed) {
            if (!Platform::PathExists(Path(path))) {
                Fail("There is no folder " + Path(path) + "; install the package " + package + ", which makes it");
            }
        }
        if (!Platform::PathExists(Path(options_.defaultFile))) {
            Fail("There is no sound file " + Path(options_.defaultFile) +
                 " for the default stream; name one with --default-file, or install the package orv-audio-feed");
        }
    }

    static void LoadWhole(CommonSettings& settings, const std::string& path) {
        if (!settings.Load(path.c_str())) Fail("The settings file " + path + " cannot be opened; run this as root");
        if (!settings.whole) Fail(CutShort(path));
    }

    // Both files must name the port on which the one service listens.
    void FindPort() {
        port_ = options_.port;
        for (const Account* account : {&kService, &kAdministrator}) {
            const std::string path = Path(account->file);
            CommonSettings settings;
            if (!Platform::PathExists(path)) continue;
            LoadWhole(settings, path);
            const i64 port = settings.GetValue("[ConfService].ConfPort").AsInteger();
            if (port <= 0 || port > 65535)
                Fail("There is no usable ConfPort under [ConfService] in " + path + Mend(path));
            if (port_ != 0 && port != port_) {
                Fail("ConfPort in " + path + " is " + std::to_string(port) + ", elsewhere it is " +
                     std::to_string(port_) + "; write the port of the Configuration service there");
            }
            port_ = static_cast<u32>(port);
        }
        if (port_ == 0) port_ = SetupPort;
    }

    // The lock is there when no service serves the database.
    void OpenDatabase() {
        database_ = Path("/var/lib/Orv/Config/orv-config.db");
        Platform::SystemError error = 0;
        const bool isNew = !Platform::PathExists(database_);
        lock_ = Platform::TryLockFile(database_, error);
        if (lock_ == nullptr && error != Platform::FileLockedError()) {
            Fail("The database " + database_ + " cannot be opened: " + ErrorText(error));
        }
        // Before SQLite makes files beside it, which get the owner that it has.
        if (!Platform::GiveToFolderOwner(database_, error)) {
            Fail("The database " + database_ +
                 " cannot be given to the user of the Configuration service: " + ErrorText(error));
        }
        if (isNew) report_.made.push_back("Database " + database_);
        std::string reason;
        users_ = Users::Open(database_, reason);
        if (users_ == nullptr) Fail(reason);
    }

    // Brings the user and its settings file together. The user's password.
    std::string MakeAccount(const Account& account) {
        const std::string path = Path(account.file);
        if (!Platform::PathExists(path)) return WriteNewAccount(account, path);
        CommonSettings settings;
        LoadWhole(settings, path);
        const std::string user = settings.GetValue("[ConfService].confUser").AsString();
        const std::string password = settings.GetValue("[ConfService].confPass").AsString();
        if (user.empty()) Fail("There is no confUser under [ConfService] in " + path + Mend(path));
        if (options_.newPasswords) return RenewPassword(account, path, user);
        if (password.empty()) {
            Fail("There is no confPass under [ConfService] in " + path +
                 "; write it there, or run this with --new-passwords");
        }
        report_.kept.push_back("Settings file " + path);
        const std::string hash = users_->FindHash(user);
        if (!users_->FindRole(user)) {
            Check(users_->Add(user, account.role, password), user);
            report_.made.push_back("User " + user + ", role " + RoleName(account.role) + ", with the password of " +
                                   path);
        } else if (!users_->Verify(hash, password)) {
            Fail("User \"" + user + "\" has another password than " + path +
                     " says; write the right one there, or run this with --new-passwords",
                 ExitCode::WrongCredentials);
        } else {
            report_.kept.push_back("User " + user);
        }
        CheckRole(account, user);
        return password;
    }

    std::string WriteNewAccount(const Account& account, const std::string& path) {
        const std::string password = NewPassword();
        GivePassword(account, account.user, password);
        CheckRole(account, account.user);
        Write(account, path, NewSettingsText(account.ofService, port_, account.user, password));
        report_.made.push_back("Settings file " + path);
        return password;
    }

    std::string RenewPassword(const Account& account, const std::string& path, const std::string& user) {
        const std::string password = NewPassword();
        std::string text;
        Platform::SystemError error = 0;
        if (!Platform::ReadWholeFile(path, kLargestSettings, text, error)) {
            Fail("The settings file " + path + " cannot be read: " + ErrorText(error));
        }
        GivePassword(account, user, password);
        CheckRole(account, user);
        Write(account, path, ReplacePassword(text, password));
        report_.made.push_back("New password in " + path);
        return password;
    }

    void GivePassword(const Account& account, const std::string& user, const std::string& password) {
        const bool there = users_->FindRole(user).has_value();
        Check(there ? users_->SetPassword(user, password) : users_->Add(user, account.role, password), user);
        report_.made.push_back(there ? "New password of user " + user
                                     : "User " + user + ", role " + std::string(RoleName(account.role)));
    }

    // An administrator that may only read could do nothing; a service that may change everything should not.
    void CheckRole(const Account& account, const std::string& user) const {
        if (account.role != Role::Admin || users_->FindRole(user) == Role::Admin) return;
        Fail("User \"" + user + "\" of " + Path(account.file) +
                 " is no administrator; name one there, or move that file away and run this again",
             ExitCode::Refused);
    }

    void Write(const Account& account, const std::string& path, const std::string& text) const {
        Platform::SystemError error = 0;
        if (!Platform::ReplaceFile(path, text, account.readers, error)) {
            Fail("The settings file " + path + " cannot be written: " + ErrorText(error));
        }
    }

    static void Check(const UserResult& result, const std::string& user) {
        if (result.outcome == UserOutcome::Done) return;
        Fail("user \"" + user + "\"" + (result.field.empty() ? "" : ", " + result.field) + ": " + result.text,
             result.outcome == UserOutcome::Failed ? ExitCode::ServiceFailed : ExitCode::Refused);
    }

    static std::string Mend(const std::string& path) {
        return "; write it there, or move " + path + " away and run this again";
    }

    // The first feed and the default sound. A running service keeps the tables in memory, so it is asked to do it.
    void MakeRows(const std::string& adminPassword) {
        if (lock_ == nullptr) {
            CommonSettings settings;
            settings.Load(Path(kAdministrator.file).c_str());
            Connection connection(
                connector_, {kLocalHost, port_, settings.GetValue("[ConfService].confUser").AsString(), adminPassword});
            const auto changes =
                MissingRows(connection.Rows(Tables()[AudioFeed]), connection.Rows(Tables()[Parameter]));
            if (!changes.empty()) connection.Apply(changes);
            return;
        }
        std::string reason;
        const auto store = Store::Open(database_, reason);
        if (store == nullptr) Fail(reason);
        const auto changes = MissingRows(store->Rows(Tables()[AudioFeed]), store->Rows(Tables()[Parameter]));
        if (changes.empty()) return;
        const ApplyResult result = store->Apply(changes);
        if (result.outcome == Outcome::Done) return;
        std::string text;
        for (const Finding& finding : result.errors) text += (text.empty() ? "" : "\n") + FindingText(finding);
        Fail(text, result.outcome == Outcome::Failed ? ExitCode::ServiceFailed : ExitCode::Refused);
    }

    std::vector<Change> MissingRows(const std::vector<Row>& feeds, const std::vector<Row>& parameters) {
        std::vector<Change> changes;
        bool hasDefaultFile = false;
        for (const Row& row : parameters) {
            hasDefaultFile = hasDefaultFile || row.Text(ParameterColumn::Name) == kDefaultFileParameter;
        }
        if (hasDefaultFile) {
            report_.kept.push_back(std::string("Parameter ") + kDefaultFileParameter);
        } else {
            changes.push_back(
                {Tables()[Parameter].name, Action::Add, 0, kDefaultFileParameter, {{"value", options_.defaultFile}}});
            report_.made.push_back(std::string("Parameter ") + kDefaultFileParameter + ", " + options_.defaultFile);
        }
        if (!feeds.empty()) {
            report_.kept.push_back("Feeds: " + std::to_string(feeds.size()));
        } else {
            changes.push_back({Tables()[AudioFeed].name,
                               Action::Add,
                               0,
                               kFirstFeed,
                               {{"thename", std::string(kFirstFeed)}, {"feedtype", 0}}});
            report_.made.push_back(std::string("Feed ") + kFirstFeed + ", which plays the default stream");
            report_.madeFeed = true;
        }
        return changes;
    }

    VX::ILinkConnector& connector_;
    SetupOptions options_;
    u32 port_ = 0;
    std::string database_;
    SetupReport report_;
    // The database is closed before the lock on it is let go.
    std::unique_ptr<Platform::IFileLock> lock_;
    std::unique_ptr<Users> users_;
};

// The service counts as started before it has its tables. Whether the first feed came within some seconds.
bool WaitForFirstFeed() {
    CommonSettings settings;
    settings.Load(kService.file);
    const std::string pipe = settings.GetValue("[General].PipePath").AsString() + "/" + kFirstFeed;
    for (u32 waited = 0; !Platform::PathExists(pipe); waited += kLookMilliseconds) {
        if (waited >= kFirstFeedMilliseconds) return false;
        Platform::SleepMilliseconds(kLookMilliseconds);
    }
    return true;
}

Json ToJson(const SetupReport& report, const char* services) {
    Json json = {{"made", Json::array()}, {"kept", Json::array()}, {"services", services}};
    for (const std::string& line : report.made) json["made"].push_back(TextToJson(line));
    for (const std::string& line : report.kept) json["kept"].push_back(TextToJson(line));
    return json;
}

}  // namespace

SetupReport SetUp(VX::ILinkConnector& connector, const SetupOptions& options) {
    return Setup(connector, options).Run();
}

void RunSetup(const CommandContext& context, const SetupOptions& options) {
    const SetupReport report = SetUp(*context.connector, options);
    if (!context.options.json) {
        std::string text;
        for (const std::string& line : report.made) text += "made   " + line + "\n";
        for (const std::string& line : report.kept) text += "there  " + line + "\n";
        Print(text);
        std::fflush(stdout);
    }
    const std::vector<std::string> units = {"orv-config.service", "orv-audio-feed.service"};
    std::string reason;
    const auto outcome = options.root.empty() ? Platform::StartUnits(units, reason) : Platform::UnitOutcome::NoManager;
    if (outcome == Platform::UnitOutcome::Failed) {
        Fail("The services cannot be started: " + reason +
                 "; look at what `systemctl status orv-config orv-audio-feed` tells",
             ExitCode::ServiceFailed);
    }
    const bool started = outcome == Platform::UnitOutcome::Done;
    if (started && report.madeFeed && !WaitForFirstFeed()) {
        Fail(std::string("The services have been started, but the feed ") + kFirstFeed +
                 " is not there yet; `orvctl doctor` tells why",
             ExitCode::ServiceFailed);
    }
    if (context.options.json) return PrintJson(ToJson(report, started ? "started" : "not started"));
    if (started) return Print("The services run. Listen:  orv-listen default --meter\n");
    Print(options.root.empty() ? "No service manager runs here. Start orv-config, then orv-audio-feed, as their units "
                                 "say.\n"
                               : "The services start with the system in " + options.root + ".\n");
}

}  // namespace Orv
