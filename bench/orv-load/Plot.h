// A plot as SVG: the lower axis logarithmic, the upper one from 0 on.
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
