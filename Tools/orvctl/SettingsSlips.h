// What in a settings file is probably meant otherwise than it counts.
#pragma once

#include <string>
#include <vector>

#include "ServiceProcess/CommonSettings.h"

namespace Orv {

// A sentence for each key that is nearly one of the service's or stands in the wrong section, and for a port that is
// read only in part. Other programs may keep keys of their own in the file: those are passed over.
std::vector<std::string> FindSlips(const CommonSettings& settings);

}  // namespace Orv
