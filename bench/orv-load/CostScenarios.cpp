// Goals about many feeds that just play or rest.
#include <cstdio>

#include "bench/orv-load/Goals.h"
#include "bench/orv-load/Plot.h"
#include "bench/orv-load/Report.h"

namespace OrvLoad {
namespace {

const Json& Keep(Session& session, const char* what, const Json& figures) {
    Json row = {{"what", what}};
    row.update(figures);
    std::fputs(MeasurementTable({row}).c_str(), stdout);
    std::fflush(stdout);
    return session.rows.emplace_back(std::move(row));
}

ExchangeOptions WithFeeds(const Session& session, u32 feeds) {
    ExchangeOptions options = session.exchange;
    options.feeds = feeds;
    return options;
}

// Where cached reads do not wait, what was not fetched from the disk was not late.
std::string DescribeSilence(const Json& row) {
    return row["blocks_silent"].dump() + " of " + row["blocks"].dump() + " blocks silent, " + row["disk_bytes"].dump() +
           " bytes fetched from the disk";
}

// Whether files in that folder can be made and have no cached non-blocking reads.
bool IsUncached(const std::string& parent) {
    try {
        const RunFolder folder(false, parent);
        WriteText(folder / "probe", "?");
        return !HasCachedReads(folder / "probe");
    } catch (const LoadError&) {
        return false;
    }
}

// What feeds cost whose files cannot be read without waiting, so that every read goes to a thread that waits.
void MeasureUncached(Session& session, const Json& cached, const Json& floor) {
    const u32 few = session.fewer;
    ExchangeOptions options = WithFeeds(session, few);
    if (options.soundsIn.empty()) options.soundsIn = kMemoryFolder;
    Goal goal{"the same, " + std::to_string(few) + " feeds, files on a file system without cached non-blocking reads",
              "the figure beside it",
              "none found here; --sounds-in names a folder on one",
              {}};
    if (IsUncached(options.soundsIn)) {
        const Json row = Keep(session, "uncached", MeasureService(session.measure, options, few));
        goal.measured = Number(CostOf(row), 3) + " ms, " + Number(CostOf(row) / CostOf(cached), 2) + " times, " +
                        Number(CostOf(row) / CostOf(floor), 2) + " times the floor (" + options.soundsIn + ")";
    }
    session.goals.push_back(goal);
}

}  // namespace

void MeasureCost(Session& session) {
    const u32 few = session.fewer;
    const Json playing = Keep(session, "playing", MeasureService(session.measure, WithFeeds(session, few), few));
    const Json floor = Keep(session, "floor", MeasureFloor(session.measure, few, few));
    const double ratio = CostOf(playing) / CostOf(floor);
    session.goals.push_back(
        {"processor time per second of a playing feed, " + std::to_string(few) + " feeds",
         "1.5 times the floor (aim 0.15 ms)",
         Number(ratio, 2) + " times: " + Number(CostOf(playing), 3) + " ms, floor " + Number(CostOf(floor), 3) + " ms",
         ratio <= 1.5});
    MeasureUncached(session, playing, floor);

    const u32 many = session.feeds;
    const Json all = Keep(session, "playing", MeasureService(session.measure, WithFeeds(session, many), many));
    const Json allFloor = Keep(session, "floor", MeasureFloor(session.measure, many, many));
    session.goals.push_back({"the same, " + std::to_string(many) + " feeds", "a tenth more at most",
                             Number(CostOf(all), 3) + " ms, " + Number(CostOf(all) / CostOf(playing), 2) +
                                 " times; floor " + Number(CostOf(allFloor), 3) + " ms",
                             CostOf(all) <= 1.1 * CostOf(playing)});
    const double descriptors = playing["descriptors_per_feed"].get<double>();
    session.goals.push_back(
        {"descriptors of a playing feed with its client", "3 at most", Number(descriptors, 2), descriptors <= 3});
}

void MeasureIdle(Session& session) {
    const u32 few = session.fewer;
    const Json idle = Keep(session, "idle", MeasureService(session.measure, WithFeeds(session, few), 0));
    const Json floor = Keep(session, "idle floor", MeasureFloor(session.measure, few, 0));
    const double ratio = CostOf(idle) / CostOf(floor);
    session.goals.push_back(
        {"an idle feed, " + std::to_string(few) + " feeds", "1.2 times the idle floor (aim 0.07 ms)",
         Number(ratio, 2) + " times: " + Number(CostOf(idle), 3) + " ms, floor " + Number(CostOf(floor), 3) + " ms",
         ratio <= 1.2});
    const u64 bytes = idle["read_bytes"].get<u64>();
    session.goals.push_back({"bytes read while all feeds are idle", "0", std::to_string(bytes), bytes == 0});
}

void MeasureRealTime(Session& session) {
    const u32 many = session.feeds;
    MeasureOptions measure = session.measure;
    measure.seconds = session.longSeconds;
    const Json row = Keep(session, "playing long", MeasureService(measure, WithFeeds(session, many), many));
    const Json& lateness = row["lateness"];
    const double tail = lateness["p99_9_ms"].get<double>();
    const u64 missing = row["blocks_missing"].get<u64>();
    const i64 drift = row["drift_blocks"].get<i64>();
    const bool whole = missing == 0 && row["clients_ended"].get<u64>() == 0 && row["clients"].get<u64>() == many;
    session.goals.push_back({std::to_string(many) + " feeds in real time for " + Number(session.longSeconds, 0) + " s",
                             "no block skipped, drift 0, lateness p99.9 at most 125 ms",
                             std::to_string(missing) + " skipped, drift " + std::to_string(drift) + ", p99.9 " +
                                 Number(tail, 1) + " ms, max " + Number(lateness["max_ms"].get<double>(), 1) + " ms; " +
                                 DescribeSilence(row),
                             whole && drift == 0 && tail <= 125});
    const double built = row["built_ms"].get<double>();
    session.goals.push_back({std::to_string(many) + " feeds from connection to the last pipe", "under 3 s",
                             Number(built / 1000, 2) + " s", built < 3000});
    const double stopped = row["stop_ms"].get<double>();
    const u64 ends = row["ends_heard"].get<u64>();
    const u64 logs = row["logs_backed_up"].get<u64>();
    session.goals.push_back(
        {"SIGTERM to exit, " + std::to_string(many) + " feeds playing",
         "under 10 s, all clients see the end, the log backed up",
         Number(stopped / 1000, 2) + " s, " + std::to_string(ends) + " ends, " + std::to_string(logs) + " log file(s)",
         stopped < 10000 && ends == many && logs > 0});
}

void MeasureMemory(Session& session) {
    MeasureOptions measure = session.measure;
    measure.seconds = 5;
    ExchangeOptions quiet = WithFeeds(session, session.feeds);
    quiet.minPause = quiet.maxPause = 3600;
    const Json without = Keep(session, "no announcement", MeasureService(measure, quiet, session.feeds));

    // Nearly every draw is an announcement, and it is as long as a piece of music.
    ExchangeOptions loud = WithFeeds(session, session.feeds);
    loud.announcement = FirstPiece(session.exchange.music);
    loud.announcementRows = 60;
    loud.minPause = loud.maxPause = 1;
    measure.settle = 15;
    const Json with = Keep(session, "announcements", MeasureService(measure, loud, session.feeds));
    for (const auto& [row, what, limit] :
         {std::tuple{&without, "no announcement plays", 60.0}, std::tuple{&with, "one plays on every feed", 80.0}}) {
        const double size = (*row)["pss_kib_per_feed"].get<double>();
        session.goals.push_back({"memory per feed, " + std::to_string(session.feeds) + " feeds, " + what,
                                 Number(limit, 0) + " KB of the process",
                                 Number(size, 1) + " KiB; kernel " +
                                     Number((*row)["kernel_kib_per_feed"].get<double>(), 1) + " KiB beside it",
                                 size * 1.024 <= limit});
    }
}

void MeasureSilence(Session& session) {
    MeasureOptions measure = session.measure;
    measure.seconds = session.silenceSeconds;
    ExchangeOptions options = WithFeeds(session, session.fewer);
    options.logLevel = ServiceLog::kLevelOfReads;
    const Json row = Keep(session, "silence", MeasureService(measure, options, session.fewer));
    const u64 late = row["reads_late"].get<u64>();
    session.goals.push_back({"silent blocks, " + std::to_string(session.fewer) + " feeds for " +
                                 Number(session.silenceSeconds, 0) + " s, every late read in the log",
                             "none of a late disk", DescribeSilence(row) + ", " + std::to_string(late) + " reads late",
                             late == 0});
}

void MeasureCurve(Session& session, const std::vector<u32>& feeds, const std::string& file) {
    Curve service{"service", {}};
    Curve floor{"floor", {}};
    for (const u32 count : feeds) {
        const Json row = Keep(session, "playing", MeasureService(session.measure, WithFeeds(session, count), count));
        const Json bottom = Keep(session, "floor", MeasureFloor(session.measure, count, count));
        service.points.push_back({static_cast<double>(count), CostOf(row)});
        floor.points.push_back({static_cast<double>(count), CostOf(bottom)});
        session.curve.push_back({count, row, bottom});
    }
    if (!file.empty())
        WriteText(file, PlotCurves("feeds, one client on each", "ms of processor time per feed and second",
                                   {service, floor}));
}

}  // namespace OrvLoad
