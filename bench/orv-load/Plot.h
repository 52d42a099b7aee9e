// A plot as SVG: both axes logarithmic.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace OrvLoad {

struct Curve {
    std::string name;
    std::vector<std::pair<double, double>> points;  // above 0
};

std::string PlotCurves(const std::string& xTitle, const std::string& yTitle, const std::vector<Curve>& curves);

}  // namespace OrvLoad
