#include "Tools/orvctl/Status.h"

#include "Platform/Files.h"
#include "Platform/LocalServer.h"
#include "Platform/NamedPipe.h"
#include "Platform/Terminal.h"
#include "Platform/Thread.h"
#include "ServiceProcess/CommonSettings.h"
#include "ServiceProcess/PreloadSettings.h"
#include "Tools/orvctl/SettingsSlips.h"
#include "Tools/orvctl/SettingsText.h"
#include "Tools/orvctl/ToolError.h"

namespace Orv {
namespace {

constexpr u32 kAnswerMilliseconds = 5000;
constexpr u64 kLargestState = 64u << 20;
constexpr u32 kWatchMilliseconds = 500;

std::string TextOf(CommonSettings& settings, const char* name, const std::string& absent) {
    const SettingsValue& value = settings.GetValue(name);
    return value.Exists() ? value.AsString() : absent;
}

// An administrator's own settings file tells how to connect and no more: what the service does stands in the file
// beside it. One that says anything of the service itself is the service's own.
std::string ServiceFileOf(const std::string& file) {
    CommonSettings settings;
    if (!settings.Load(file.c_str()) || !settings.whole) return file;
    for (const char* name : {"[General].AppDataPath", "[General].PipePath", "[General].StatusPath"}) {
        if (settings.GetValue(name).Exists()) return file;
    }
    const std::string beside = file.substr(0, file.find_last_of('/') + 1) + "OrvPhoneSystem.ini";
    return Platform::PathExists(beside) ? beside : file;
}

std::string HowToTellState(const std::string& file) {
    return "The audio feed service does not tell its state: write StatusPath=/run/Orv/status/feed under [General] in " +
           file + " and restart it with `systemctl restart orv-audio-feed`";
}

// What is shown of the audio feed service: its state, or one sentence.
struct ServiceView {
    Json state;  // null when there is none
    std::string reason;
};

ServiceView LookAtService(const ConnectionOptions& options) {
    ServiceView view;
    try {
        const ServiceSettings settings = ReadServiceSettings(options);
        if (settings.statusPath.empty()) {
            view.reason = HowToTellState(settings.file);
        } else if (!FetchState(settings.statusPath, view.state, view.reason)) {
            view.state = nullptr;
            view.reason = "The audio feed service does not answer on " + settings.statusPath + ": " + view.reason +
                          "; `orvctl doctor` tells more";
        }
    } catch (const ToolError& error) {
        view.reason = error.what();
    }
    return view;
}

// The terminal as it is at this moment, and whatever else takes all of it as it is.
Screen OutputScreen() {
    constexpr auto kOutput = Platform::StandardStream::Output;
    if (!Platform::IsTerminal(kOutput)) return {};
    return {Platform::TerminalWidth(), Platform::TerminalHeight(), Platform::ShowsColours(kOutput)};
}

}  // namespace

ServiceSettings ReadServiceSettings(const ConnectionOptions& options) {
    ServiceSettings result;
    result.connectionFile = SettingsFileOf(options);
    result.file = ServiceFileOf(result.connectionFile);
    CommonSettings settings;
    if (!settings.Load(result.file.c_str())) {
        const bool there = Platform::PathExists(result.file);
        throw ToolError(ExitCode::BadCommandLine,
                        there ? "The settings file " + result.file + " cannot be opened; check its rights"
                              : "There is no settings file " + result.file +
                                    "; `orvctl setup` makes one, or name another one with -c");
    }
    if (!settings.whole) throw ToolError(ExitCode::BadCommandLine, CutShort(result.file));
    result.messages = settings.messages;  // a look-up of a missing section would take them away
    result.slips = FindSlips(settings);
    result.dataPath = TextOf(settings, "[General].AppDataPath", "./");
    if (result.dataPath.empty() || (result.dataPath.back() != '/' && result.dataPath.back() != '\\')) {
        result.dataPath += "/";
    }
    result.pipeFolder = TextOf(settings, "[General].PipePath", Platform::PipeFolder());
    if (result.pipeFolder.empty()) result.pipeFolder = Platform::PipeFolder();
    result.statusPath = TextOf(settings, "[General].StatusPath", "");
    result.user = TextOf(settings, "[ConfService].confUser", "");
    result.preload = ReadPreloadSettings(settings).names;
    return result;
}

bool FetchState(const std::string& path, Json& state, std::string& reason) {
    std::string answer;
    Platform::SystemError error = 0;
    if (!Platform::AskLocalServer(path, "GET /status HTTP/1.0\r\n\r\n", kAnswerMilliseconds, kLargestState, answer,
                                  error)) {
        reason = Platform::SystemErrorText(error);
        return false;
    }
    const auto body = answer.find("\r\n\r\n");
    reason = "what answers there is not the audio feed service";
    if (answer.rfind("HTTP/1.0 200 ", 0) != 0 || body == std::string::npos) return false;
    state = Json::parse(answer.substr(body + 4), nullptr, false);
    if (!state.is_object() || !state.contains("feeds") || !state.contains("configuration")) return false;
    reason.clear();
    return true;
}

void ShowStatus(const CommandContext& context) {
    const ServiceView service = LookAtService(context.options);
    const auto show = [&](Json json, const std::string& text) {
        if (context.options.json) {
            json["service"] = service.state;
            if (service.state.is_null()) json["service_reason"] = TextToJson(service.reason);
            return PrintJson(json);
        }
        Screen screen = OutputScreen();
        screen.height = 0;
        Print(text + (text.empty() ? "" : "\n") +
              (service.state.is_null() ? service.reason + ".\n" : StateText(service.state, screen)));
    };
    ConfigStatus config;
    try {
        config = FetchConfigStatus(context);
    } catch (const ToolError&) {
        // The feeds play on without it, and that is worth telling.
        if (!service.state.is_null()) show(Json::object(), "");
        throw;
    }
    show(config.json, config.text);
}

void WatchStatus(const CommandContext& context) {
    const ServiceSettings settings = ReadServiceSettings(context.options);
    if (settings.statusPath.empty()) throw ToolError(ExitCode::BadCommandLine, HowToTellState(settings.file));
    const bool terminal = Platform::IsTerminal(Platform::StandardStream::Output);
    if (terminal) Print("\x1b[2J");
    for (;;) {
        Json state;
        std::string reason;
        std::string text;
        if (FetchState(settings.statusPath, state, reason)) {
            text = StateText(state, OutputScreen());
        } else {
            text = "The audio feed service does not answer on " + settings.statusPath + ": " + reason + "\n";
        }
        if (!terminal) {
            Print(text + "\n");
        } else {
            // Each line over the old one, so that nothing flickers.
            std::string screen = "\x1b[H";
            for (const char c : text) c == '\n' ? screen += "\x1b[K\n" : screen += c;
            Print(screen + "\x1b[J");
        }
        Platform::SleepMilliseconds(kWatchMilliseconds);
    }
}

}  // namespace Orv
