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

void WatchRules::LookAtPumps(u64 now, const std::vector<PumpState>& pumps) {
    ++looks_;
    bool anyGoesOn = false;
    bool anyWaitedForNobody = false;
    forClient_.clear();
    forDisk_.clear();
    for (const PumpState& pump : pumps) {
        const auto [place, isNew] = seen_.try_emplace(pump.id);
        Seen& seen = place->second;
        if (isNew || seen.passes != pump.passes) {
            seen.passes = pump.passes;
            seen.since = now;
        }
        if (seen.since == now || pump.wait != Platform::ThreadWait::None) seen.lastExcused = now;
        seen.look = looks_;
        const u64 stands = now - seen.since;
        if (stands < StuckMilliseconds) anyGoesOn = true;
        if (now - seen.lastExcused >= StuckMilliseconds) anyWaitedForNobody = true;
        if (stands < ToldMilliseconds) continue;
        if (pump.wait == Platform::ThreadWait::Client) forClient_.push_back(pump.name);
        if (pump.wait == Platform::ThreadWait::Disk) forDisk_.push_back(pump.name);
    }
    std::erase_if(seen_, [this](const auto& entry) { return entry.second.look != looks_; });
    noneGoesOn_ = !pumps.empty() && !anyGoesOn && anyWaitedForNobody;
}

WatchVerdict WatchRules::Judge(const LockWait& lock, bool stopping) const {
    WatchVerdict verdict;
    verdict.text = stopping ? "Stopping" : "Running";
    if (lock.milliseconds >= StuckMilliseconds) {
        verdict.stuck = true;
        verdict.text += std::string("; stuck: a lock that all feeds share cannot be had: ") + lock.name;
    } else if (noneGoesOn_) {
        verdict.stuck = true;
        verdict.text += "; stuck: no feed goes on";
    }
    AppendNames(verdict.text, "a client of these feeds does not read:", forClient_);
    AppendNames(verdict.text, "these feeds wait for their disk:", forDisk_);
    return verdict;
}

}  // namespace Orv
