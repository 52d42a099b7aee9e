// What can be typed.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "bench/orv-load/Goals.h"

namespace OrvLoad {

struct Options {
    Session session;
    double periodMilliseconds = 2;
    i64 clients = -1;  // -1: one on each feed
    bool idle = false;
    bool withFloor = false;
    u32 floor = 0;  // so many threads of the floor alone
    std::vector<u32> curve;
    std::string plot;
    std::string json;
    std::string markdown;
    std::string scenario;  // empty: one measurement
    std::string floorFolder;
    u32 floorCount = 0;  // above 0: this process is the floor
};

void DescribeOptions(CLI::App& app, Options& options);

}  // namespace OrvLoad
