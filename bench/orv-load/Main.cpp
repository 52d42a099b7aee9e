// orv-load: puts load on the real programs and measures what it costs them.
#include <CLI/CLI.hpp>
#include <cstdio>

#include "bench/orv-load/Child.h"
#include "bench/orv-load/Floor.h"
#include "bench/orv-load/Report.h"

namespace OrvLoad {
namespace {

struct Options {
    ExchangeOptions exchange;
    MeasureOptions measure;
    double periodMilliseconds = 2;
    i64 clients = -1;  // -1: one on each feed
    bool withFloor = false;
    bool idle = false;
    u32 floor = 0;
    std::string json;
    std::string floorFolder;
    u32 floorCount = 0;
};

void Describe(CLI::App& app, Options& options) {
    app.add_option("--bin", options.exchange.binaries, "Folder of orv-config and orv-audio-feed")
        ->capture_default_str();
    app.add_option("--music", options.exchange.music, "Folder of .wav and .raw files")->capture_default_str();
    app.add_option("--pieces", options.exchange.pieces, "Files of a playlist")->capture_default_str();
    app.add_option("--announcement", options.exchange.announcement, "The announcement's file")->capture_default_str();
    app.add_option("--feeds", options.exchange.feeds, "Feeds to make")
        ->capture_default_str()
        ->check(CLI::PositiveNumber);
    app.add_option("--clients", options.clients, "Clients in all, feed after feed; one on each when not given");
    app.add_flag("--idle", options.idle, "No clients");
    app.add_option("--type", options.exchange.type, "What the feeds play")
        ->capture_default_str()
        ->check(CLI::IsMember({"mixed", "sorted", "shuffled", "default", "marked"}));
    app.add_flag("--announcements,!--no-announcements", options.exchange.announcements,
                 "Announcements on each feed; on when not given");
    app.add_option("--limiter", options.exchange.limit, "Level limit of every feed in percent, 0 for none")
        ->capture_default_str();
    app.add_option("--log-level", options.exchange.logLevel, "SYSTEMLOGGINGLEVEL")->capture_default_str();
    app.add_option("--seconds", options.measure.seconds, "Length of a measurement")->capture_default_str();
    app.add_option("--settle", options.measure.settle, "Seconds before it")->capture_default_str();
    app.add_option("--listener-period", options.periodMilliseconds,
                   "How often the clients look for blocks, in ms; 0: woken for each")
        ->capture_default_str();
    app.add_flag("--with-floor", options.withFloor, "Measures the floor of as many threads as well");
    app.add_option("--floor", options.floor, "Measures only the floor of that many threads");
    app.add_option("--json", options.json, "Writes all figures to this file");
    app.add_flag("--keep", options.exchange.keep, "Keeps the run's folder");
}

void DescribeFloorProcess(CLI::App& app, Options& options) {
    CLI::App* const floor = app.add_subcommand("floor-process", "")->group("");
    floor->add_option("--folder", options.floorFolder)->required();
    floor->add_option("--count", options.floorCount)->required();
}

std::vector<Json> Run(const Options& options) {
    const u32 feeds = options.floor != 0 ? options.floor : options.exchange.feeds;
    const u32 clients = options.idle ? 0 : options.clients >= 0 ? static_cast<u32>(options.clients) : feeds;
    std::vector<Json> rows;
    if (options.floor == 0) {
        Json row = {{"what", clients != 0 ? "playing" : "idle"}};
        row.update(MeasureService(options.measure, options.exchange, clients));
        rows.push_back(row);
    }
    if (options.floor != 0 || options.withFloor) {
        Json row = {{"what", clients != 0 ? "floor" : "idle floor"}};
        row.update(MeasureFloor(options.measure, feeds, clients));
        rows.push_back(row);
    }
    return rows;
}

int Main(int argc, char** argv) {
    Options options;
    options.exchange.binaries = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    options.exchange.music = "/usr/share/asterisk/moh";
    options.exchange.announcement = "/usr/share/asterisk/sounds/en/queue-thankyou.wav";
    CLI::App app{"Makes feeds, puts clients on them, and measures what the service needs for it.", "orv-load"};
    Describe(app, options);
    DescribeFloorProcess(app, options);
    CLI11_PARSE(app, argc, argv);
    options.measure.period = static_cast<i64>(options.periodMilliseconds * kMillisecond);
    if (options.floorCount != 0) return RunFloor(options.floorFolder, options.floorCount);

    RaiseDescriptorLimit();
    const std::vector<Json> rows = Run(options);
    std::fputs(MeasurementTable(rows).c_str(), stdout);
    if (rows.size() == 2) {
        const double ratio = rows[0]["ms_per_feed_second"].get<double>() / rows[1]["ms_per_feed_second"].get<double>();
        std::printf("A feed costs %.2f times the floor.\n", ratio);
    }
    if (!options.json.empty())
        WriteText(options.json, Json{{"machine", DescribeMachine()}, {"rows", rows}}.dump(2) + "\n");
    return 0;
}

}  // namespace
}  // namespace OrvLoad

int main(int argc, char** argv) {
    try {
        return OrvLoad::Main(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "orv-load: %s\n", error.what());
        return 1;
    }
}
