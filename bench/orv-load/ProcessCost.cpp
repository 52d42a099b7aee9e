#include "bench/orv-load/ProcessCost.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <sstream>

namespace OrvLoad {
namespace {

std::string Folder(pid_t process) {
    return "/proc/" + std::to_string(process) + "/";
}

i64 TicksToNanoseconds(i64 ticks) {
    return ticks * (kSecond / ::sysconf(_SC_CLK_TCK));
}

// Calls `visit` with the name of each entry but those that begin with a dot; how many there were.
template <typename Visit>
u64 ForEachEntry(const std::string& folder, Visit visit) {
    DIR* const list = ::opendir(folder.c_str());
    if (list == nullptr) return 0;
    u64 count = 0;
    while (const dirent* entry = ::readdir(list)) {
        if (entry->d_name[0] == '.') continue;
        ++count;
        visit(entry->d_name);
    }
    ::closedir(list);
    return count;
}

// The number behind a name at the beginning of a line, 0 when there is none.
u64 NumberBehind(const std::string& text, const std::string& name) {
    std::size_t place = text.starts_with(name) ? 0 : text.find("\n" + name);
    if (place == std::string::npos) return 0;
    if (place != 0) ++place;
    return std::strtoull(text.c_str() + place + name.size(), nullptr, 10);
}

// The third number of a thread's schedstat: how often it was given a processor.
u64 SwitchesOf(const std::string& file) {
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return 0;  // the thread has ended
    char text[128];
    const ssize_t size = ::read(descriptor, text, sizeof text - 1);
    ::close(descriptor);
    if (size <= 0) return 0;
    text[size] = '\0';
    char* end = text;
    std::strtoull(end, &end, 10);
    std::strtoull(end, &end, 10);
    return std::strtoull(end, &end, 10);
}

}  // namespace

i64 ProcessorNanoseconds(pid_t process) {
    clockid_t clock{};
    timespec time{};
    if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
        throw LoadError("The measured process has ended");
    }
    return time.tv_sec * kSecond + time.tv_nsec;
}

Counters ReadCounters(pid_t process) {
    Counters counters;
    const std::string tasks = Folder(process) + "task/";
    ForEachEntry(tasks, [&](const char* name) { counters.switches += SwitchesOf(tasks + name + "/schedstat"); });
    const std::string io = ReadText(Folder(process) + "io");
    counters.readCalls = NumberBehind(io, "syscr:");
    counters.readBytes = NumberBehind(io, "rchar:");
    counters.diskBytes = NumberBehind(io, "read_bytes:");
    // The fields behind the name, which may hold anything.
    const std::string stat = ReadText(Folder(process) + "stat");
    const std::size_t place = stat.rfind(')');
    if (place == std::string::npos) return counters;
    std::istringstream fields(stat.substr(place + 2));
    std::string skipped;
    for (int field = 3; field < 14; ++field) fields >> skipped;
    i64 user = 0;
    i64 system = 0;
    fields >> user >> system;
    counters.userTime = TicksToNanoseconds(user);
    counters.systemTime = TicksToNanoseconds(system);
    return counters;
}

Holding ReadHolding(pid_t process) {
    Holding holding;
    holding.pssBytes = NumberBehind(ReadText(Folder(process) + "smaps_rollup"), "Pss:") * 1024;
    holding.threads = ForEachEntry(Folder(process) + "task", [](const char*) {});
    holding.descriptors = ForEachEntry(Folder(process) + "fd", [](const char*) {});
    return holding;
}

Machine ReadMachine() {
    Machine machine;
    std::istringstream stat(ReadText("/proc/stat"));
    std::string name;
    stat >> name;
    i64 ticks[8] = {};  // user nice system idle iowait irq softirq steal
    for (i64& value : ticks) stat >> value;
    machine.busyTime = TicksToNanoseconds(ticks[0] + ticks[1] + ticks[2] + ticks[5] + ticks[6]);
    const std::string memory = ReadText("/proc/meminfo");
    machine.kernelStackBytes = NumberBehind(memory, "KernelStack:") * 1024;
    machine.kernelBytes =
        machine.kernelStackBytes + (NumberBehind(memory, "Slab:") + NumberBehind(memory, "PageTables:")) * 1024;
    return machine;
}

}  // namespace OrvLoad
