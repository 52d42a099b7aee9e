// orv-load: puts load on the real programs and measures what it costs them.
#include <cstdio>

#include "bench/orv-load/Child.h"
#include "bench/orv-load/Floor.h"
#include "bench/orv-load/Options.h"
#include "bench/orv-load/Report.h"

namespace OrvLoad {
namespace {

// One measurement. Whether nothing was lost.
bool MeasureOnce(Options& options) {
    Session& session = options.session;
    const u32 feeds = options.floor != 0 ? options.floor : session.exchange.feeds;
    const u32 clients = options.idle ? 0 : options.clients >= 0 ? static_cast<u32>(options.clients) : feeds;
    if (options.floor == 0) {
        Json row = {{"what", clients != 0 ? "playing" : "idle"}};
        row.update(MeasureService(session.measure, session.exchange, clients));
        session.rows.push_back(row);
    }
    if (options.floor != 0 || options.withFloor) {
        Json row = {{"what", clients != 0 ? "floor" : "idle floor"}};
        row.update(MeasureFloor(session.measure, feeds, clients));
        session.rows.push_back(row);
    }
    std::fputs(MeasurementTable(session.rows).c_str(), stdout);
    const Json& row = session.rows.front();
    if (session.rows.size() == 2) {
        std::printf("A feed costs %.2f times the floor.\n", CostOf(row) / CostOf(session.rows.back()));
    }
    if (const std::string loss = DescribeLoss(row); !loss.empty()) {
        std::fprintf(stderr, "orv-load: %s\n", loss.c_str());
        return false;
    }
    return true;
}

void RunScenario(Options& options) {
    Session& session = options.session;
    const bool all = options.scenario == "all";
    const std::pair<const char*, void (*)(Session&)> scenarios[] = {
        {"cost", MeasureCost},        {"idle", MeasureIdle},       {"slow", MeasureSlowClients},
        {"memory", MeasureMemory},    {"silence", MeasureSilence}, {"volumes", MeasureManyChanges},
        {"change", MeasureOneChange}, {"rebuild", MeasureRebuild}, {"listeners", MeasureListeners},
        {"realtime", MeasureRealTime}};
    for (const auto& [name, measure] : scenarios) {
        if (!all && options.scenario != name) continue;
        std::printf("--- %s\n", name);
        std::fflush(stdout);
        measure(session);
    }
}

int Main(int argc, char** argv) {
    Options options;
    CLI::App app{
        "Makes feeds, puts clients on them, and measures what the service needs for it. Ends with 0 when nothing "
        "was lost and every goal was met, with 2 when not, with 1 when it could not measure.",
        "orv-load"};
    app.set_version_flag("--version", "orv-load " ORV_VERSION);
    DescribeOptions(app, options);
    CLI11_PARSE(app, argc, argv);
    if (options.floorCount != 0) return RunFloor(options.floorFolder, options.floorCount);

    Session& session = options.session;
    session.measure.period = static_cast<i64>(options.periodMilliseconds * kMillisecond);
    WatchForInterrupt();
    RaiseDescriptorLimit();
    RaisePriority();
    bool good = true;
    if (!options.scenario.empty()) RunScenario(options);
    if (!options.curve.empty()) MeasureCurve(session, options.curve, options.plot);
    if (options.scenario.empty() && options.curve.empty()) good = MeasureOnce(options);
    std::fputs(GoalTable(session.goals).c_str(), stdout);

    Json goals = Json::array();
    for (const Goal& goal : session.goals) {
        good = good && goal.met.value_or(true);
        goals.push_back({{"what", goal.what},
                         {"goal", goal.goal},
                         {"measured", goal.measured},
                         {"met", goal.met ? Json(*goal.met) : Json()}});
    }
    if (!options.json.empty()) {
        const Json result = {{"machine", DescribeMachine()}, {"goals", goals}, {"rows", session.rows}};
        WriteText(options.json, result.dump(2) + "\n");
    }
    if (!options.markdown.empty()) {
        std::string text = MachineMarkdown();
        if (!session.goals.empty()) text += "\n" + GoalMarkdown(session.goals);
        if (!session.curve.empty()) text += "\n" + CurveMarkdown(session.curve);
        WriteText(options.markdown, text);
    }
    return good ? 0 : 2;
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
