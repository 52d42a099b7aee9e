#include "bench/orv-load/Options.h"

#include <filesystem>

namespace OrvLoad {
namespace {

void DescribeExchange(CLI::App& app, ExchangeOptions& exchange) {
    exchange.binaries = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    exchange.music = "/usr/share/asterisk/moh";
    exchange.announcement = "/usr/share/asterisk/sounds/en/queue-thankyou.wav";
    app.add_option("--bin", exchange.binaries, "Folder of orv-config and orv-audio-feed; this program's own");
    app.add_option("--music", exchange.music, "Folder of .wav and .raw files")->capture_default_str();
    app.add_option("--pieces", exchange.pieces, "Files of a playlist")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000));
    app.add_option("--announcement", exchange.announcement, "The announcement's file")->capture_default_str();
    app.add_option("--feeds", exchange.feeds, "Feeds to make")->capture_default_str()->check(CLI::PositiveNumber);
    app.add_option("--type", exchange.type,
                   "What the feeds play; mixed: sorted and shuffled; counted: numbers, of which each is checked")
        ->capture_default_str()
        ->check(CLI::IsMember({"mixed", "sorted", "shuffled", "default", "counted"}));
    app.add_flag("--announcements,!--no-announcements", exchange.announcements,
                 "Announcements on each feed after pauses of 2 to 8 s; on when not given");
    app.add_option("--limiter", exchange.limit, "Level limit of every feed in percent, 0: none")->capture_default_str();
    app.add_option("--log-level", exchange.logLevel, "SYSTEMLOGGINGLEVEL; with 3 the reads that came late are counted")
        ->capture_default_str();
    app.add_option("--sounds-in", exchange.soundsIn,
                   "Puts the sounds into a folder there, on whatever file system it is")
        ->check(CLI::ExistingDirectory);
    app.add_flag("--keep", exchange.keep, "Keeps the run's folder");
}

void DescribeMeasurement(CLI::App& app, Options& options) {
    app.add_option("--clients", options.clients, "Clients in all, feed after feed; one on each when not given");
    app.add_flag("--idle", options.idle, "No clients");
    app.add_option("--seconds", options.session.measure.seconds, "Length of a measurement")->capture_default_str();
    app.add_option("--settle", options.session.measure.settle, "Seconds before it")->capture_default_str();
    app.add_option("--listener-period", options.periodMilliseconds,
                   "How often the clients look for blocks, in ms; 0: woken for each")
        ->capture_default_str();
    app.add_flag(
        "--paced", options.session.measure.paced,
        "Clients take one block each 125 ms and leave two waiting, as programs do that read at the sound's pace");
    app.add_flag("--with-floor", options.withFloor, "Measures the floor of as many threads as well");
    app.add_option("--floor", options.floor, "Measures only the floor of that many threads");
    app.add_option("--curve", options.curve, "Measures with these numbers of feeds, service and floor")->delimiter(',');
    app.add_option("--plot", options.plot, "Draws the curve into this SVG file");
    app.add_option("--json", options.json, "Writes all figures to this file");
    app.add_option("--markdown", options.markdown, "Writes the table of goals, or that of the curve, to this file");
}

void DescribeScenarios(CLI::App& app, Options& options) {
    Session& session = options.session;
    app.add_option("--many", session.feeds, "Feeds of the scenarios with many")->capture_default_str();
    app.add_option("--few", session.fewer, "Feeds of those with fewer")->capture_default_str();
    app.add_option("--long", session.longSeconds, "Seconds of listening to the many")->capture_default_str();
    app.add_option("--changes", session.changes, "Changes of one feed")->capture_default_str();
    app.add_option("--rebuilds", session.rebuilds, "Rebuilds")->capture_default_str();
    app.add_option("--silence-seconds", session.silenceSeconds, "Seconds of looking where silent blocks come from")
        ->capture_default_str();
    app.add_option("--listeners", session.listeners, "Listeners on one feed")->capture_default_str();
    const std::pair<const char*, const char*> scenarios[] = {
        {"all", "Every scenario below, then the table of goals"},
        {"cost", "Processor time of playing feeds beside the floor"},
        {"idle", "Processor time and reads of idle feeds"},
        {"slow", "Clients that read at the sound's pace, and clients that all stop for a while"},
        {"realtime", "All feeds for a long time; build and end"},
        {"silence", "Whether silent blocks are the music's own or a late disk's"},
        {"memory", "Memory of all feeds, with and without announcements"},
        {"volumes", "One transaction that changes half of all feeds"},
        {"change", "The time of one change"},
        {"rebuild", "The time of a rebuild"},
        {"listeners", "Many listeners on one feed"}};
    for (const auto& [name, text] : scenarios) {
        app.add_subcommand(name, text)->fallthrough()->callback([&options, scenario = name] {
            options.scenario = scenario;
        });
    }
    CLI::App* const floor = app.add_subcommand("floor-process", "")->group("");
    floor->add_option("--folder", options.floorFolder)->required();
    floor->add_option("--count", options.floorCount)->required();
    app.require_subcommand(0, 1);
}

}  // namespace

void DescribeOptions(CLI::App& app, Options& options) {
    DescribeExchange(app, options.session.exchange);
    DescribeMeasurement(app, options);
    DescribeScenarios(app, options);
}

}  // namespace OrvLoad
