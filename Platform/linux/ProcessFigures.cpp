#include "Platform/ProcessFigures.h"

#include <dirent.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>

#include "Platform/linux/Descriptor.h"

namespace Platform {
namespace {

u64 CountEntries(const char* folder) {
    DIR* const open = ::opendir(folder);
    if (open == nullptr) return 0;
    u64 count = 0;
    while (const dirent* entry = ::readdir(open)) count += entry->d_name[0] != '.' ? 1 : 0;
    ::closedir(open);
    return count;
}

u64 Milliseconds(const timeval& time) {
    return static_cast<u64>(time.tv_sec) * 1000 + static_cast<u64>(time.tv_usec) / 1000;
}

}  // namespace

ProcessFigures ReadProcessFigures() {
    ProcessFigures figures;
    figures.id = static_cast<u64>(::getpid());
    figures.threads = CountEntries("/proc/self/task");
    // The folder's own descriptor is open while it is counted.
    const u64 files = CountEntries("/proc/self/fd");
    figures.openFiles = files > 0 ? files - 1 : 0;
    unsigned long size = 0;
    unsigned long resident = 0;
    if (std::FILE* const file = std::fopen("/proc/self/statm", "re")) {
        if (std::fscanf(file, "%lu %lu", &size, &resident) == 2) {
            figures.residentBytes = u64{resident} * static_cast<u64>(::sysconf(_SC_PAGESIZE));
        }
        std::fclose(file);
    }
    rusage usage{};
    if (::getrusage(RUSAGE_SELF, &usage) == 0) {
        figures.cpuMilliseconds = Milliseconds(usage.ru_utime) + Milliseconds(usage.ru_stime);
    }
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) figures.openFilesLimit = limit.rlim_cur;
    return figures;
}

// All of them are open where the last one is asked for.
bool CanOpenFiles(u32 count) {
    if (count == 0) return true;
    const Descriptor one(::eventfd(0, EFD_CLOEXEC));
    return one.IsOpen() && CanOpenFiles(count - 1);
}

}  // namespace Platform
