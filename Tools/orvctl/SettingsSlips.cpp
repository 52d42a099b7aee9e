#include "Tools/orvctl/SettingsSlips.h"

#include <algorithm>
#include <numeric>

#include "Platform/Path.h"

namespace Orv {
namespace {

constexpr u64 kMostSlips = 2;

struct KnownKey {
    const char* section;
    const char* key;
};
constexpr KnownKey kKnown[] = {
    {"General", "AppDataPath"},  {"General", "PipePath"},         {"General", "StatusPath"},
    {"General", "PreloadFiles"}, {"General", "PreloadMegabytes"}, {"General", "ClientStallSeconds"},
    {"ConfService", "confNIC"},  {"ConfService", "ConfPort"},     {"ConfService", "confUser"},
    {"ConfService", "confPass"},
};

// How many characters must be put in, taken out or replaced to make one of the other.
u64 Distance(const std::string& left, const std::string& right) {
    std::vector<u64> row(right.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (u64 i = 1; i <= left.size(); ++i) {
        u64 diagonal = row[0];
        row[0] = i;
        for (u64 j = 1; j <= right.size(); ++j) {
            const u64 replaced = diagonal + (left[i - 1] == right[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, replaced});
        }
    }
    return row[right.size()];
}

std::string InBrackets(const std::string& section) {
    return section.empty() ? "no section" : "[" + section + "]";
}

// Sections that the service's keys are put into by mistake.
bool IsOurs(const std::string& section) {
    const std::string lower = Platform::LowerAscii(section);
    return lower.empty() || lower == "general" || lower == "confservice";
}

void CheckKey(const std::string& section, const std::string& key, std::vector<std::string>& slips) {
    const std::string lower = Platform::LowerAscii(key);
    const KnownKey* nearest = nullptr;
    u64 least = kMostSlips + 1;
    for (const KnownKey& known : kKnown) {
        const u64 distance = Distance(lower, Platform::LowerAscii(known.key));
        if (distance >= least) continue;
        least = distance;
        nearest = &known;
    }
    if (nearest == nullptr) return;
    if (least > 0) {
        slips.push_back(key + " under " + InBrackets(section) + " is no key of this service; " + nearest->key +
                        " under [" + nearest->section + "] may be meant");
    } else if (section != nearest->section) {
        slips.push_back(key + " stands under " + InBrackets(section) + ", where it does not count; move it under [" +
                        nearest->section + "]");
    }
}

void CheckSection(const SettingsSection& section, std::vector<std::string>& slips) {
    if (IsOurs(section.name)) {
        for (const auto& [lower, value] : section.valuesByKey) CheckKey(section.name, value.key, slips);
    }
    for (const SettingsSection& child : section.children) CheckSection(child, slips);
}

void CheckPort(const CommonSettings& settings, std::vector<std::string>& slips) {
    const SettingsSection* section = settings.FindSection("ConfService");
    if (section == nullptr) return;
    const SettingsValue& port = section->FindValue("confport");
    const std::string text = port.AsString();
    const bool isHexadecimal = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
    const char* const digits = isHexadecimal ? "0123456789abcdefABCDEF" : "0123456789";
    const bool plain = text.find_first_not_of(digits, isHexadecimal ? 2 : 0) == std::string::npos;
    if (plain || port.AsInteger() == 0) return;
    slips.push_back("ConfPort under [ConfService] is \"" + text + "\", which is read as " +
                    std::to_string(port.AsInteger()));
}

}  // namespace

std::vector<std::string> FindSlips(const CommonSettings& settings) {
    std::vector<std::string> slips;
    CheckSection(settings, slips);
    CheckPort(settings, slips);
    std::sort(slips.begin(), slips.end());
    return slips;
}

}  // namespace Orv
