// orv-listen: the sound of one feed, for people and programs.
#include <CLI/CLI.hpp>

#include "Platform/ServiceControl.h"
#include "Platform/Terminal.h"
#include "Tools/PipeFolder.h"
#include "Tools/orv-listen/Listener.h"

int main(int argc, char** argv) {
    Platform::PrepareProcess();
    Orv::ListenOptions options;
    std::string pipeFolder;
    std::string configFile;
    CLI::App app{
        "Listens to an audio feed: raw sound (8000 Hz, 16 bits, little-endian, mono) on standard output or in a FIFO, "
        "a "
        "WAV file, or a level meter.\nExample: orv-listen hold --wav hold.wav --seconds 30",
        "orv-listen"};
    app.set_version_flag("--version", "orv-listen " ORV_VERSION);
    app.add_option("name", options.name, "The feed's pipe name")->required();
    auto* wav = app.add_option("--wav", options.wavPath, "Write a WAV file instead of raw sound")->type_name("FILE");
    app.add_option("--seconds", options.seconds, "End after that much sound")
        ->check(CLI::Range(0.001, 4e6))
        ->type_name("N");
    app.add_flag("--meter", options.meter, "Show the level on standard error");
    app.add_flag("--follow", options.follow,
                 "Never end: silence while the feed is away, and connect again whenever it comes back");
    auto* fifo = app.add_option("--to-fifo", options.fifoPath, "Write raw sound into a FIFO, which is made if missing")
                     ->type_name("FILE")
                     ->excludes(wav);
    app.add_option("--prefill-ms", options.format.prefillMs, "Silence in front, for each reader (default 0)")
        ->check(CLI::Range(0, 10000))
        ->type_name("N");
    app.add_option("--write-ms", options.format.writeMs, "Sound in each write of raw sound (default 20)")
        ->check(CLI::Range(1, 250))
        ->type_name("N");
    app.add_flag("--ulaw", options.format.ulaw, "Raw sound as mu-law, one byte a sample")->excludes(wav);
    u32 rate = 8000;
    u32 channels = 1;
    app.add_option("-r,--rate", rate, "Taken for players that give it; 8000 is all there is")
        ->check(CLI::IsMember({8000}))
        ->type_name("N");
    app.add_option("-c,--channels", channels, "The same; 1 is all there is")->check(CLI::IsMember({1}))->type_name("N");
    auto* folder = app.add_option("--pipe-folder", pipeFolder, Orv::PipeFolderHelp)->type_name("DIR");
    app.add_option("--config", configFile, Orv::PipeConfigHelp)->type_name("FILE")->excludes(folder);
    app.footer(
        "Exit codes: 0 done, 1 the output takes no more, 2 bad command line, 3 nobody serves that feed, "
        "4 the feed ended early.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : Orv::ListenBadUsage;
    }

    const bool terminal = Platform::IsTerminal(Platform::StandardStream::Output);
    options.rawToStandardOutput = options.wavPath.empty() && fifo->empty() && !(options.meter && terminal);
    if (options.rawToStandardOutput && terminal) {
        std::fputs(
            "orv-listen: raw sound does not belong on a terminal. Use --meter, --wav FILE, or a pipe:\n"
            "  orv-listen NAME | aplay -q -f S16_LE -r 8000 -c 1\n",
            stderr);
        return Orv::ListenBadUsage;
    }

    std::string refusal;
    if (!Orv::ChoosePipeFolder(pipeFolder, configFile, refusal)) {
        std::fprintf(stderr, "orv-listen: %s\n", refusal.c_str());
        return Orv::ListenBadUsage;
    }

    std::atomic<bool> stop{false};
    Platform::ForegroundStop onSignal([&stop] { stop.store(true, std::memory_order_relaxed); });
    return Orv::Listen(options, stop);
}
