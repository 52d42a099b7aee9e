// The lines that a step of the model must leave in the log: "<word>|<text>".
#pragma once

#include <deque>
#include <string>

namespace OrvSim {

using Lines = std::deque<std::string>;

}  // namespace OrvSim
