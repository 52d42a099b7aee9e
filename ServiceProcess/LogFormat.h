// The fixed-width texts of the log, by themselves.
#pragma once

#include <string>

#include "Platform/Clock.h"

namespace Orv {

// Room for the longest of a line's times and thread ids.
struct LogText {
    char text[96];
};

// "#Date: 2024/03/05" and a line feed: the header of a file, and of each new day in it.
LogText LogDateLine(const Platform::CalendarTime& now);

// "13:05:09.123|00004712|": the time of a line and the thread it comes from, in 8 digits or as many as it has.
LogText LogLineStart(const Platform::CalendarTime& now, u64 threadId);

// ".2024-03-05.130509": what follows the log's name in a file name.
std::string LogFileStamp(const Platform::CalendarTime& now);

// "./20240305/": the folder of a day.
std::string LogDayFolder(const Platform::CalendarTime& now);

}  // namespace Orv
