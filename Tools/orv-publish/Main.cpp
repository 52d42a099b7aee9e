// orv-publish: puts live sound on a named pipe, for feeds, announcements and listeners.
#include <CLI/CLI.hpp>
#include <cstdio>

#include "Platform/Command.h"
#include "Platform/InputStream.h"
#include "Platform/NamedPipe.h"
#include "Platform/ServiceControl.h"
#include "Platform/Terminal.h"
#include "Tools/PipeFolder.h"
#include "Tools/orv-publish/CommandSource.h"
#include "Tools/orv-publish/Publisher.h"
#include "Tools/orv-publish/StreamSource.h"
#include "Tools/orv-publish/WavSource.h"

namespace {

struct Options {
    std::string name;
    std::string pipeFolder;
    std::string configFile;
    std::string wavPath;
    std::string command;
    bool loop = false;
    bool restart = false;
    bool noPace = false;
    bool wait = false;
};

constexpr char kFooter[] =
    "The sound is 8000 Hz, 16 bits, little-endian, mono. It goes out in real time, whether anybody listens or not: a\n"
    "source that is faster waits, one that is late may catch up by half a second, one that is slower leaves gaps, "
    "which\n"
    "a feed plays as silence. A client hears what is on the air when it comes, from a quarter of a second back. One "
    "that\n"
    "does not take its sound for a second loses that second; it delays nobody and is not cut off. When the source "
    "ends,\n"
    "the clients see the end.\n\n"
    "Exit codes: 0 the source has ended, or stopped, 1 the source cannot be read, 2 bad command line, 3 the pipe "
    "cannot\n"
    "be served, 4 the command failed.";

void Tell(const std::string& text) {
    std::fprintf(stderr, "orv-publish: %s\n", text.c_str());
}

void Describe(CLI::App& app, Options& options) {
    app.set_version_flag("--version", "orv-publish " ORV_VERSION);
    app.add_option("name", options.name, "The pipe's name; a feed or an announcement finds it as \\\\.\\pipe\\NAME")
        ->required();
    auto* wav = app.add_option("--wav", options.wavPath, "Play a WAV file (8000 Hz, 16 bits, mono)")->type_name("FILE");
    app.add_flag("--loop", options.loop, "Play it round and round")->needs(wav);
    auto* command = app.add_option("--command", options.command, "Run a command, and play what it writes")
                        ->type_name("CMD")
                        ->excludes(wav);
    app.add_flag("--restart", options.restart, "Start the command again whenever it ends")->needs(command);
    app.add_flag("--no-pace", options.noPace,
                 "Send on at once: for a source that keeps the time itself, as a sound card")
        ->excludes(wav);
    app.add_flag("--wait", options.wait, "Begin when the first client has come");
    auto* folder = app.add_option("--pipe-folder", options.pipeFolder, Orv::PipeFolderHelp)->type_name("DIR");
    app.add_option("-c,--config", options.configFile, Orv::PipeConfigHelp)->type_name("FILE")->excludes(folder);
    app.footer(kFooter);
}

// Null when there is none; what to do has been told.
std::unique_ptr<Orv::ISource> MakeSource(const Options& options) {
    if (!options.wavPath.empty()) return Orv::OpenWavSource(options.wavPath, options.loop, Tell);
    if (!options.command.empty()) {
        const auto start = [command = options.command](Platform::SystemError& error) {
            return Platform::StartCommand(command, error);
        };
        return std::make_unique<Orv::CommandSource>(start, options.restart, Tell);
    }
    return std::make_unique<Orv::StreamSource>(Platform::OpenStandardInput(), Tell);
}

}  // namespace

int main(int argc, char** argv) {
    Platform::PrepareProcess();
    Options options;
    CLI::App app{
        "Puts live sound on a named pipe, from standard input unless told otherwise.\n"
        "Example: ffmpeg -i URL -f s16le -ar 8000 -ac 1 - | orv-publish radio",
        "orv-publish"};
    Describe(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : Orv::PublishBadUsage;
    }
    const std::string name = Orv::BarePipeName(options.name);
    if (name.empty()) {
        Tell("the pipe's name is empty. Give one, for instance: orv-publish radio");
        return Orv::PublishBadUsage;
    }
    if (options.wavPath.empty() && options.command.empty() && Platform::IsTerminal(Platform::StandardStream::Input)) {
        Tell(
            "no sound comes from a terminal. Use a pipe, --wav FILE or --command CMD:\n"
            "  ffmpeg -i FILE -f s16le -ar 8000 -ac 1 - | orv-publish NAME");
        return Orv::PublishBadUsage;
    }
    std::string refusal;
    if (!Orv::ChoosePipeFolder(options.pipeFolder, options.configFile, refusal)) {
        Tell(refusal);
        return Orv::PublishBadUsage;
    }

    const auto source = MakeSource(options);
    if (source == nullptr) return Orv::PublishSourceFailed;
    const auto broadcast = Orv::OpenBroadcast(name, Tell);
    if (broadcast == nullptr) return Orv::PublishCannotServe;
    Tell("on the air as \\\\.\\pipe\\" + name + " (" + Platform::PipeFolder() + "/" + Platform::PipeFileName(name) +
         ")");

    std::atomic<bool> stop{false};
    Platform::ForegroundStop onSignal([&stop] { stop.store(true, std::memory_order_relaxed); });
    return Orv::RunPublisher(*broadcast, *source, {!options.noPace, options.wait}, stop);
}
