// The goals, each measured by a scenario of its own.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "bench/orv-load/Measure.h"

namespace OrvLoad {

// One line of the table of goals.
struct Goal {
    std::string what;
    std::string goal;
    std::string measured;
    std::optional<bool> met;  // none: a figure that is only to be known
};

// What a number of feeds costs, for the curve.
struct CurvePoint {
    u32 feeds = 0;
    Json service;  // measured rows
    Json floor;
};

// What the scenarios share, and what they have found.
struct Session {
    ExchangeOptions exchange;
    MeasureOptions measure;
    double longSeconds = 600;  // of the long listening to all feeds
    u32 feeds = 5000;          // the many
    u32 fewer = 1000;          // the fewer
    u32 changes = 300;         // of one maxvolume
    u32 rebuilds = 100;
    u32 listeners = 1000;        // on one feed
    double silenceSeconds = 75;  // of looking where silent blocks come from; the music has quiet places in its first 65
    std::vector<Goal> goals;
    std::vector<Json> rows;
    std::vector<CurvePoint> curve;
};

// The cost of playing and of idle feeds beside the floor; real time, build and end of many feeds; memory; whether
// silent blocks are the music's own.
void MeasureCost(Session& session);
void MeasureIdle(Session& session);
// Clients whose feeds wait for them.
void MeasureSlowClients(Session& session);
void MeasureRealTime(Session& session);
void MeasureMemory(Session& session);
void MeasureSilence(Session& session);
// Changes while feeds play.
void MeasureManyChanges(Session& session);
void MeasureOneChange(Session& session);
void MeasureRebuild(Session& session);
void MeasureListeners(Session& session);
// Cost against the number of feeds; the plot goes to `file`.
void MeasureCurve(Session& session, const std::vector<u32>& feeds, const std::string& file);

std::string GoalTable(const std::vector<Goal>& goals);
// The same as rows of a Markdown table.
std::string GoalMarkdown(const std::vector<Goal>& goals);
std::string CurveMarkdown(const std::vector<CurvePoint>& curve);

}  // namespace OrvLoad
