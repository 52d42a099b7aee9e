#include "bench/orv-load/Goals.h"

#include "bench/orv-load/Report.h"

namespace OrvLoad {
namespace {

const char* Verdict(const Goal& goal) {
    if (!goal.met) return "";
    return *goal.met ? "met" : "not met";
}

}  // namespace

std::string GoalTable(const std::vector<Goal>& goals) {
    std::string text;
    for (const Goal& goal : goals) {
        std::string verdict = Verdict(goal);
        verdict.resize(8, ' ');
        text +=
            verdict + goal.what + "\n        goal:     " + goal.goal + "\n        measured: " + goal.measured + "\n";
    }
    return text;
}

std::string GoalMarkdown(const std::vector<Goal>& goals) {
    std::string text = "| What | Goal | Measured | |\n|---|---|---|---|\n";
    for (const Goal& goal : goals) {
        text += "| " + goal.what + " | " + goal.goal + " | " + goal.measured + " | " + Verdict(goal) + " |\n";
    }
    return text;
}

std::string CurveMarkdown(const std::vector<CurvePoint>& curve) {
    std::string text =
        "| feeds | ms per feed and second | floor | times | p99.9 of the lateness, ms | KiB per feed |\n"
        "|---|---|---|---|---|---|\n";
    for (const CurvePoint& point : curve) {
        const double service = CostOf(point.service);
        const double floor = CostOf(point.floor);
        text += "| " + std::to_string(point.feeds) + " | " + Number(service, 3) + " | " + Number(floor, 3) + " | " +
                Number(service / floor, 2) + " | " + Number(point.service["lateness"]["p99_9_ms"].get<double>(), 1) +
                " | " + Number(point.service["pss_kib_per_feed"].get<double>(), 1) + " |\n";
    }
    return text;
}

}  // namespace OrvLoad
