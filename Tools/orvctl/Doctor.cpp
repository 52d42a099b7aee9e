#include "Tools/orvctl/Doctor.h"

#include <algorithm>

#include "Platform/Diagnosis.h"
#include "Platform/NamedPipe.h"
#include "Platform/Path.h"
#include "Platform/Rights.h"
#include "ServiceProcess/DataDirectory.h"
#include "Tools/orvctl/ToolError.h"

namespace Orv {
namespace {

// What failed, and what to do about it: the sentences of ToolError have both, with a semicolon between.
void AddError(const ToolError& error, Ailments& ailments) {
    const std::string text = error.what();
    const auto cut = text.find("; ");
    ailments.Add(Severity::Fault, text.substr(0, cut), cut == std::string::npos ? "" : text.substr(cut + 2));
}

// Where the package keeps the database; nothing else tells.
constexpr char kDatabaseFolder[] = "/var/lib/Orv/Config";

class Doctor {
public:
    explicit Doctor(const CommandContext& context) : context_(context) {}

    void Examine() {
        try {
            settings_ = ReadServiceSettings(context_.options);
        } catch (const ToolError& error) {
            return AddError(error, found);
        }
        for (const std::string& message : settings_.messages) {
            found.Add(Severity::Warning, "The settings file " + settings_.file + " has a bad line: " + message,
                      "correct that line; it counts as if it were not there, or only in part");
        }
        for (const std::string& slip : settings_.slips) {
            found.Add(Severity::Note, "In the settings file " + settings_.file + ": " + slip,
                      "correct it there, unless another program reads it");
        }
        EnterServicesFolder();
        Platform::SetPipeFolder(settings_.pipeFolder);
        const bool tablesKnown = AskConfiguration();
        if (tablesKnown && settings_.file != settings_.connectionFile) ConnectAsService();
        plan_.known = tablesKnown;
        ExamineService();
        CheckDisk("the logs", NearestFolder(LogFolder()), found);
        if (databaseIsHere_) CheckDisk("the database", kDatabaseFolder, found);
        if (tablesKnown) CheckPipes(plan_.feeds, service_, found);
        ExamineFiles();
    }

    Ailments found;

private:
    // Names that are not absolute begin where the service works. A file named with -c has been read by now.
    void EnterServicesFolder() {
        Platform::SystemError error = 0;
        for (std::string* file : {&settings_.file, &settings_.connectionFile}) {
            std::string absolute;
            if (Platform::MakeAbsolutePath(*file, absolute)) *file = absolute;
        }
        // Where that folder is missing, nothing relative can be found, which shows then.
        Platform::SetWorkingDirectory(GetDataDirectory(), error);
    }

    bool AskConfiguration() {
        try {
            ConnectionOptions options = context_.options;
            options.configFile = settings_.connectionFile;
            const Target target = FindTarget(options);
            databaseIsHere_ = IsThisMachine(target.host);
            Connection connection(*context_.connector, target);
            plan_.feeds = connection.Rows(Tables()[AudioFeed]);
            plan_.announcements = connection.Rows(Tables()[Announcement]);
            plan_.preload = settings_.preload;
            plan_.promptRoot = settings_.dataPath + "Data/Ivr/Prompts";
            for (const Row& row : connection.Rows(Tables()[Parameter])) {
                const std::string& value = row.Text(ParameterColumn::Value);
                if (row.Text(ParameterColumn::Name) == "DEFAULTAUDIOFILE") plan_.defaultFile = value;
                if (row.Text(ParameterColumn::Name) == "IVRPROMPTPATH" && !value.empty()) plan_.promptRoot = value;
            }
        } catch (const ToolError& error) {
            AddError(error, found);
            return false;
        }
        return true;
    }

    // With the password of the service's own file, which is another one than orvctl's.
    void ConnectAsService() {
        try {
            ConnectionOptions options;
            options.configFile = settings_.file;
            const Connection connection(*context_.connector, FindTarget(options));
        } catch (const ToolError& error) {
            AddError(error, found);
        }
    }

    void ExamineService() {
        if (settings_.statusPath.empty()) {
            found.Add(Severity::Note, "The audio feed service does not tell its state, so not all can be looked at",
                      "write StatusPath=/run/Orv/status/feed under [General] in " + settings_.file +
                          " and restart it with `systemctl restart orv-audio-feed`");
            return;
        }
        std::string reason;
        if (FetchState(settings_.statusPath, state_, reason)) {
            service_ = ServiceLife::Runs;
        } else {
            service_ = ServiceLife::Down;
            state_ = nullptr;
            CheckSilence(settings_.statusPath, reason, found);
        }
    }

    std::string LogFolder() const { return settings_.dataPath + "Data/Logs"; }

    // What the service may not read or write shows with its own rights and in its view alone: root may do everything,
    // and sees what the unit hides.
    void ExamineFiles() {
        const auto examine = [this](LooksAs looksAs) {
            CheckPipeFolder(settings_.pipeFolder, service_, looksAs, found);
            if (looksAs == LooksAs::Service) CheckLogFolder(LogFolder(), found);
            if (plan_.known) CheckContents(plan_, found);
            if (!state_.is_null()) CheckState(state_, plan_, found);
        };
        Platform::Rights rights;
        auto lent = Platform::Lent::Nothing;
        if (FindServicesRights(rights)) {
            lent = Platform::RunWithRights(rights, [&] { examine(LooksAs::Service); });
        }
        if (lent == Platform::Lent::Nothing) examine(LooksAs::Caller);
        if (lent == Platform::Lent::Rights) CheckHiddenFolders(plan_, found);
    }

    // Of the process that tells its state; without one, of whoever owns what a service has made or writes to. What is
    // root's there is for others to write to by their group, and tells nothing.
    bool FindServicesRights(Platform::Rights& rights) const {
        if (!state_.is_null() && OfProcess(rights)) return true;
        std::vector<std::string> paths = {LogFolder(), settings_.pipeFolder};
        for (const Row& feed : plan_.feeds) {
            const std::string file = Platform::PipeFileName(feed.Text(FeedColumn::PipeName));
            paths.insert(paths.begin(), Platform::AppendPath(settings_.pipeFolder, file));
        }
        if (!settings_.statusPath.empty()) paths.insert(paths.begin(), settings_.statusPath);
        return std::any_of(paths.begin(), paths.end(), [&](const std::string& path) {
            return Platform::RightsOfOwner(path, rights) && rights.user != 0;
        });
    }

    bool OfProcess(Platform::Rights& rights) const {
        const Json none;
        const Json& process = state_.contains("process") ? state_["process"] : none;
        if (!process.is_object() || !process.contains("id") || !process["id"].is_number_unsigned()) return false;
        // A service in a container of its own tells a number that is another's here.
        Platform::Rights owner;
        return Platform::RightsOfOwner(settings_.statusPath, owner) &&
               Platform::RightsOfProcess(process["id"].get<u64>(), rights) && rights.user == owner.user;
    }

    const CommandContext& context_;
    ServiceSettings settings_;
    FeedPlan plan_;
    Json state_;
    ServiceLife service_ = ServiceLife::Unknown;
    bool databaseIsHere_ = false;
};

const char* Word(Severity severity) {
    switch (severity) {
        case Severity::Note:
            return "note";
        case Severity::Warning:
            return "warning";
        case Severity::Fault:
            break;
    }
    return "fault";
}

}  // namespace

std::string NearestFolder(std::string path) {
    while (path.size() > 1 && Platform::ProbeFolder(path) == Platform::FolderState::Missing) {
        const auto slash = path.find_last_of("/\\");
        if (slash == std::string::npos) return ".";
        path.resize(std::max<std::size_t>(slash, 1));
    }
    return path;
}

bool Ailments::Mentions(const std::string& text) const {
    return std::any_of(list_.begin(), list_.end(),
                       [&](const Ailment& ailment) { return ailment.what.find(text) != std::string::npos; });
}

int Ailments::ExitCode() const {
    int code = 0;
    for (const Ailment& ailment : list_) code = std::max(code, static_cast<int>(ailment.severity));
    return code;
}

int RunDoctor(const CommandContext& context) {
    Doctor doctor(context);
    doctor.Examine();
    const std::vector<Ailment>& list = doctor.found.List();
    const int code = doctor.found.ExitCode();
    if (context.options.json) {
        Json json = {{"exitcode", code}, {"findings", Json::array()}};
        for (const Ailment& ailment : list) {
            json["findings"].push_back({{"severity", Word(ailment.severity)},
                                        {"what", TextToJson(ailment.what)},
                                        {"remedy", TextToJson(ailment.remedy)}});
        }
        PrintJson(json);
        return code;
    }
    for (const Ailment& ailment : list) {
        Print(std::string(Word(ailment.severity)) + ": " + ailment.what + ".\n");
        if (!ailment.remedy.empty()) Print("  To mend it: " + ailment.remedy + ".\n");
    }
    if (code == 0) Print("Nothing is wrong.\n");
    return code;
}

}  // namespace Orv
