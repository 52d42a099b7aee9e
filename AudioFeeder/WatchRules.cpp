#include "AudioFeeder/WatchRules.h"

#include <algorithm>

namespace Orv {

namespace {

constexpr std::size_t kMostNames = 5;

void AppendNames(std::string& text, const char* what, const std::vector<std::string>& names) {
    if (names.empty()) return;
    text += std::string("; ") + what;
    for (std::size_t i = 0; i < std::min(names.size(), kMostNames); ++i) text += (i == 0 ? " " : ", ") + names[i];
    if (names.size() > kMostNames) text += " and " + std::to_string(names.size() - kMostNames) + " more";
}

}  // namespace

WatchVerdict WatchRules::Look(u64 now, const std::vector<PumpState>& pumps, u64 lockMilliseconds, bool stopping) {
    ++looks_;
    bool anyGoesOn = false;
    bool anyWaitsForNobody = false;
    std::vector<std::string> forClient;
    std::vector<std::string> forDisk;
    for (const PumpState& pump : pumps) {
        const auto [place, isNew] = seen_.try_emplace(pump.id);
        Seen& seen = place->second;
        if (isNew || seen.passes != pump.passes) {
            seen.passes = pump.passes;
            seen.since = now;
        }
        seen.look = looks_;
        const u64 stands = now - seen.since;
        if (stands < StuckMilliseconds) anyGoesOn = true;
        if (pump.wait == Platform::ThreadWait::None) anyWaitsForNobody = true;
        if (stands < ToldMilliseconds) continue;
        if (pump.wait == Platform::ThreadWait::Client) forClient.push_back(pump.name);
        if (pump.wait == Platform::ThreadWait::Disk) forDisk.push_back(pump.name);
    }
    std::erase_if(seen_, [this](const auto& entry) { return entry.second.look != looks_; });

    WatchVerdict verdict;
    verdict.text = stopping ? "Stopping" : "Running";
    if (lockMilliseconds >= StuckMilliseconds) {
        verdict.stuck = true;
        verdict.text += "; stuck: a lock that all feeds share cannot be had";
    } else if (!pumps.empty() && !anyGoesOn && anyWaitsForNobody) {
        verdict.stuck = true;
        verdict.text += "; stuck: no feed goes on";
    }
    AppendNames(verdict.text, "a client of these feeds does not read:", forClient);
    AppendNames(verdict.text, "these feeds wait for their disk:", forDisk);
    return verdict;
}

}  // namespace Orv
