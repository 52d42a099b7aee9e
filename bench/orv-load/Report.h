// What the tool says: rows of figures as a table for people and as JSON for programs.
#pragma once

#include <string>
#include <vector>

#include "bench/orv-load/Measure.h"

namespace OrvLoad {

std::string Number(double value, int digits);
// Of a measured row: milliseconds of processor time per feed and second.
double CostOf(const Json& row);

// Columns aligned, the first to the left, the others to the right.
std::string AlignTable(const std::vector<std::vector<std::string>>& lines);
// The measured rows; each has its "what".
std::string MeasurementTable(const std::vector<Json>& rows);
// What was lost, in words; empty when nothing was.
std::string DescribeLoss(const Json& row);
// What the machine is: processors, memory, kernel, date.
Json DescribeMachine();
std::string MachineMarkdown();

}  // namespace OrvLoad
