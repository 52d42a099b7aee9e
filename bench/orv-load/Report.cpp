#include "bench/orv-load/Report.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <sstream>

namespace OrvLoad {
namespace {

struct Shown {
    const char* title;
    const char* pointer;  // into the row
};

constexpr Shown kShown[] = {{"what", "/what"},
                            {"feeds", "/feeds"},
                            {"clients", "/clients"},
                            {"s", "/seconds"},
                            {"ms/feed.s", "/ms_per_feed_second"},
                            {"user", "/user_share"},
                            {"switch/feed.s", "/switches_per_feed_second"},
                            {"late p50", "/lateness/p50_ms"},
                            {"p99", "/lateness/p99_ms"},
                            {"p99.9", "/lateness/p99_9_ms"},
                            {"max ms", "/lateness/max_ms"},
                            {"missing", "/blocks_missing"},
                            {"silent", "/blocks_silent"},
                            {"late disk", "/reads_late"},
                            {"drift", "/drift_blocks"},
                            {"KiB/feed", "/pss_kib_per_feed"},
                            {"kernel", "/kernel_kib_per_feed"},
                            {"fd/feed", "/descriptors_per_feed"},
                            {"threads", "/threads"},
                            {"tool ms/cl.s", "/listeners_ms_per_client_second"},
                            {"busy", "/processors_busy"}};

std::string Text(const Json& value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string FirstLineWith(const std::string& text, const std::string& name) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(name)) return line.substr(std::min(line.size(), line.find(':') + 2));
    }
    return {};
}

}  // namespace

std::string Number(double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

double CostOf(const Json& row) {
    return row["ms_per_feed_second"].get<double>();
}

std::string AlignTable(const std::vector<std::vector<std::string>>& lines) {
    std::vector<std::size_t> widths;
    for (const auto& line : lines) {
        widths.resize(std::max(widths.size(), line.size()));
        for (std::size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
    }
    std::string text;
    for (const auto& line : lines) {
        for (std::size_t i = 0; i < line.size(); ++i) {
            const std::string gap(widths[i] - line[i].size(), ' ');
            text += i == 0 ? line[i] + gap : "  " + gap + line[i];
        }
        while (!text.empty() && text.back() == ' ') text.pop_back();
        text += '\n';
    }
    return text;
}

std::string MeasurementTable(const std::vector<Json>& rows) {
    std::vector<std::vector<std::string>> lines(1);
    for (const Shown& shown : kShown) lines[0].push_back(shown.title);
    for (const Json& row : rows) {
        auto& line = lines.emplace_back();
        for (const Shown& shown : kShown) {
            const Json::json_pointer pointer(shown.pointer);
            line.push_back(row.contains(pointer) ? Text(row[pointer]) : "");
        }
    }
    return AlignTable(lines);
}

std::string DescribeLoss(const Json& row) {
    constexpr std::pair<const char*, const char*> kLosses[] = {
        {"blocks_missing", "blocks are missing"},
        {"clients_torn", "clients hold half a block"},
        {"clients_ended", "clients saw the end"},
        {"drift_blocks", "blocks off the grid"},
        {"reads_late", "reads came late from the disk"},
        {"counted_broken", "blocks do not follow the one before"},
        {"counted_unsettled", "clients never heard the count"}};
    std::string text;
    for (const auto& [name, words] : kLosses) {
        if (!row.contains(name) || row[name] == 0) continue;
        text += (text.empty() ? "" : ", ") + row[name].dump() + " " + words;
    }
    return text;
}

Json DescribeMachine() {
    utsname system{};
    ::uname(&system);
    const std::time_t now = std::time(nullptr);
    char date[32];
    std::strftime(date, sizeof date, "%Y-%m-%d %H:%M UTC", std::gmtime(&now));
    const long pages = ::sysconf(_SC_PHYS_PAGES) / 1024 * (::sysconf(_SC_PAGESIZE) / 1024);
    return {{"processors", ::sysconf(_SC_NPROCESSORS_ONLN)},
            {"processor", FirstLineWith(ReadText("/proc/cpuinfo"), "model name")},
            {"memory_gib", pages / 1024},
            {"kernel", system.release},
            {"date", date}};
}

std::string MachineMarkdown() {
    const Json machine = DescribeMachine();
    return "Measured " + Text(machine["date"]) + " on " + Text(machine["processors"]) + " processors (" +
           Text(machine["processor"]) + "), " + Text(machine["memory_gib"]) + " GiB, Linux " + Text(machine["kernel"]) +
           ".\n";
}

}  // namespace OrvLoad
