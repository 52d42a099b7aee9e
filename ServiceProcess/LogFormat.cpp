#include "ServiceProcess/LogFormat.h"

#include <cstdio>

namespace Orv {

LogText LogDateLine(const Platform::CalendarTime& now) {
    LogText line;
    std::snprintf(line.text, sizeof line.text, "#Date: %04u/%02u/%02u\n", unsigned{now.year}, unsigned{now.month},
                  unsigned{now.day});
    return line;
}

LogText LogLineStart(const Platform::CalendarTime& now, u64 threadId) {
    LogText line;
    std::snprintf(line.text, sizeof line.text, "%02u:%02u:%02u.%03u|%08llu|", unsigned{now.hour}, unsigned{now.minute},
                  unsigned{now.second}, unsigned{now.milliseconds}, static_cast<unsigned long long>(threadId));
    return line;
}

std::string LogFileStamp(const Platform::CalendarTime& now) {
    LogText stamp;
    std::snprintf(stamp.text, sizeof stamp.text, ".%04u-%02u-%02u.%02u%02u%02u", unsigned{now.year},
                  unsigned{now.month}, unsigned{now.day}, unsigned{now.hour}, unsigned{now.minute},
                  unsigned{now.second});
    return stamp.text;
}

std::string LogDayFolder(const Platform::CalendarTime& now) {
    LogText folder;
    std::snprintf(folder.text, sizeof folder.text, "./%04u%02u%02u/", unsigned{now.year}, unsigned{now.month},
                  unsigned{now.day});
    return folder.text;
}

}  // namespace Orv
