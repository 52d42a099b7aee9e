// What orvctl says about the outcome of a change. Pure functions.
#pragma once

#include <string>
#include <vector>

#include "ConfigService/Change.h"
#include "Tools/orvctl/Columns.h"

namespace Orv {

// When a change is heard, in one sentence for each thing there is to say.
std::vector<std::string> HeardWhen(const RowChange& change);

// `feed "hold" added`
std::string ChangeText(const RowChange& change);
// `feed "hold", --max-volume: is 140; ...`
std::string FindingText(const Finding& finding);

Json ChangeToJson(const RowChange& change);
Json FindingToJson(const Finding& finding);

// Columns side by side, each as wide as its widest cell, two blanks apart; characters count, not bytes.
std::string AlignTable(const std::vector<std::vector<std::string>>& lines);

}  // namespace Orv
