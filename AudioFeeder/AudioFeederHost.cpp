#include "AudioFeeder/AudioFeederHost.h"

#include <exception>
#include <iostream>
#include <iterator>
#include <system_error>
#include <vector>

#include "AudioFeeder/ConfigurationState.h"
#include "AudioFeeder/FeedReport.h"
#include "AudioFeeder/LibraryListeners.h"
#include "AudioFeeder/PipeManager.h"
#include "AudioFeeder/Preload.h"
#include "AudioFeeder/RequestFlags.h"
#include "AudioFeeder/SharedValues.h"
#include "AudioFeeder/StateSnapshot.h"
#include "AudioFeeder/StatusServer.h"
#include "AudioFeeder/UpdateDispatcher.h"
#include "ConfigClient/ConfigConnection.h"
#include "ConfigClient/ObjectList.h"
#include "Platform/Files.h"
#include "Platform/NamedPipe.h"
#include "ServiceProcess/ClientSettings.h"
#include "ServiceProcess/CommandLine.h"
#include "ServiceProcess/Log.h"
#include "VX/VX.h"

namespace Orv {

namespace {

constexpr char kLogSource[] = "OrvAudioFeeder";

constexpr u64 kLogSizeLimit = 0x1400000;
constexpr u32 kRetryMilliseconds = 10'000;

constexpr const char* kTables[] = {Tables::AUDIOFEED, Tables::AUDIOFEEDCONTENT, Tables::ANNOUNCEMENT,
                                   Tables::PARAMETER};
// The order in which the rows are read differs from the order of the subscriptions.
constexpr const char* kPreCacheOrder[] = {Tables::ANNOUNCEMENT, Tables::AUDIOFEED, Tables::AUDIOFEEDCONTENT,
                                          Tables::PARAMETER};

std::string TextSetting(CommonSettings& settings, const char* name, const char* absent) {
    const SettingsValue& value = settings.GetValue(name);
    return value.Exists() ? value.AsString() : absent;
}

bool EndsInSeparator(const std::string& path) {
    return !path.empty() && (path.back() == '/' || path.back() == '\\');
}

// Makes what is missing of a folder's path, from the top down. What cannot be made shows when the folder is used.
void EnsureFolder(const std::string& path) {
    for (std::size_t end = path.find_first_of("/\\", 1);; end = path.find_first_of("/\\", end + 1)) {
        const std::string part = path.substr(0, end);
        Platform::SystemError error = 0;
        if (!Platform::PathExists(part)) Platform::CreateFolder(part, error);
        if (end == std::string::npos) return;
    }
}

void BoundClients(const ClientSettings& clients) {
    if (!clients.stallSecondsAreValid) {
        ORV_LOG(Warn) << "ClientStallSeconds is no number from 1 to " << ClientSettings::MostStallSeconds
                      << ", no client is ended for taking nothing";
    }
    SetClientStallSeconds(clients.stallSeconds);
}

void PreCache(const char* table) {
    ORV_LOG(Trace) << "Pre-cache '" << table << "'";
    try {
        const MTObjects::THolder<ConfigConnection::TObjectListImpl> list = ConfigConnection::GetList(table);
        if (!list.IsValid()) return;
        std::vector<i32> ids;
        list->GetIds(ids);
        list->LoadRows(ids);
    } catch (const std::exception& exception) {
        ORV_LOG(Excep) << exception.what();
    }
}

// The word with which the host tells the dispatcher that the whole configuration has come or goes.
void TellConfigServer(const char* kind) {
    VX::ParamListHolder newRow;
    VX::ParamListHolder oldRow;
    OnConfigUpdate(ConfigServerTable, kind, 0, &newRow, &oldRow);
}

void BuildFromTables() {
    ConfigConnection::CreateIndex(Tables::AUDIOFEED, Columns::pipename, nullptr);
    ConfigConnection::CreateIndex(Tables::ANNOUNCEMENT, Columns::thename, nullptr);
    ConfigConnection::CreateIndex(Tables::PARAMETER, Columns::name, nullptr);
    for (const char* table : kPreCacheOrder) PreCache(table);
    TellConfigServer(ConfigConnection::Kinds::Inserted);
}

}  // namespace

void AudioFeederHost::ConnectionSettings::Forget() {
    confUser.clear();
    confPass.clear();
    confPort = 0;
}

void AudioFeederHost::Stop() {
    RaiseStopRequest();
}

u32 AudioFeederHost::OnControl(u32 control, u32, void*) {
    if (control != ServiceControl::Stop && control != ServiceControl::Shutdown) return ServiceState::Running;
    RaiseStopRequest();
    return ServiceState::StopPending;
}

void AudioFeederHost::Run(u32, void*) {
    CommonSettings settings;
    const bool opened = settings.Load(ProcessOptions().configFile.c_str());
    // What is missing behind a bad spot would be defaults that nobody chose.
    if (!opened || !settings.whole) {
        // The one word about it: there is no log yet.
        if (opened) std::cerr << "The settings file " << settings.fileName << " cannot be read to its end" << std::endl;
        ReportStatus(ServiceState::Stopped, 0, 0, 0);
        return;
    }
    StartUp(settings);
    const std::unique_ptr<StatusServer> status = ServeStatus(settings);
    RunConnection(settings);
    ShutDown();
}

void AudioFeederHost::StartUp(CommonSettings& settings) {
    std::string appDataPath = TextSetting(settings, "[General].AppDataPath", "./");
    if (!EndsInSeparator(appDataPath)) appDataPath += "/";
    const std::string pipePath = TextSetting(settings, "[General].PipePath", "");
    if (!pipePath.empty()) Platform::SetPipeFolder(pipePath);

    // These two lines reach no file: the log has no folder yet.
    ORV_LOG(Info) << "Set default prompts path from ini.";
    SetRootPath((appDataPath + "Data/Ivr/Prompts").c_str());
    appDataPath += "Data/Logs";
    EnsureFolder(appDataPath);
    LogWriter::Instance().OpenLog(appDataPath.c_str(), kLogSizeLimit);
    ORV_LOG(Info) << "Starting service";
    SetPreload(ReadPreloadSettings(settings));
    BoundClients(ReadClientSettings(settings));
    ReportStatus(ServiceState::StartPending, 0, 0, 0);
    if (IsManaged()) watch_ = std::make_unique<ServiceWatch>();

    InstallLibraryListeners();
    // Without its thread there is no connection; each try to connect tries this too.
    if (!StartLibrary()) ORV_LOG(Error) << "Cannot start thread for the events of the Configuration service";
    ConfigConnection::ChangeListener.store(&OnConfigUpdate, std::memory_order_release);
}

// True when the library runs, from now on or already.
bool AudioFeederHost::StartLibrary() {
    if (!libraryRuns_) libraryRuns_ = VXInitialize("AudioProvider", 0, 0) == 0;
    return libraryRuns_;
}

// Before the first channel is built, and for as long as there may be one. Without the key there is nothing of it.
std::unique_ptr<StatusServer> AudioFeederHost::ServeStatus(CommonSettings& settings) {
    SetConfigurationLink(ConfigurationLink::Waiting);
    MarkServiceStart();
    const std::string path = TextSetting(settings, "[General].StatusPath", "");
    WantFeedReports(!path.empty());
    if (path.empty()) return nullptr;
    try {
        return std::make_unique<StatusServer>(path);
    } catch (const std::system_error& error) {
        ORV_LOG(Warn) << "State cannot be told on " << path << ": " << error.what();
        return nullptr;
    }
}

// Each try after the first one reads the settings file again, so that credentials that are written later are found.
// What could not be read counts as missing, until the next time.
void AudioFeederHost::RunConnection(CommonSettings& settings) {
    ConnectionSettings connection = ReadConnectionSettings(settings);
    // From here on the service counts as running, also while the Configuration service is away.
    ReportStatus(ServiceState::Running, 0, 0, 0);
    FillTableIds();
    bool connected = false;
    for (;;) {
        if (!connected && connection.Usable()) {
            connected = TryConnect(connection);
            if (!connected) connection.Forget();  // the next pass waits
            continue;
        }
        if (!connected) {
            if (WaitBeforeRetry() == Outcome::StopRequested) return;
            ORV_LOG(Info) << "Reading configuration...";
            settings.Load(ProcessOptions().configFile.c_str());
            connection = ReadConnectionSettings(settings);
            continue;
        }
        if (WaitForStop() == Outcome::StopRequested) {
            ConfigConnection::Disconnect();
            TellConfigServer(ConfigConnection::Kinds::Deleted);
            return;
        }
        // A try that was lost on the way may have raised the request too.
        if (*ConfigConnection::GetServerName() == '\0') SetConfigurationLink(ConfigurationLink::Lost);
        // `connected` stays: a lost connection is not made again.
        connection.Forget();
    }
}

AudioFeederHost::ConnectionSettings AudioFeederHost::ReadConnectionSettings(CommonSettings& settings) {
    ConnectionSettings connection;
    connection.confNic = TextSetting(settings, "[ConfService].confNIC", "127.0.0.1");
    connection.confPort = static_cast<u64>(settings.GetValue("[ConfService].ConfPort").AsInteger());
    connection.confUser = TextSetting(settings, "[ConfService].confUser", "");
    connection.confPass = TextSetting(settings, "[ConfService].confPass", "");
    return connection;
}

bool AudioFeederHost::TryConnect(const ConnectionSettings& connection) {
    ORV_LOG(Info) << "Connecting to Configuration service on " << connection.confNic << ":" << connection.confPort
                  << "...";
    StartLibrary();
    const std::string credentials = connection.confUser + ":" + connection.confPass;
    if (!ConfigConnection::Connect(connection.confNic.c_str(), static_cast<u32>(connection.confPort), kTables,
                                   static_cast<u32>(std::size(kTables)), credentials.c_str(),
                                   static_cast<u32>(credentials.size() + 1))) {
        ORV_LOG(Info) << "Can't connect to Configuration service on " << connection.confNic << ":"
                      << connection.confPort;
        return false;
    }
    ORV_LOG(Info) << "Connected to Configuration service '" << ConfigConnection::GetServerName() << "'";
    SetConfigurationLink(ConfigurationLink::Up);
    BuildFromTables();
    return true;
}

AudioFeederHost::Outcome AudioFeederHost::WaitBeforeRetry() {
    return WaitForStopRequest(kRetryMilliseconds) ? Outcome::StopRequested : Outcome::TimedOut;
}

AudioFeederHost::Outcome AudioFeederHost::WaitForStop() {
    return WaitForAnyRequest() ? Outcome::StopRequested : Outcome::ConnectionLost;
}

void AudioFeederHost::ShutDown() {
    ORV_LOG(Info) << "Shutdown service";
    ReportStatus(ServiceState::StopPending, 0, 0, 0);
    if (watch_) watch_->SetStopping();
    VXShutdown(0);
    IPipeManager::StopAll();
    channelsStopping.store(true, std::memory_order_release);
    IPipeManager::WaitForChannels();
    watch_.reset();  // until here a stop that hangs is seen
    ReportStatus(ServiceState::Stopped, 0, 0, 0);
}

void MakeAudioFeederHost(i32 argc, char** argv) {
    auto* host = new AudioFeederHost("Orv Audio Feed");
    host->argc = argc;
    host->argv = argv;
    ClearRequests();
}

}  // namespace Orv
